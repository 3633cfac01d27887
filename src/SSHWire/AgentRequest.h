#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "SSHWire/SignFlags.h"

namespace quorvane {

// One request from an agent client, decoded from a message body (the bytes after the length).
struct AgentRequest {
  struct Sign {
    Bytes keyBlob;
    Bytes data;
    SignFlags flags;
    friend bool operator==(const Sign&, const Sign&) = default;
  };
  struct Extension {
    std::string name;
    Bytes contents;  // everything after the name, uninterpreted
    friend bool operator==(const Extension&, const Extension&) = default;
  };
  struct Lock {
    SecureBytes passphrase;
    friend bool operator==(const Lock&, const Lock&) = default;
  };
  struct Unlock {
    SecureBytes passphrase;
    friend bool operator==(const Unlock&, const Unlock&) = default;
  };
  // A message number that this agent does not serve.
  struct Unsupported {
    uint8_t type = 0;
    friend bool operator==(const Unsupported&, const Unsupported&) = default;
  };
  struct RequestIdentities {
    friend bool operator==(const RequestIdentities&, const RequestIdentities&) = default;
  };

  std::variant<Sign, Extension, Lock, Unlock, Unsupported, RequestIdentities> value;

  // Decodes a message body. Throws WireError: `truncated` for an empty body or a short field,
  // `lengthTooLarge` for a string over the limit, `trailingBytes` after a complete request
  // (extensions and unsupported messages excepted), invalid("utf8") for an extension name.
  static AgentRequest parse(ByteView body);

  friend bool operator==(const AgentRequest&, const AgentRequest&) = default;
};

}  // namespace quorvane

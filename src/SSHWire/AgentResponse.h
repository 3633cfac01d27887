#pragma once

#include <string>
#include <variant>
#include <vector>

#include "Base/Bytes.h"

namespace quorvane {

// One answer of the agent, encoded as a message body or a framed message.
struct AgentResponse {
  struct Identity {
    Bytes keyBlob;
    std::string comment;
    friend bool operator==(const Identity&, const Identity&) = default;
  };

  // The bytes after the message number, already encoded by the extension's handler.
  struct ExtensionResponse {
    Bytes body;
    friend bool operator==(const ExtensionResponse&, const ExtensionResponse&) = default;
  };
  struct Identities {
    std::vector<Identity> list;
    friend bool operator==(const Identities&, const Identities&) = default;
  };
  // A complete SSH signature blob.
  struct Signature {
    Bytes blob;
    friend bool operator==(const Signature&, const Signature&) = default;
  };
  struct Success {
    friend bool operator==(const Success&, const Success&) = default;
  };
  struct Failure {
    friend bool operator==(const Failure&, const Failure&) = default;
  };
  struct ExtensionFailure {
    friend bool operator==(const ExtensionFailure&, const ExtensionFailure&) = default;
  };

  std::variant<ExtensionResponse, Identities, Signature, Success, Failure, ExtensionFailure> value;

  static AgentResponse success() { return {Success{}}; }
  static AgentResponse failure() { return {Failure{}}; }
  static AgentResponse extensionFailure() { return {ExtensionFailure{}}; }

  // The message body: the message number, then the payload.
  Bytes encode() const;
  // The bytes written to the socket: the body with its length frame.
  Bytes framed() const;

  friend bool operator==(const AgentResponse&, const AgentResponse&) = default;
};

}  // namespace quorvane

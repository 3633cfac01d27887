#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Base/JSONReader.h"

namespace quorvane {

// What a signature will be used for: a login, a namespaced signature, or anything else.
struct RequestPurpose {
  // An SSH user-authentication request.
  struct Login {
    // The server's host-key fingerprint when session binding proved it; absent when the server is
    // not verified.
    std::optional<std::string> hostKey;
    // The user name that the login is for.
    std::string user;
    // Host-key fingerprints of the hosts that forwarded the agent connection, in the order the
    // agent recorded them; empty for a direct connection.
    std::vector<std::string> forwardedVia;

    friend bool operator==(const Login&, const Login&) = default;
  };

  // An SSH signature (SSHSIG) request, such as "git" for commit signing.
  struct Signature {
    std::string namespace_;

    friend bool operator==(const Signature&, const Signature&) = default;
  };

  // Data that is neither a login nor a namespaced signature.
  struct Other {
    friend bool operator==(const Other&, const Other&) = default;
  };

  std::variant<Login, Signature, Other> value;

  static RequestPurpose login(std::optional<std::string> hostKey, std::string user,
                              std::vector<std::string> forwardedVia = {});
  static RequestPurpose signature(std::string namespace_);
  static RequestPurpose other();

  friend bool operator==(const RequestPurpose&, const RequestPurpose&) = default;
};

// JSON form: an object with exactly one of the keys "login", "signature", "other". "login" holds
// "hostKey" (left out when absent), "user" and "forwardedVia"; "signature" holds "namespace";
// "other" holds an empty object. Decoding an object with none or several of the case keys is
// typeMismatch "Invalid number of keys found, expected one."; other keys are ignored.
JSON toJSON(const RequestPurpose& purpose);
RequestPurpose decodeRequestPurpose(const JSONReader& reader);

}  // namespace quorvane

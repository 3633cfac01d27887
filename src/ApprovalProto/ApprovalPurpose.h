#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace quorvane {

// How far the host name shown to the approver is established.
enum class HostNameState : uint8_t { confirmed = 0, claimed = 1, conflict = 2, unknown = 3 };

// What the key is being used for, as the approving device shows it.
struct ApprovalPurpose {
  // An SSH login.
  struct Login {
    // The server's host key fingerprint and name when known.
    std::optional<std::string> hostKeyFingerprint;
    std::optional<std::string> hostName;
    HostNameState nameState = HostNameState::unknown;
    // The remote user name.
    std::string user;
    // Whether the request arrives through agent forwarding.
    bool forwarded = false;

    friend bool operator==(const Login&, const Login&) = default;
  };

  // A signature over data in a namespace, such as "git" for commits.
  struct Signature {
    std::string namespace_;

    friend bool operator==(const Signature&, const Signature&) = default;
  };

  struct Other {
    friend bool operator==(const Other&, const Other&) = default;
  };

  std::variant<Login, Signature, Other> value{Other{}};

  static ApprovalPurpose login(std::optional<std::string> hostKeyFingerprint,
                               std::optional<std::string> hostName, HostNameState nameState,
                               std::string user, bool forwarded);
  static ApprovalPurpose signature(std::string namespace_);
  static ApprovalPurpose other();

  friend bool operator==(const ApprovalPurpose&, const ApprovalPurpose&) = default;
};

}  // namespace quorvane

#pragma once

#include <optional>
#include <string>
#include <variant>

namespace quorvane {

// How far the host name shown for a login can be trusted.
struct HostNameStatus {
  // The known-hosts files name this host key under the name.
  struct Confirmed {
    std::string name;
    friend bool operator==(const Confirmed&, const Confirmed&) = default;
  };
  // Only the client's own command line names the host; nothing ties the name to the host key.
  struct Claimed {
    std::string name;
    friend bool operator==(const Claimed&, const Claimed&) = default;
  };
  // The name is known, but with a different host key than the one the session proved.
  struct Conflict {
    std::string name;
    friend bool operator==(const Conflict&, const Conflict&) = default;
  };
  struct Unknown {
    friend bool operator==(const Unknown&, const Unknown&) = default;
  };

  std::variant<Confirmed, Claimed, Conflict, Unknown> value = Unknown{};

  friend bool operator==(const HostNameStatus&, const HostNameStatus&) = default;
};

// The host as the user sees it: the name, then "" (confirmed), " (name not confirmed)" (claimed)
// or " (WARNING: different host key than before)" (conflict). Nothing for an unknown name.
std::optional<std::string> hostDisplay(const HostNameStatus& status);

}  // namespace quorvane

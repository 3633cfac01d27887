#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Base/Bytes.h"

namespace quorvane {

// What the user's records say about a host name and a host key.
enum class HostNameMatch {
  recorded,      // the name is recorded with this key
  otherKeyOnly,  // the name is recorded, but only with other keys
  notRecorded,   // the name is not recorded at all
};

// Answers which host names belong to a host key (from the user's known-hosts files, for example).
class HostNameResolver {
 public:
  virtual ~HostNameResolver() = default;
  // The names recorded in clear for `hostKeyBlob`, in file order, without duplicates. Hashed
  // records cannot be listed; they only answer `check`.
  virtual std::vector<std::string> names(ByteView hostKeyBlob) = 0;
  virtual HostNameMatch check(std::string_view name, ByteView hostKeyBlob) = 0;
};

}  // namespace quorvane

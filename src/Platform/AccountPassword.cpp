#include "Platform/AccountPassword.h"

#include <shadow.h>

#include <vector>

namespace quorvane {

AccountPassword accountPassword(const std::string& user) {
  spwd entry{};
  spwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (::getspnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
      found == nullptr || found->sp_pwdp == nullptr)
    return AccountPassword::unknown;
  const std::string hash = found->sp_pwdp;
  if (hash.empty() || hash.starts_with('!') || hash.starts_with('*'))
    return AccountPassword::unusable;
  return AccountPassword::usable;
}

}  // namespace quorvane

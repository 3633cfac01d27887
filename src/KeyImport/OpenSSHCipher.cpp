#include "KeyImport/OpenSSHCipher.h"

#include <array>
#include <utility>

namespace quorvane {

OpenSSHCipher OpenSSHCipher::named(std::string_view name) {
  using M = Mode;
  static const std::array<std::pair<std::string_view, OpenSSHCipher>, 10> kTable = {{
      {"none", {M::none, 0, 0, 8, 0}},
      {"aes128-ctr", {M::ctr, 16, 16, 16, 0}},
      {"aes192-ctr", {M::ctr, 24, 16, 16, 0}},
      {"aes256-ctr", {M::ctr, 32, 16, 16, 0}},
      {"aes128-cbc", {M::cbc, 16, 16, 16, 0}},
      {"aes192-cbc", {M::cbc, 24, 16, 16, 0}},
      {"aes256-cbc", {M::cbc, 32, 16, 16, 0}},
      {"3des-cbc", {M::tripleDESCBC, 24, 8, 8, 0}},
      {"aes128-gcm@openssh.com", {M::gcm, 16, 12, 16, 16}},
      {"aes256-gcm@openssh.com", {M::gcm, 32, 12, 16, 16}},
  }};
  for (const auto& [entryName, cipher] : kTable)
    if (entryName == name) return cipher;
  return {M::unknown, 0, 0, 0, 0};
}

}  // namespace quorvane

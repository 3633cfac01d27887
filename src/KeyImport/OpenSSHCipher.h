#pragma once

#include <cstddef>
#include <string_view>

namespace quorvane {

// An entry of the table of ciphers that OpenSSH private key files may name.
struct OpenSSHCipher {
  enum class Mode { cbc, tripleDESCBC, none, ctr, gcm, unknown };

  Mode mode;
  size_t keyLength;  // bytes
  size_t ivLength;   // bytes; the nonce for GCM
  size_t blockSize;  // the private section is whole blocks of this size
  size_t tagLength;  // bytes after the private section (GCM only)

  // The entry for an exact, case-sensitive cipher name: "none", "aes128-ctr", "aes192-ctr",
  // "aes256-ctr", "aes128-cbc", "aes192-cbc", "aes256-cbc", "3des-cbc", "aes128-gcm@openssh.com",
  // "aes256-gcm@openssh.com". Any other name gives mode `unknown` with zero lengths.
  static OpenSSHCipher named(std::string_view name);

  friend bool operator==(const OpenSSHCipher&, const OpenSSHCipher&) = default;
};

}  // namespace quorvane

#pragma once

#include <string>

#include "KeyStore/ImportedKey.h"
#include "SSHWire/SSHPublicKey.h"

namespace quorvane {

// One private key read from a file: the key, the comment stored with it (OpenSSH files only;
// empty for PEM files, which carry none) and its SSH public key, derived from the private key.
struct ParsedPrivateKey {
  ImportedKey key;
  std::string comment;
  SSHPublicKey publicKey;
};

}  // namespace quorvane

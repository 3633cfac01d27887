#pragma once

#include <string>

#include "Base/Bytes.h"

namespace quorvane::testing {

// The pieces of an armored SSH signature as written by `ssh-keygen -Y sign`:
//   "SSHSIG", uint32 version, string public key, string namespace, string reserved,
//   string hash algorithm, string signature blob
struct SSHSigFile {
  Bytes publicKey;
  std::string namespace_;
  std::string hashAlgorithm;
  Bytes signature;
};

// Reads the armored text; fails the calling test if it is not one.
SSHSigFile parseArmoredSSHSig(const std::string& armored);

// Writes an armored signature file that `ssh-keygen -Y check-novalidate` accepts.
std::string armorSSHSig(const SSHSigFile& file);

// The bytes that an SSH signature actually signs: "SSHSIG", string namespace, string reserved
// (empty), string hash algorithm, string hash of the message.
Bytes sshSigSignedData(const std::string& namespace_, const std::string& hashAlgorithm,
                       ByteView messageHash);

}  // namespace quorvane::testing

#pragma once

#include <optional>
#include <string>
#include <variant>

#include "Base/Bytes.h"

namespace quorvane {

// What the data of a sign request is: an SSH user-authentication request (a login), an SSHSIG
// signature request (Git commits, `ssh-keygen -Y sign`), or something else.
struct SignPurpose {
  // RFC 4252 section 7, with OpenSSH's "publickey-hostbound-v00@openssh.com" method:
  //   string session id, byte 50, string user, string "ssh-connection", string method,
  //   bool TRUE, string algorithm, string key blob, [string host key blob (host-bound only)]
  struct UserAuth {
    Bytes sessionID;
    std::string user;
    std::string method;
    std::string algorithm;
    Bytes keyBlob;
    std::optional<Bytes> hostKeyBlob;  // only for the host-bound method
    friend bool operator==(const UserAuth&, const UserAuth&) = default;
  };
  // OpenSSH's PROTOCOL.sshsig signed data:
  //   "SSHSIG", string namespace, string reserved, string hash algorithm, string H(message)
  struct SSHSig {
    std::string namespace_;
    std::string hashAlgorithm;  // "sha256" or "sha512"
    Bytes hash;
    friend bool operator==(const SSHSig&, const SSHSig&) = default;
  };
  struct Other {
    friend bool operator==(const Other&, const Other&) = default;
  };

  std::variant<UserAuth, SSHSig, Other> value;

  // Classifies the data of a sign request for the key whose blob is `keyBlob`. Never fails:
  // anything that is not exactly one of the two forms (for a login: with this very key) is Other.
  static SignPurpose classify(ByteView data, ByteView keyBlob);

  friend bool operator==(const SignPurpose&, const SignPurpose&) = default;
};

}  // namespace quorvane

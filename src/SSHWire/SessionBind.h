#pragma once

#include "Base/Bytes.h"
#include "SSHWire/SSHPublicKey.h"

namespace quorvane {

// One "session-bind@openssh.com" report from an SSH client: the server's host key, the session
// identifier, and the server's signature over that identifier. Contents of the extension:
//   string host key blob, string session identifier, string signature, bool is-forwarding
struct SessionBind {
  // Session identifiers are hash outputs; anything outside this range is refused.
  static constexpr size_t kMinSessionIDLength = 1;
  static constexpr size_t kMaxSessionIDLength = 128;

  SSHPublicKey hostKey;
  Bytes sessionID;
  bool isForwarding = false;  // bound for a forwarded agent connection, not the client's own login
  bool signatureValid = false;

  // Parses the extension contents. Throws WireError: the reader's errors, `truncated` when the
  // forwarding byte is missing, `trailingBytes` after it, invalid("session id length"), and the
  // host key's parse errors. A signature that does not verify is not an error: signatureValid is
  // false.
  static SessionBind parse(ByteView contents);

  friend bool operator==(const SessionBind&, const SessionBind&) = default;
};

}  // namespace quorvane

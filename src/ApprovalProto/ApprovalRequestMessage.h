#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ApprovalProto/ApprovalPurpose.h"
#include "ApprovalProto/ApprovalScope.h"
#include "Base/Bytes.h"

namespace quorvane {

// The request this machine seals to a paired device: which key is to sign what for whom.
struct ApprovalRequestMessage {
  Bytes requestID;         // unique per exchange
  Bytes macID;             // identity hash of the requesting machine (32 bytes)
  uint64_t createdAt = 0;  // milliseconds since 1970
  uint64_t expiresAt = 0;  // deadline, milliseconds since 1970
  std::string keyFingerprint;
  std::string keyName;
  ApprovalPurpose purpose;
  std::string appName;  // the program that asks
  bool appVerified = false;
  std::vector<std::string> chain;  // its parent processes, as display names
  std::string workingDirectory;
  std::string hint;  // free text shown to the approver
  Bytes dataHash;    // binds the answer to this request's data; echoed by the answer
  std::vector<qap::ApprovalScope> scopes;  // the scopes the approver may choose from

  // Binary form, all SSH wire types:
  //   uint32 version = 2, string requestID, string macID, uint64 createdAt, uint64 expiresAt,
  //   string keyFingerprint, string keyName,
  //   byte purpose tag, then for 0 (login): string hostKeyFingerprint, string hostName (each empty
  //     when absent), byte nameState (0...3), string user, byte forwarded (0/1);
  //     for 1 (signature): string namespace; for 2 (other): nothing,
  //   string appName, byte appVerified (0/1), uint32 count + strings of chain,
  //   string workingDirectory, string hint, string dataHash, uint32 count + bytes of scopes (0/1).
  // A present but empty host key fingerprint or host name therefore reads back as absent.
  Bytes encode() const;

  // QAPFailure unsupportedVersion for a version other than 2; malformed for a short buffer,
  // trailing bytes, an unknown tag or enumeration byte, a flag other than 0/1, text that is not
  // UTF-8, or a string over the wire limit.
  static ApprovalRequestMessage decode(ByteView bytes);

  friend bool operator==(const ApprovalRequestMessage&, const ApprovalRequestMessage&) = default;
};

}  // namespace quorvane

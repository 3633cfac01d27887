#pragma once

#include <string>

#include "ApprovalProto/ApprovalPurpose.h"
#include "ApprovalProto/ApprovalRequestMessage.h"
#include "ApprovalProto/DeviceIdentity.h"

namespace quorvane {

// A request from another computer in the words this computer's own approval prompt uses.

// "sign in to HOST", where HOST is the host name followed by " (name not confirmed)" when only
// the client named it, or " (WARNING: different host key than before)" when the name belongs to
// another host key, and "an unverified host" without a name; then " through a forwarded
// connection" for a forwarded login. "sign a Git commit", "sign data (NAMESPACE)" and "make an
// unknown signature" for the other purposes.
std::string requestAction(const ApprovalPurpose& purpose);

// How sure the host's name is: "confirmed", "name not confirmed", "WARNING: different host key
// than before", or "unknown"; empty for a purpose that is not a login.
std::string hostNameCertainty(const ApprovalPurpose& purpose);

// PROGRAM " for " ACTION " with key “" KEY "”".
std::string requestReason(const ApprovalRequestMessage& request);

// A short form of a paired party's identity for lists and for telling two parties of the same
// name apart: the first 8 bytes of its identity hash as hex, in four groups ("3f2a 9c1b 0d4e
// 7f61").
std::string identityFingerprint(const DeviceIdentity& identity);

}  // namespace quorvane

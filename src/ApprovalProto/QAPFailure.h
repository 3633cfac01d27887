#pragma once

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class QAPFailureKind {
  malformed,           // a buffer does not parse (fields, limits, trailing bytes, unknown bytes)
  decryptionFailed,    // the HPKE receiver cannot be set up, or the ciphertext does not open
  badSignature,        // the sender's signature over label and plaintext does not verify
  unknownDevice,       // no paired device opens the answer, or its deviceID is not the sender's
  notAllowedForKey,    // the answering device may not answer this request
  unknownRequest,      // the answer names a request that is not open
  alreadyAnswered,     // the answer names a request that was already answered
  hashMismatch,        // the answer's dataHash differs from the request's
  expired,             // the request's deadline has been reached
  clockSkew,           // the answer was decided too far in the receiver's future
  scopeNotOffered,     // the answer's scope is not one the request offered
  wrongMac,            // the message names another Mac
  unsupportedVersion,  // the message's version word is not the one this side speaks
};

// The error of the approval protocol. No case carries a payload: the kind says everything the
// caller records about a rejected message. The message is "approval protocol: " and the kind's
// name.
class QAPFailure : public KindedError<QAPFailure, QAPFailureKind> {
 public:
  static constexpr EnumNames<Kind, 13> kKindNames{
      "QAPFailure",
      {{{Kind::malformed, "malformed"},
        {Kind::decryptionFailed, "decryptionFailed"},
        {Kind::badSignature, "badSignature"},
        {Kind::unknownDevice, "unknownDevice"},
        {Kind::notAllowedForKey, "notAllowedForKey"},
        {Kind::unknownRequest, "unknownRequest"},
        {Kind::alreadyAnswered, "alreadyAnswered"},
        {Kind::hashMismatch, "hashMismatch"},
        {Kind::expired, "expired"},
        {Kind::clockSkew, "clockSkew"},
        {Kind::scopeNotOffered, "scopeNotOffered"},
        {Kind::wrongMac, "wrongMac"},
        {Kind::unsupportedVersion, "unsupportedVersion"}}}};

  explicit QAPFailure(Kind kind);
};

}  // namespace quorvane

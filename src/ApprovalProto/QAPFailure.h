#pragma once

#include <ostream>
#include <stdexcept>

namespace quorvane {

// The error of the approval protocol. No case carries a payload: the kind says everything the
// caller records about a rejected message.
class QAPFailure : public std::runtime_error {
 public:
  enum class Kind {
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

  explicit QAPFailure(Kind kind);

  Kind kind() const { return kind_; }

  friend bool operator==(const QAPFailure& a, const QAPFailure& b) { return a.kind_ == b.kind_; }
  friend std::ostream& operator<<(std::ostream& out, const QAPFailure& failure) {
    return out << failure.what();
  }

 private:
  Kind kind_;
};

// The case's name, as written above ("malformed", "decryptionFailed", ...).
const char* name(QAPFailure::Kind kind);

}  // namespace quorvane

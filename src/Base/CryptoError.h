#pragma once

#include <string>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class CryptoErrorKind {
  libraryFailure,  // an OpenSSL call failed; the message carries OpenSSL's error queue
};

// The error of the Crypto library. Only failures of the cryptographic library itself are thrown
// (allocation, an internal error); bad input to a verification is a false result, not an error.
class CryptoError : public KindedError<CryptoError, CryptoErrorKind> {
 public:
  static constexpr EnumNames<Kind, 1> kKindNames{"CryptoError",
                                                 {{{Kind::libraryFailure, "libraryFailure"}}}};

  static CryptoError libraryFailure(const std::string& operation);

 private:
  CryptoError(Kind kind, const std::string& message) : KindedError(kind, {}, message) {}
};

}  // namespace quorvane

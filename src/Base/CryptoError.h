#pragma once

#include <stdexcept>
#include <string>

namespace quorvane {

// The error of the Crypto library. Only failures of the cryptographic library itself are thrown
// (allocation, an internal error); bad input to a verification is a false result, not an error.
class CryptoError : public std::runtime_error {
 public:
  enum class Kind {
    libraryFailure,  // an OpenSSL call failed; the message carries OpenSSL's error queue
  };

  static CryptoError libraryFailure(const std::string& operation);

  Kind kind() const { return kind_; }

 private:
  CryptoError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}
  Kind kind_;
};

}  // namespace quorvane

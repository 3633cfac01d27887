#include "Crypto/PBKDF2.h"

#include <openssl/evp.h>

#include <climits>

#include "Base/Check.h"
#include "Base/CryptoError.h"
#include "Crypto/HashInternal.h"

namespace quorvane::crypto {

SecureBytes pbkdf2(HashAlgorithm hash, ByteView password, ByteView salt, uint32_t iterations,
                   size_t outputLength) {
  QUORVANE_CHECK(iterations >= 1 && iterations <= INT_MAX, "PBKDF2 needs 1 to INT_MAX iterations");
  QUORVANE_CHECK(outputLength >= 1 && outputLength <= INT_MAX, "PBKDF2 output is not empty");
  QUORVANE_CHECK(password.size() <= INT_MAX && salt.size() <= INT_MAX, "inputs fit in an int");
  SecureBytes out(outputLength);
  // OpenSSL reads a null password as the empty string only through an explicit length of 0.
  static const char kEmpty = 0;
  const char* passwordText =
      password.empty() ? &kEmpty : reinterpret_cast<const char*>(password.data());
  if (PKCS5_PBKDF2_HMAC(passwordText, static_cast<int>(password.size()), salt.data(),
                        static_cast<int>(salt.size()), static_cast<int>(iterations),
                        evpDigest(hash), static_cast<int>(outputLength), out.data()) != 1)
    throw CryptoError::libraryFailure("PKCS5_PBKDF2_HMAC");
  return out;
}

}  // namespace quorvane::crypto

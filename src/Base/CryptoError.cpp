#include "Base/CryptoError.h"

#include "Base/OpenSSLErrors.h"

namespace quorvane {

CryptoError CryptoError::libraryFailure(const std::string& operation) {
  std::string queue = drainOpenSSLErrors();
  return CryptoError(Kind::libraryFailure,
                     operation + " failed" + (queue.empty() ? "" : ": " + queue));
}

}  // namespace quorvane

#include "Base/OpenSSLErrors.h"

#include <openssl/err.h>

namespace quorvane {

std::string drainOpenSSLErrors() {
  std::string text;
  while (unsigned long code = ERR_get_error()) {
    char buffer[256];
    ERR_error_string_n(code, buffer, sizeof buffer);
    if (!text.empty()) text += "; ";
    text += buffer;
  }
  return text;
}

}  // namespace quorvane

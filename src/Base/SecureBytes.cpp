#include "Base/SecureBytes.h"

#include <openssl/crypto.h>

namespace quorvane {

void secureWipe(void* data, size_t size) {
  if (size > 0) OPENSSL_cleanse(data, size);
}

void secureWipe(Bytes& bytes) {
  secureWipe(bytes.data(), bytes.size());
  bytes.clear();
}

SecureBytes::SecureBytes(size_t size) : storage_(size, 0) {}

SecureBytes::SecureBytes(ByteView bytes) : storage_(bytes.begin(), bytes.end()) {}

SecureBytes SecureBytes::adopt(Bytes& source) {
  SecureBytes result{ByteView(source)};
  secureWipe(source);
  return result;
}

std::optional<SecureBytes> SecureBytes::readLine(std::istream& in) {
  SecureBytes line;
  bool readAny = false;
  for (int c = in.get(); c != std::char_traits<char>::eof(); c = in.get()) {
    readAny = true;
    if (c == '\n') return line;
    line.push_back(static_cast<uint8_t>(c));
  }
  if (!readAny) return std::nullopt;
  return line;
}

bool operator==(const SecureBytes& a, const SecureBytes& b) {
  if (a.size() != b.size()) return false;
  return a.empty() || CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace quorvane

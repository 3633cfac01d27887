#include "RelayServer/RelayCredentials.h"

#include <openssl/crypto.h>

#include <array>
#include <cctype>

#include "Base/Base64.h"
#include "Base/Random.h"
#include "Crypto/Hash.h"
#include "RelayServer/RelayLimits.h"

namespace quorvane::relay {
namespace {

constexpr size_t kCredentialBytes = 32;
constexpr size_t kMailboxIdBytes = 16;

// Standard base64 turned into the URL alphabet, without padding.
void toBase64URL(std::string& text) {
  while (!text.empty() && text.back() == '=') text.pop_back();
  for (char& c : text) {
    if (c == '+') c = '-';
    if (c == '/') c = '_';
  }
}

}  // namespace

SecureBytes newCredential() {
  SecureBytes random(kCredentialBytes);
  crypto::fillRandom(std::span<uint8_t>(random.data(), random.size()));
  std::string text = base64Encode(random.view(), Base64Padding::unpadded);
  toBase64URL(text);
  SecureBytes credential;
  credential.append(text);
  secureWipe(text.data(), text.size());
  return credential;
}

std::string newMailboxId() {
  std::string text = base64Encode(crypto::randomBytes(kMailboxIdBytes), Base64Padding::unpadded);
  toBase64URL(text);
  return text;
}

Bytes credentialHash(const SecureBytes& credential) { return crypto::sha256(credential.view()); }

bool sameCredentialHash(ByteView a, ByteView b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

std::optional<SecureBytes> bearerCredential(std::string_view headerValue) {
  constexpr std::string_view kScheme = "bearer ";
  if (headerValue.size() <= kScheme.size()) return std::nullopt;
  for (size_t i = 0; i < kScheme.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(headerValue[i])) != kScheme[i]) return std::nullopt;
  std::string_view token = headerValue.substr(kScheme.size());
  while (!token.empty() && token.front() == ' ') token.remove_prefix(1);
  while (!token.empty() && token.back() == ' ') token.remove_suffix(1);
  if (token.empty() || token.size() > kMaxCredentialLength) return std::nullopt;
  for (char c : token)
    if (c <= ' ' || c > '~') return std::nullopt;
  SecureBytes credential;
  credential.append(token);
  return credential;
}

bool isMailboxId(std::string_view text) {
  if (text.empty() || text.size() > kMaxMailboxIdLength) return false;
  for (char c : text)
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') return false;
  return true;
}

}  // namespace quorvane::relay

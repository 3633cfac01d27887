#include "Crypto/BcryptPBKDF.h"

#include <openssl/evp.h>

#include <array>
#include <cstring>
#include <memory>

#include "Base/CryptoError.h"
#include "Crypto/Blowfish.h"
#include "Crypto/BlowfishRounds.h"
#include "Crypto/OpenSSLHandles.h"

namespace quorvane::crypto {
namespace {

constexpr size_t kSHA512Size = 64;
constexpr size_t kHashSize = 32;  // one output block of the bcrypt hash
constexpr size_t kHashWords = kHashSize / 4;
constexpr char kMagicText[] = "OxychromaticBlowfishSwatDynamite";
static_assert(sizeof kMagicText - 1 == kHashSize);

using Digest = std::array<uint8_t, kSHA512Size>;
using Block = std::array<uint8_t, kHashSize>;
using MDPtr = std::unique_ptr<EVP_MD, OpenSSLDeleter<EVP_MD_free>>;

// SHA-512 of the concatenated parts, with one digest object reused across the derivation.
class SHA512Hasher {
 public:
  SHA512Hasher() : md_(EVP_MD_fetch(nullptr, "SHA512", nullptr)), context_(EVP_MD_CTX_new()) {
    if (!md_ || !context_) throw CryptoError::libraryFailure("SHA512");
  }

  void hash(std::initializer_list<ByteView> parts, Digest& out) {
    unsigned int length = 0;
    if (EVP_DigestInit_ex2(context_.get(), md_.get(), nullptr) != 1)
      throw CryptoError::libraryFailure("EVP_DigestInit_ex2");
    for (ByteView part : parts)
      if (EVP_DigestUpdate(context_.get(), part.data(), part.size()) != 1)
        throw CryptoError::libraryFailure("EVP_DigestUpdate");
    if (EVP_DigestFinal_ex(context_.get(), out.data(), &length) != 1 || length != kSHA512Size)
      throw CryptoError::libraryFailure("EVP_DigestFinal_ex");
  }

 private:
  MDPtr md_;
  EVPMDCtxPtr context_;
};

// The bcrypt hash of (password digest, salt digest) for `Lanes` salts at once: the expensive key
// schedule, then 64 encryptions of the magic text, written out as little-endian words.
template <size_t Lanes>
void bcryptHash(const Digest& passwordDigest, const Digest* const* saltDigests,
                Block* const* outputs) {
  Blowfish states[Lanes];
  Blowfish* lanes[Lanes];
  std::array<uint32_t, Blowfish::kPWords> saltWords[Lanes];
  const std::array<uint32_t, Blowfish::kPWords>* saltKeys[Lanes];
  const std::array<uint32_t, Blowfish::kPWords>* passwordKeys[Lanes];
  const auto passwordWords = keyWordStream(passwordDigest);
  for (size_t lane = 0; lane < Lanes; ++lane) {
    lanes[lane] = &states[lane];
    states[lane].expandState(*saltDigests[lane], passwordDigest);
    saltWords[lane] = keyWordStream(*saltDigests[lane]);
    saltKeys[lane] = &saltWords[lane];
    passwordKeys[lane] = &passwordWords;
  }
  for (int i = 0; i < 64; ++i) {
    blowfish_rounds::expandStates<Lanes>(lanes, saltKeys);
    blowfish_rounds::expandStates<Lanes>(lanes, passwordKeys);
  }

  const auto magic =
      keyWordStream(ByteView(reinterpret_cast<const uint8_t*>(kMagicText), kHashSize));
  uint32_t words[kHashWords][Lanes];
  for (size_t w = 0; w < kHashWords; ++w)
    for (size_t lane = 0; lane < Lanes; ++lane) words[w][lane] = magic[w];
  for (int i = 0; i < 64; ++i)
    for (size_t w = 0; w < kHashWords; w += 2)
      blowfish_rounds::encryptLanes<Lanes>(lanes, words[w], words[w + 1]);

  for (size_t lane = 0; lane < Lanes; ++lane)
    for (size_t w = 0; w < kHashWords; ++w)
      for (size_t b = 0; b < 4; ++b)
        (*outputs[lane])[4 * w + b] = static_cast<uint8_t>(words[w][lane] >> (8 * b));
  secureWipe(words, sizeof words);
  secureWipe(saltWords, sizeof saltWords);
}

// Runs the rounds of output blocks `firstCount` .. `firstCount + Lanes - 1` (1-based) and
// scatters their bytes into `key`.
template <size_t Lanes>
void deriveBlocks(SHA512Hasher& hasher, const Digest& passwordDigest, ByteView salt,
                  uint32_t rounds, uint32_t firstCount, size_t stride, size_t perBlock,
                  SecureBytes& key) {
  Digest saltDigest[Lanes];
  Block hashed[Lanes], accumulated[Lanes];
  const Digest* saltDigests[Lanes];
  Block* outputs[Lanes];
  for (size_t lane = 0; lane < Lanes; ++lane) {
    const uint32_t count = firstCount + static_cast<uint32_t>(lane);
    const uint8_t countBytes[4] = {static_cast<uint8_t>(count >> 24),
                                   static_cast<uint8_t>(count >> 16),
                                   static_cast<uint8_t>(count >> 8), static_cast<uint8_t>(count)};
    hasher.hash({salt, ByteView(countBytes, 4)}, saltDigest[lane]);
    saltDigests[lane] = &saltDigest[lane];
    outputs[lane] = &hashed[lane];
  }
  bcryptHash<Lanes>(passwordDigest, saltDigests, outputs);
  for (size_t lane = 0; lane < Lanes; ++lane) accumulated[lane] = hashed[lane];

  for (uint32_t round = 1; round < rounds; ++round) {
    for (size_t lane = 0; lane < Lanes; ++lane) hasher.hash({hashed[lane]}, saltDigest[lane]);
    bcryptHash<Lanes>(passwordDigest, saltDigests, outputs);
    for (size_t lane = 0; lane < Lanes; ++lane)
      for (size_t j = 0; j < kHashSize; ++j) accumulated[lane][j] ^= hashed[lane][j];
  }

  for (size_t lane = 0; lane < Lanes; ++lane) {
    const size_t column = firstCount + lane - 1;
    for (size_t i = 0; i < perBlock; ++i) {
      const size_t destination = i * stride + column;
      if (destination >= key.size()) break;
      key.data()[destination] = accumulated[lane][i];
    }
  }
  secureWipe(saltDigest, sizeof saltDigest);
  secureWipe(hashed, sizeof hashed);
  secureWipe(accumulated, sizeof accumulated);
}

}  // namespace

std::optional<SecureBytes> bcryptPBKDF(ByteView password, ByteView salt, uint32_t rounds,
                                       size_t outputLength) {
  if (rounds < 1 || password.empty() || salt.empty() || salt.size() > kBcryptPBKDFMaximumSalt ||
      outputLength == 0 || outputLength > kBcryptPBKDFMaximumOutput)
    return std::nullopt;

  // Block `count` supplies the bytes at count - 1, count - 1 + stride, ... of the output.
  const size_t stride = (outputLength + kHashSize - 1) / kHashSize;
  const size_t perBlock = (outputLength + stride - 1) / stride;

  SHA512Hasher hasher;
  Digest passwordDigest;
  hasher.hash({password}, passwordDigest);
  SecureBytes key(outputLength);
  uint32_t count = 1;
  for (; count + 1 <= stride; count += 2)
    deriveBlocks<2>(hasher, passwordDigest, salt, rounds, count, stride, perBlock, key);
  if (count <= stride)
    deriveBlocks<1>(hasher, passwordDigest, salt, rounds, count, stride, perBlock, key);
  secureWipe(passwordDigest.data(), passwordDigest.size());
  return key;
}

}  // namespace quorvane::crypto

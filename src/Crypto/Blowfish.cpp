#include "Crypto/Blowfish.h"

#include "Base/Check.h"
#include "Base/SecureBytes.h"
#include "Crypto/BlowfishRounds.h"

namespace quorvane::crypto {
namespace {

// The next big-endian word of `bytes` read as an endless cycle, starting at `position`.
uint32_t streamWord(ByteView bytes, size_t& position) {
  uint32_t word = 0;
  for (int i = 0; i < 4; ++i) {
    if (position >= bytes.size()) position = 0;
    word = (word << 8) | bytes[position++];
  }
  return word;
}

uint32_t loadBigEndian(const uint8_t* bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

void storeBigEndian(uint32_t word, uint8_t* bytes) {
  bytes[0] = static_cast<uint8_t>(word >> 24);
  bytes[1] = static_cast<uint8_t>(word >> 16);
  bytes[2] = static_cast<uint8_t>(word >> 8);
  bytes[3] = static_cast<uint8_t>(word);
}

}  // namespace

Blowfish::~Blowfish() {
  secureWipe(p.data(), sizeof p);
  secureWipe(s.data(), sizeof s);
}

std::array<uint32_t, Blowfish::kPWords> keyWordStream(ByteView key) {
  QUORVANE_CHECK(!key.empty(), "Blowfish keys are not empty");
  std::array<uint32_t, Blowfish::kPWords> words;
  size_t position = 0;
  for (uint32_t& word : words) word = streamWord(key, position);
  return words;
}

void Blowfish::expandState(ByteView salt, ByteView key) {
  const auto keyWords = keyWordStream(key);
  if (salt.empty()) {
    expandState(keyWords);
    return;
  }
  for (size_t i = 0; i < kPWords; ++i) p[i] ^= keyWords[i];
  size_t position = 0;
  uint32_t left = 0, right = 0;
  auto refill = [&](uint32_t* words, size_t count) {
    for (size_t i = 0; i < count; i += 2) {
      left ^= streamWord(salt, position);
      right ^= streamWord(salt, position);
      encrypt(left, right);
      words[i] = left;
      words[i + 1] = right;
    }
  };
  refill(p.data(), kPWords);
  refill(s.data(), kSWords);
}

void Blowfish::expandState(const std::array<uint32_t, kPWords>& keyWords) {
  Blowfish* self = this;
  const std::array<uint32_t, kPWords>* words = &keyWords;
  blowfish_rounds::expandStates<1>(&self, &words);
}

void Blowfish::encrypt(uint32_t& left, uint32_t& right) const {
  const Blowfish* self = this;
  blowfish_rounds::encryptLanes<1>(&self, &left, &right);
}

void Blowfish::decrypt(uint32_t& left, uint32_t& right) const {
  uint32_t l = left, r = right;
  l ^= p[17];
  for (int i = 16; i >= 1; i -= 2) {
    r ^= blowfish_rounds::f(s.data(), l) ^ p[i];
    l ^= blowfish_rounds::f(s.data(), r) ^ p[i - 1];
  }
  left = r ^ p[0];
  right = l;
}

void Blowfish::encryptBlock(uint8_t block[8]) const {
  uint32_t left = loadBigEndian(block), right = loadBigEndian(block + 4);
  encrypt(left, right);
  storeBigEndian(left, block);
  storeBigEndian(right, block + 4);
}

void Blowfish::decryptBlock(uint8_t block[8]) const {
  uint32_t left = loadBigEndian(block), right = loadBigEndian(block + 4);
  decrypt(left, right);
  storeBigEndian(left, block);
  storeBigEndian(right, block + 4);
}

}  // namespace quorvane::crypto

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "Base/Bytes.h"

namespace quorvane::crypto {

// The Blowfish block cipher (Schneier, 1993) as bcrypt uses it: the state is the 18-word P-array
// and the four 256-word S-boxes, kept as one contiguous array. A new instance holds the published
// initial state (the digits of pi); the key schedules below change it. An instance serves one key
// or one derivation; it wipes its state when it dies, since that state is derived from secrets.
//
// Keys and data are read as a cyclic stream of big-endian 32-bit words, so any key length from 1
// byte on works (the 56-byte nominal limit of Blowfish does not apply to bcrypt's 64-byte keys).
class Blowfish {
 public:
  static constexpr size_t kPWords = 18;
  static constexpr size_t kSWords = 4 * 256;
  static const std::array<uint32_t, kPWords> kInitialP;
  static const std::array<uint32_t, kSWords> kInitialS;

  Blowfish() : p(kInitialP), s(kInitialS) {}
  ~Blowfish();
  Blowfish(const Blowfish&) = delete;
  Blowfish& operator=(const Blowfish&) = delete;

  // The standard key schedule. REQUIRES: key is not empty.
  void setKey(ByteView key) { expandState({}, key); }

  // bcrypt's salted key schedule (EksBlowfishSetup's ExpandKey): the key is XORed into P, then the
  // cipher, fed the salt's words, re-encrypts itself into P and S. An empty salt gives the
  // standard key schedule. REQUIRES: key is not empty.
  void expandState(ByteView salt, ByteView key);

  // The same without salt for a key whose word stream is given: `keyWords` are the first 18 words
  // of the key's cyclic word stream (see keyWordStream).
  void expandState(const std::array<uint32_t, kPWords>& keyWords);

  void encrypt(uint32_t& left, uint32_t& right) const;
  void decrypt(uint32_t& left, uint32_t& right) const;

  // Eight bytes in place, big-endian words, as in the cipher's published test data.
  void encryptBlock(uint8_t block[8]) const;
  void decryptBlock(uint8_t block[8]) const;

  std::array<uint32_t, kPWords> p;
  std::array<uint32_t, kSWords> s;
};

// The first 18 words of `key`'s cyclic big-endian word stream. REQUIRES: key is not empty.
std::array<uint32_t, Blowfish::kPWords> keyWordStream(ByteView key);

}  // namespace quorvane::crypto

#pragma once

// The inner loops of Blowfish, written for several independent states ("lanes") at once. One
// encryption is a chain of 16 rounds that each wait for the previous one's table lookups; running
// two unrelated chains side by side lets the processor overlap them, which bcrypt's derivation of
// more than one output block uses. For use inside the Crypto library.
#include <array>
#include <cstddef>
#include <cstdint>

#include "Crypto/Blowfish.h"

namespace quorvane::crypto::blowfish_rounds {

inline uint32_t f(const uint32_t* s, uint32_t x) {
  return ((s[x >> 24] + s[256 + ((x >> 16) & 0xff)]) ^ s[512 + ((x >> 8) & 0xff)]) +
         s[768 + (x & 0xff)];
}

// Encrypts one block (left[i], right[i]) under each of `Lanes` states.
template <size_t Lanes>
inline void encryptLanes(const Blowfish* const* states, uint32_t* left, uint32_t* right) {
  uint32_t l[Lanes], r[Lanes];
  const uint32_t* p[Lanes];
  const uint32_t* s[Lanes];
#pragma GCC unroll 4
  for (size_t lane = 0; lane < Lanes; ++lane) {
    p[lane] = states[lane]->p.data();
    s[lane] = states[lane]->s.data();
    l[lane] = left[lane] ^ p[lane][0];
    r[lane] = right[lane];
  }
#pragma GCC unroll 16
  for (int round = 1; round <= 16; round += 2) {
#pragma GCC unroll 4
    for (size_t lane = 0; lane < Lanes; ++lane) r[lane] ^= f(s[lane], l[lane]) ^ p[lane][round];
#pragma GCC unroll 4
    for (size_t lane = 0; lane < Lanes; ++lane) l[lane] ^= f(s[lane], r[lane]) ^ p[lane][round + 1];
  }
#pragma GCC unroll 4
  for (size_t lane = 0; lane < Lanes; ++lane) {
    left[lane] = r[lane] ^ p[lane][17];
    right[lane] = l[lane];
  }
}

// The unsalted key schedule on each state with its own key words: XOR the words into P, then
// replace P and the S-boxes, pair by pair, with the chained encryption of zero.
template <size_t Lanes>
inline void expandStates(Blowfish* const* states,
                         const std::array<uint32_t, Blowfish::kPWords>* const* keyWords) {
  uint32_t left[Lanes] = {}, right[Lanes] = {};
  for (size_t lane = 0; lane < Lanes; ++lane)
    for (size_t i = 0; i < Blowfish::kPWords; ++i) states[lane]->p[i] ^= (*keyWords[lane])[i];
  for (size_t i = 0; i < Blowfish::kPWords; i += 2) {
    encryptLanes<Lanes>(states, left, right);
    for (size_t lane = 0; lane < Lanes; ++lane) {
      states[lane]->p[i] = left[lane];
      states[lane]->p[i + 1] = right[lane];
    }
  }
  for (size_t i = 0; i < Blowfish::kSWords; i += 2) {
    encryptLanes<Lanes>(states, left, right);
    for (size_t lane = 0; lane < Lanes; ++lane) {
      states[lane]->s[i] = left[lane];
      states[lane]->s[i + 1] = right[lane];
    }
  }
}

}  // namespace quorvane::crypto::blowfish_rounds

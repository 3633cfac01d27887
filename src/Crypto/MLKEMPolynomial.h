#pragma once

// The arithmetic of ML-KEM (FIPS 203) for use inside the Crypto library: polynomials with 256
// coefficients modulo q = 3329, the number-theoretic transform, sampling and the byte encodings.
//
// Everything that may touch secrets runs in constant time: no branch and no memory index depends
// on a coefficient. Reductions use multiplications and masks instead of division or comparisons.
// Only sampleNTT branches on its input, which is public (it expands the public matrix).

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane::crypto::mlkem {

inline constexpr uint16_t kQ = 3329;
inline constexpr size_t kN = 256;
// ByteEncode_12 of one polynomial.
inline constexpr size_t kEncodedPolynomialSize = 384;

// Coefficients are always fully reduced: 0 <= c < q.
struct Polynomial {
  std::array<uint16_t, kN> c{};
};

// A value holding secrets that is wiped when it goes out of scope.
template <typename T>
struct Scrubbed {
  T value{};
  Scrubbed() = default;
  Scrubbed(const Scrubbed&) = delete;
  Scrubbed& operator=(const Scrubbed&) = delete;
  ~Scrubbed() { secureWipe(&value, sizeof value); }
};

// Forward and inverse NTT in place (FIPS 203 algorithms 9 and 10).
void ntt(Polynomial& f);
void inverseNTT(Polynomial& f);

// Sum over k of MultiplyNTTs(a[k], b[k]) (algorithm 11). REQUIRES: a.size() == b.size() <= 3.
Polynomial multiplyAccumulate(std::span<const Polynomial> a, std::span<const Polynomial> b);

// f += g and f -= g, coefficient-wise modulo q.
void add(Polynomial& f, const Polynomial& g);
void subtract(Polynomial& f, const Polynomial& g);

// SampleNTT (algorithm 7) from SHAKE128(rho || first || second). Branches on its (public) input.
Polynomial sampleNTT(ByteView rho, uint8_t first, uint8_t second);

// SamplePolyCBD_2 (algorithm 8) of PRF_2(sigma, n) = SHAKE256(sigma || n, 128 bytes).
Polynomial sampleCBD2(ByteView sigma, uint8_t n);

// ByteEncode_12 into 384 bytes.
void encode12(const Polynomial& f, std::span<uint8_t, kEncodedPolynomialSize> out);
// ByteDecode_12 of 384 bytes with every value reduced modulo q.
Polynomial decode12(std::span<const uint8_t, kEncodedPolynomialSize> bytes);
// ByteDecode_12 that refuses (false) when a value is q or more: the modulus check of an
// encapsulation key. Runs on public data.
bool decode12Strict(std::span<const uint8_t, kEncodedPolynomialSize> bytes, Polynomial& out);

// ByteEncode_d(Compress_d(f)) into 32 * d bytes, and Decompress_d(ByteDecode_d(bytes)).
// REQUIRES: d in 1...11 and the buffer size 32 * d.
void compressEncode(const Polynomial& f, unsigned d, std::span<uint8_t> out);
Polynomial decodeDecompress(std::span<const uint8_t> bytes, unsigned d);

// Tells a memory checker that `data` no longer counts as secret (it is published, as rho in an
// encapsulation key); a no-op unless the program runs under valgrind.
void declassify(const void* data, size_t size);

}  // namespace quorvane::crypto::mlkem

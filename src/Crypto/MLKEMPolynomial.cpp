#include "Crypto/MLKEMPolynomial.h"

#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#define QUORVANE_HAVE_MEMCHECK 1
#endif

#include "Base/Check.h"
#include "Crypto/SHA3.h"

namespace quorvane::crypto::mlkem {
namespace {

// floor(2^32 / q), for Barrett reduction of 32-bit values.
constexpr uint64_t kBarrettMultiplier = (uint64_t{1} << 32) / kQ;
// 128^-1 mod q, the scale of the inverse NTT.
constexpr uint32_t kInverse128 = 3303;
static_assert(128 * kInverse128 % kQ == 1);

// r - q when r >= q, else r, for r < 2q; the choice is a mask, not a branch.
constexpr uint16_t conditionalSubtractQ(uint32_t r) {
  const uint32_t t = r - kQ;             // wraps around when r < q
  const uint32_t keep = 0u - (t >> 31);  // all ones exactly when it wrapped
  return static_cast<uint16_t>(t + (keep & kQ));
}

// x mod q for any 32-bit x. The estimated quotient is floor(x/q) or one less, so one conditional
// subtraction finishes.
constexpr uint16_t reduce(uint32_t x) {
  const uint32_t quotient = static_cast<uint32_t>((x * kBarrettMultiplier) >> 32);
  return conditionalSubtractQ(x - quotient * kQ);
}

constexpr uint16_t power17(unsigned exponent) {
  uint32_t result = 1;
  for (unsigned i = 0; i < exponent; ++i) result = result * 17 % kQ;
  return static_cast<uint16_t>(result);
}

constexpr unsigned bitReverse7(unsigned i) {
  unsigned reversed = 0;
  for (unsigned bit = 0; bit < 7; ++bit) reversed |= ((i >> bit) & 1) << (6 - bit);
  return reversed;
}

// zeta^BitRev7(i) and zeta^(2 BitRev7(i) + 1) for the primitive 256th root of unity zeta = 17.
constexpr std::array<uint16_t, 128> kZetas = [] {
  std::array<uint16_t, 128> table{};
  for (unsigned i = 0; i < 128; ++i) table[i] = power17(bitReverse7(i));
  return table;
}();
constexpr std::array<uint16_t, 128> kGammas = [] {
  std::array<uint16_t, 128> table{};
  for (unsigned i = 0; i < 128; ++i) table[i] = power17(2 * bitReverse7(i) + 1);
  return table;
}();
static_assert(kZetas[1] == 1729 && kGammas[0] == 17 && kGammas[1] == 3312 && kGammas[127] == 1175);

// Compress_d(x) = round(2^d x / q) mod 2^d for 0 <= x < q. The division by q is a multiplication
// by ceil(2^35 / q) and a shift, exact for every numerator below 2^23 (checked below).
constexpr uint64_t kDivisionMultiplier = ((uint64_t{1} << 35) + kQ - 1) / kQ;
constexpr uint16_t compress(uint16_t x, unsigned d) {
  const uint64_t numerator = (uint64_t{x} << d) + kQ / 2;
  return static_cast<uint16_t>(((numerator * kDivisionMultiplier) >> 35) & ((1u << d) - 1));
}
constexpr bool compressIsExact(unsigned d) {
  for (uint32_t x = 0; x < kQ; ++x) {
    if (compress(static_cast<uint16_t>(x), d) != (((x << d) + kQ / 2) / kQ) % (1u << d))
      return false;
  }
  return true;
}
static_assert(compressIsExact(1) && compressIsExact(4) && compressIsExact(10) &&
              compressIsExact(11));

// Decompress_d(y) = round(q y / 2^d).
constexpr uint16_t decompress(uint16_t y, unsigned d) {
  return static_cast<uint16_t>((uint32_t{y} * kQ + (1u << (d - 1))) >> d);
}

// Packs 256 values of `bits` bits each, least significant bit first (ByteEncode_d).
void packBits(const std::array<uint16_t, kN>& values, unsigned bits, uint8_t* out) {
  uint32_t buffer = 0;
  unsigned buffered = 0;
  for (uint16_t value : values) {
    buffer |= uint32_t{value} << buffered;
    buffered += bits;
    while (buffered >= 8) {
      *out++ = static_cast<uint8_t>(buffer);
      buffer >>= 8;
      buffered -= 8;
    }
  }
}

// The inverse of packBits (ByteDecode_d without the reduction).
void unpackBits(const uint8_t* in, unsigned bits, std::array<uint16_t, kN>& values) {
  uint32_t buffer = 0;
  unsigned buffered = 0;
  const uint32_t mask = (1u << bits) - 1;
  for (uint16_t& value : values) {
    while (buffered < bits) {
      buffer |= uint32_t{*in++} << buffered;
      buffered += 8;
    }
    value = static_cast<uint16_t>(buffer & mask);
    buffer >>= bits;
    buffered -= bits;
  }
}

}  // namespace

void ntt(Polynomial& f) {
  unsigned k = 1;
  for (size_t length = 128; length >= 2; length /= 2) {
    for (size_t start = 0; start < kN; start += 2 * length) {
      const uint32_t zeta = kZetas[k++];
      for (size_t j = start; j < start + length; ++j) {
        const uint16_t t = reduce(zeta * f.c[j + length]);
        f.c[j + length] = conditionalSubtractQ(uint32_t{f.c[j]} + kQ - t);
        f.c[j] = conditionalSubtractQ(uint32_t{f.c[j]} + t);
      }
    }
  }
}

void inverseNTT(Polynomial& f) {
  unsigned k = 127;
  for (size_t length = 2; length <= 128; length *= 2) {
    for (size_t start = 0; start < kN; start += 2 * length) {
      const uint32_t zeta = kZetas[k--];
      for (size_t j = start; j < start + length; ++j) {
        const uint16_t t = f.c[j];
        f.c[j] = conditionalSubtractQ(uint32_t{t} + f.c[j + length]);
        f.c[j + length] = reduce(zeta * (uint32_t{f.c[j + length]} + kQ - t));
      }
    }
  }
  for (uint16_t& coefficient : f.c) coefficient = reduce(coefficient * kInverse128);
}

Polynomial multiplyAccumulate(std::span<const Polynomial> a, std::span<const Polynomial> b) {
  // Each product is below q^2, so up to three pairs of two products each sum below 2^32 and are
  // reduced once at the end.
  QUORVANE_CHECK(a.size() == b.size() && a.size() <= 3, "at most three polynomial pairs");
  Polynomial h;
  for (size_t i = 0; i < kN / 2; ++i) {
    uint32_t even = 0, odd = 0;
    for (size_t k = 0; k < a.size(); ++k) {
      const uint32_t a0 = a[k].c[2 * i], a1 = a[k].c[2 * i + 1];
      const uint32_t b0 = b[k].c[2 * i], b1 = b[k].c[2 * i + 1];
      even += a0 * b0 + uint32_t{reduce(a1 * b1)} * kGammas[i];
      odd += a0 * b1 + a1 * b0;
    }
    h.c[2 * i] = reduce(even);
    h.c[2 * i + 1] = reduce(odd);
  }
  return h;
}

void add(Polynomial& f, const Polynomial& g) {
  for (size_t i = 0; i < kN; ++i) f.c[i] = conditionalSubtractQ(uint32_t{f.c[i]} + g.c[i]);
}

void subtract(Polynomial& f, const Polynomial& g) {
  for (size_t i = 0; i < kN; ++i) f.c[i] = conditionalSubtractQ(uint32_t{f.c[i]} + kQ - g.c[i]);
}

Polynomial sampleNTT(ByteView rho, uint8_t first, uint8_t second) {
  const uint8_t indices[2] = {first, second};
  // Three SHAKE128 blocks fill a polynomial about 99% of the time; otherwise the stream is drawn
  // again, twice as long. A longer SHAKE output starts with the shorter one, so drawing again from
  // the start continues the same stream. Already five blocks (280 rounds of three bytes) fail with
  // probability below 2^-261 (FIPS 203 appendix B), so the second draw of six all but always
  // suffices.
  constexpr size_t kFirstDraw = 3 * 168;
  constexpr size_t kLongestDraw = 64 * 1024;
  Polynomial a;
  for (size_t length = kFirstDraw;; length *= 2) {
    QUORVANE_CHECK(length <= kLongestDraw, "SHAKE128 output failed to fill a polynomial");
    Bytes stream(length);
    sha3(SHA3Function::shake128, {rho, ByteView(indices)}, stream);
    size_t count = 0;
    for (size_t at = 0; at + 3 <= length && count < kN; at += 3) {
      const uint16_t d1 = static_cast<uint16_t>(stream[at] | (stream[at + 1] & 0x0f) << 8);
      const uint16_t d2 = static_cast<uint16_t>(stream[at + 1] >> 4 | stream[at + 2] << 4);
      if (d1 < kQ) a.c[count++] = d1;
      if (d2 < kQ && count < kN) a.c[count++] = d2;
    }
    if (count == kN) return a;
  }
}

Polynomial sampleCBD2(ByteView sigma, uint8_t n) {
  Scrubbed<std::array<uint8_t, 128>> prf;
  sha3(SHA3Function::shake256, {sigma, ByteView(&n, 1)}, prf.value);
  Polynomial f;
  for (size_t i = 0; i < kN; ++i) {
    const uint32_t bits = prf.value[i / 2] >> (4 * (i % 2));
    const uint32_t x = (bits & 1) + ((bits >> 1) & 1);
    const uint32_t y = ((bits >> 2) & 1) + ((bits >> 3) & 1);
    f.c[i] = conditionalSubtractQ(x + kQ - y);
  }
  return f;
}

void encode12(const Polynomial& f, std::span<uint8_t, kEncodedPolynomialSize> out) {
  packBits(f.c, 12, out.data());
}

Polynomial decode12(std::span<const uint8_t, kEncodedPolynomialSize> bytes) {
  Polynomial f;
  unpackBits(bytes.data(), 12, f.c);
  for (uint16_t& coefficient : f.c) coefficient = conditionalSubtractQ(coefficient);
  return f;
}

bool decode12Strict(std::span<const uint8_t, kEncodedPolynomialSize> bytes, Polynomial& out) {
  unpackBits(bytes.data(), 12, out.c);
  uint16_t tooLarge = 0;
  for (uint16_t coefficient : out.c) tooLarge |= static_cast<uint16_t>(coefficient >= kQ);
  return tooLarge == 0;
}

void compressEncode(const Polynomial& f, unsigned d, std::span<uint8_t> out) {
  QUORVANE_CHECK(d >= 1 && d <= 11 && out.size() == 32 * d, "Compress_d with 1 <= d <= 11");
  Scrubbed<std::array<uint16_t, kN>> compressed;
  for (size_t i = 0; i < kN; ++i) compressed.value[i] = compress(f.c[i], d);
  packBits(compressed.value, d, out.data());
}

Polynomial decodeDecompress(std::span<const uint8_t> bytes, unsigned d) {
  QUORVANE_CHECK(d >= 1 && d <= 11 && bytes.size() == 32 * d, "Decompress_d with 1 <= d <= 11");
  Polynomial f;
  unpackBits(bytes.data(), d, f.c);
  for (uint16_t& coefficient : f.c) coefficient = decompress(coefficient, d);
  return f;
}

void declassify([[maybe_unused]] const void* data, [[maybe_unused]] size_t size) {
#ifdef QUORVANE_HAVE_MEMCHECK
  (void)VALGRIND_MAKE_MEM_DEFINED(data, size);
#endif
}

}  // namespace quorvane::crypto::mlkem

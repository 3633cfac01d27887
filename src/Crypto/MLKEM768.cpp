#include "Crypto/MLKEM768.h"

#include <algorithm>
#include <array>

#include "Base/Check.h"
#include "Base/Random.h"
#include "Crypto/MLKEMPolynomial.h"
#include "Crypto/SHA3.h"

namespace quorvane::crypto {
namespace {

using mlkem::kEncodedPolynomialSize;
using mlkem::Polynomial;
using mlkem::Scrubbed;

constexpr size_t kK = 3;
constexpr unsigned kDU = 10;
constexpr unsigned kDV = 4;

// Layouts. Encapsulation key: ByteEncode_12(t) || rho. Decapsulation key: ByteEncode_12(s) || ek
// || H(ek) || z. Ciphertext: c1 (k polynomials of du bits) || c2 (one of dv bits).
constexpr size_t kVectorSize = kK * kEncodedPolynomialSize;  // 1152
constexpr size_t kRhoOffset = kVectorSize;
constexpr size_t kEKOffset = kVectorSize;
constexpr size_t kHashOffset = kEKOffset + kMLKEM768EncapsulationKeySize;
constexpr size_t kZOffset = kHashOffset + 32;
constexpr size_t kC1PolynomialSize = 32 * kDU;
constexpr size_t kC2Offset = kK * kC1PolynomialSize;
static_assert(kZOffset + 32 == kMLKEM768DecapsulationKeySize);
static_assert(kC2Offset + 32 * kDV == kMLKEM768CiphertextSize);

using Vector = std::array<Polynomial, kK>;
using Matrix = std::array<Vector, kK>;

std::span<const uint8_t, kEncodedPolynomialSize> polynomialBytes(const uint8_t* vector, size_t i) {
  return std::span<const uint8_t, kEncodedPolynomialSize>(vector + i * kEncodedPolynomialSize,
                                                          kEncodedPolynomialSize);
}

std::span<uint8_t, kEncodedPolynomialSize> polynomialBytes(uint8_t* vector, size_t i) {
  return std::span<uint8_t, kEncodedPolynomialSize>(vector + i * kEncodedPolynomialSize,
                                                    kEncodedPolynomialSize);
}

// The public matrix A (entry i, j from rho || j || i), or its transpose.
Matrix sampleMatrix(ByteView rho, bool transposed) {
  Matrix a;
  for (uint8_t i = 0; i < kK; ++i) {
    for (uint8_t j = 0; j < kK; ++j)
      a[i][j] = transposed ? mlkem::sampleNTT(rho, i, j) : mlkem::sampleNTT(rho, j, i);
  }
  return a;
}

// The vector t of an encapsulation key, refusing coefficients of q or more (the modulus check).
bool decodeEncapsulationKey(ByteView ek, Vector& t) {
  bool reduced = true;
  for (size_t i = 0; i < kK; ++i)
    reduced &= mlkem::decode12Strict(polynomialBytes(ek.data(), i), t[i]);
  return reduced;
}

// K-PKE.KeyGen (algorithm 13): writes the 1184-byte encapsulation key and the 1152-byte
// ByteEncode_12(s).
void pkeKeyGen(ByteView d, uint8_t* ek, uint8_t* encodedS) {
  Scrubbed<std::array<uint8_t, 64>> rhoSigma;  // (rho, sigma) = G(d || k)
  const uint8_t k = kK;
  sha3(SHA3Function::sha3_512, {d, ByteView(&k, 1)}, rhoSigma.value);
  const ByteView rho(rhoSigma.value.data(), 32);
  const ByteView sigma(rhoSigma.value.data() + 32, 32);
  mlkem::declassify(rho.data(), rho.size());  // rho is published in the key

  const Matrix a = sampleMatrix(rho, false);
  Scrubbed<Vector> s, e;
  for (uint8_t i = 0; i < kK; ++i) s.value[i] = mlkem::sampleCBD2(sigma, i);
  for (uint8_t i = 0; i < kK; ++i) e.value[i] = mlkem::sampleCBD2(sigma, kK + i);
  for (size_t i = 0; i < kK; ++i) {
    mlkem::ntt(s.value[i]);
    mlkem::ntt(e.value[i]);
  }
  for (size_t i = 0; i < kK; ++i) {
    Scrubbed<Polynomial> t;
    t.value = mlkem::multiplyAccumulate(a[i], s.value);
    mlkem::add(t.value, e.value[i]);
    mlkem::encode12(t.value, polynomialBytes(ek, i));
    mlkem::encode12(s.value[i], polynomialBytes(encodedS, i));
  }
  std::copy(rho.begin(), rho.end(), ek + kRhoOffset);
}

// K-PKE.Encrypt (algorithm 14) of the 32-byte message m with randomness r into `ciphertext`.
void pkeEncrypt(const Vector& t, ByteView rho, ByteView m, ByteView r, uint8_t* ciphertext) {
  const Matrix aTransposed = sampleMatrix(rho, true);
  Scrubbed<Vector> y, e1, u;
  Scrubbed<Polynomial> e2, mu, v;
  for (uint8_t i = 0; i < kK; ++i) y.value[i] = mlkem::sampleCBD2(r, i);
  for (uint8_t i = 0; i < kK; ++i) e1.value[i] = mlkem::sampleCBD2(r, kK + i);
  e2.value = mlkem::sampleCBD2(r, 2 * kK);
  for (Polynomial& each : y.value) mlkem::ntt(each);

  for (size_t i = 0; i < kK; ++i) {
    u.value[i] = mlkem::multiplyAccumulate(aTransposed[i], y.value);
    mlkem::inverseNTT(u.value[i]);
    mlkem::add(u.value[i], e1.value[i]);
    mlkem::compressEncode(u.value[i], kDU,
                          std::span(ciphertext + i * kC1PolynomialSize, kC1PolynomialSize));
  }
  mu.value = mlkem::decodeDecompress(m, 1);
  v.value = mlkem::multiplyAccumulate(t, y.value);
  mlkem::inverseNTT(v.value);
  mlkem::add(v.value, e2.value);
  mlkem::add(v.value, mu.value);
  mlkem::compressEncode(v.value, kDV, std::span(ciphertext + kC2Offset, 32 * kDV));
}

// K-PKE.Decrypt (algorithm 15): the 32-byte message of `ciphertext` under ByteEncode_12(s).
void pkeDecrypt(const uint8_t* encodedS, ByteView ciphertext, uint8_t* m) {
  Scrubbed<Vector> s, u;
  Scrubbed<Polynomial> w, v;
  for (size_t i = 0; i < kK; ++i) {
    s.value[i] = mlkem::decode12(polynomialBytes(encodedS, i));
    u.value[i] =
        mlkem::decodeDecompress(ciphertext.subspan(i * kC1PolynomialSize, kC1PolynomialSize), kDU);
    mlkem::ntt(u.value[i]);
  }
  v.value = mlkem::decodeDecompress(ciphertext.subspan(kC2Offset), kDV);
  w.value = mlkem::multiplyAccumulate(s.value, u.value);
  mlkem::inverseNTT(w.value);
  Polynomial& difference = v.value;  // v - NTT^-1(s . u)
  mlkem::subtract(difference, w.value);
  mlkem::compressEncode(difference, 1, std::span(m, 32));
}

// Keeps the compiler from turning mask arithmetic on `value` back into a branch.
inline uint8_t valueBarrier(uint8_t value) {
  __asm__("" : "+r"(value));
  return value;
}

// ML-KEM.Encaps_internal after the checks: (K, r) = G(m || H(ek)), c = K-PKE.Encrypt(ek, m, r).
MLKEM768Encapsulation encapsulateChecked(ByteView ek, const Vector& t, ByteView m) {
  std::array<uint8_t, 32> ekHash;
  sha3(SHA3Function::sha3_256, {ek}, ekHash);
  Scrubbed<std::array<uint8_t, 64>> kr;
  sha3(SHA3Function::sha3_512, {m, ekHash}, kr.value);
  MLKEM768Encapsulation result{Bytes(kMLKEM768CiphertextSize),
                               SecureBytes(ByteView(kr.value).first(32))};
  pkeEncrypt(t, ek.subspan(kRhoOffset), m, ByteView(kr.value).subspan(32),
             result.ciphertext.data());
  return result;
}

}  // namespace

std::optional<MLKEM768KeyPair> mlkem768KeyPairFromSeed(ByteView seed) {
  if (seed.size() != kMLKEMSeedSize) return std::nullopt;
  const ByteView d = seed.first(32), z = seed.subspan(32);
  MLKEM768KeyPair pair{Bytes(kMLKEM768EncapsulationKeySize),
                       SecureBytes(kMLKEM768DecapsulationKeySize)};
  uint8_t* dk = pair.decapsulationKey.data();
  pkeKeyGen(d, pair.encapsulationKey.data(), dk);
  std::copy(pair.encapsulationKey.begin(), pair.encapsulationKey.end(), dk + kEKOffset);
  sha3(SHA3Function::sha3_256, {pair.encapsulationKey}, std::span(dk + kHashOffset, 32));
  std::copy(z.begin(), z.end(), dk + kZOffset);
  return pair;
}

MLKEM768KeyPair mlkem768GenerateKeyPair() {
  SecureBytes seed(kMLKEMSeedSize);
  fillRandom(std::span(seed.data(), seed.size()));
  return *mlkem768KeyPairFromSeed(seed.view());
}

bool mlkem768CheckEncapsulationKey(ByteView encapsulationKey) {
  Vector t;
  return encapsulationKey.size() == kMLKEM768EncapsulationKeySize &&
         decodeEncapsulationKey(encapsulationKey, t);
}

std::optional<MLKEM768Encapsulation> mlkem768EncapsulateDerand(ByteView encapsulationKey,
                                                               ByteView m) {
  QUORVANE_CHECK(m.size() == kMLKEMMessageSize, "the ML-KEM message m is 32 bytes");
  Vector t;
  if (encapsulationKey.size() != kMLKEM768EncapsulationKeySize ||
      !decodeEncapsulationKey(encapsulationKey, t))
    return std::nullopt;
  return encapsulateChecked(encapsulationKey, t, m);
}

std::optional<MLKEM768Encapsulation> mlkem768Encapsulate(ByteView encapsulationKey) {
  SecureBytes m(kMLKEMMessageSize);
  fillRandom(std::span(m.data(), m.size()));
  return mlkem768EncapsulateDerand(encapsulationKey, m.view());
}

bool mlkem768CheckDecapsulationKey(ByteView decapsulationKey) {
  if (decapsulationKey.size() != kMLKEM768DecapsulationKeySize) return false;
  std::array<uint8_t, 32> hash;
  sha3(SHA3Function::sha3_256, {decapsulationKey.subspan(kEKOffset, kMLKEM768EncapsulationKeySize)},
       hash);
  return std::equal(hash.begin(), hash.end(), decapsulationKey.begin() + kHashOffset);
}

std::optional<SecureBytes> mlkem768Decapsulate(ByteView decapsulationKey, ByteView ciphertext) {
  if (ciphertext.size() != kMLKEM768CiphertextSize ||
      !mlkem768CheckDecapsulationKey(decapsulationKey))
    return std::nullopt;
  const ByteView ek = decapsulationKey.subspan(kEKOffset, kMLKEM768EncapsulationKeySize);
  const ByteView ekHash = decapsulationKey.subspan(kHashOffset, 32);
  const ByteView z = decapsulationKey.subspan(kZOffset, 32);

  Scrubbed<std::array<uint8_t, 32>> mPrime;
  pkeDecrypt(decapsulationKey.data(), ciphertext, mPrime.value.data());
  Scrubbed<std::array<uint8_t, 64>> kr;  // (K', r') = G(m' || h)
  sha3(SHA3Function::sha3_512, {mPrime.value, ekHash}, kr.value);
  Scrubbed<std::array<uint8_t, 32>> rejection;  // K-bar = J(z || c)
  sha3(SHA3Function::shake256, {z, ciphertext}, rejection.value);

  // The key inside a decapsulation key is not re-checked for reduced coefficients; decode12
  // reduces, as ByteDecode_12 does.
  Vector t;
  for (size_t i = 0; i < kK; ++i) t[i] = mlkem::decode12(polynomialBytes(ek.data(), i));
  Bytes reencrypted(kMLKEM768CiphertextSize);
  pkeEncrypt(t, ek.subspan(kRhoOffset), mPrime.value, ByteView(kr.value).subspan(32),
             reencrypted.data());

  // K' when the ciphertexts are equal, else K-bar: compared and chosen with masks, so neither
  // the time nor the memory accesses tell which.
  uint8_t difference = 0;
  for (size_t i = 0; i < kMLKEM768CiphertextSize; ++i)
    difference |= static_cast<uint8_t>(ciphertext[i] ^ reencrypted[i]);
  const uint8_t equal =
      valueBarrier(static_cast<uint8_t>((static_cast<uint32_t>(difference) - 1) >> 8));
  SecureBytes secret(kMLKEMSharedSecretSize);
  for (size_t i = 0; i < kMLKEMSharedSecretSize; ++i)
    secret.data()[i] = static_cast<uint8_t>((kr.value[i] & equal) |
                                            (rejection.value[i] & static_cast<uint8_t>(~equal)));
  secureWipe(reencrypted);
  return secret;
}

}  // namespace quorvane::crypto

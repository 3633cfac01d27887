#include "KeyImport/RSAComponents.h"

#include <openssl/bn.h>

#include <memory>

#include "Base/CryptoError.h"
#include "Crypto/OpenSSLHandles.h"
#include "KeyImport/KeyImportError.h"
#include "SSHWire/SignatureVerification.h"

namespace quorvane {
namespace {

constexpr std::string_view kConsistencyText = "quorvane import consistency check";

SecretBIGNUMPtr number(ByteView magnitude) {
  SecretBIGNUMPtr result(
      BN_bin2bn(magnitude.data(), static_cast<int>(magnitude.size()), BN_secure_new()));
  if (!result) throw CryptoError::libraryFailure("BN_bin2bn");
  BN_set_flags(result.get(), BN_FLG_CONSTTIME);
  return result;
}

SecureBytes magnitudeOf(const BIGNUM* value) {
  SecureBytes out(static_cast<size_t>(BN_num_bytes(value)));
  BN_bn2bin(value, out.data());
  return out;
}

// DER: an INTEGER's length and contents for a non-negative magnitude.
size_t integerContentLength(ByteView magnitude) {
  size_t start = 0;
  while (start < magnitude.size() && magnitude[start] == 0) ++start;
  if (start == magnitude.size()) return 1;
  return magnitude.size() - start + ((magnitude[start] & 0x80) ? 1 : 0);
}

size_t lengthOfLength(size_t length) {
  if (length < 0x80) return 1;
  size_t bytes = 0;
  for (size_t rest = length; rest > 0; rest >>= 8) ++bytes;
  return 1 + bytes;
}

class DERWriter {
 public:
  explicit DERWriter(SecureBytes& out) : out_(out) {}

  void header(uint8_t tag, size_t length) {
    put(tag);
    if (length < 0x80) {
      put(static_cast<uint8_t>(length));
      return;
    }
    const size_t count = lengthOfLength(length) - 1;
    put(static_cast<uint8_t>(0x80 | count));
    for (size_t i = count; i-- > 0;) put(static_cast<uint8_t>(length >> (8 * i)));
  }

  void integer(ByteView magnitude) {
    size_t start = 0;
    while (start < magnitude.size() && magnitude[start] == 0) ++start;
    header(0x02, integerContentLength(magnitude));
    if (start == magnitude.size() || (magnitude[start] & 0x80)) put(0);
    for (size_t i = start; i < magnitude.size(); ++i) put(magnitude[i]);
  }

  size_t written() const { return position_; }

 private:
  void put(uint8_t byte) { out_.data()[position_++] = byte; }
  SecureBytes& out_;
  size_t position_ = 0;
};

}  // namespace

int bitLength(ByteView magnitude) {
  size_t start = 0;
  while (start < magnitude.size() && magnitude[start] == 0) ++start;
  if (start == magnitude.size()) return 0;
  int bits = static_cast<int>(8 * (magnitude.size() - start - 1));
  for (uint8_t top = magnitude[start]; top != 0; top >>= 1) ++bits;
  return bits;
}

void checkRSAKeySize(ByteView n, const ImportLimits& limits) {
  const int bits = bitLength(n);
  if (bits > limits.maximumRSABits)
    throw KeyImportError::unsupportedKeyType("ssh-rsa with " + std::to_string(bits) + " bits");
  if (bits < kMinimumRSAImportBits) throw KeyImportError::rsaKeyTooSmall(bits);
}

RSAComponents RSAComponents::fromOpenSSH(ByteView n, ByteView e, ByteView d, ByteView iqmp,
                                         ByteView p, ByteView q) {
  BNCtxPtr context(BN_CTX_secure_new());
  if (!context) throw CryptoError::libraryFailure("BN_CTX_secure_new");
  auto privateExponent = number(d);
  auto exponentModulo = [&](ByteView prime) {
    auto primeMinusOne = number(prime);
    if (BN_cmp(primeMinusOne.get(), BN_value_one()) <= 0) throw KeyImportError::inconsistentKey();
    SecretBIGNUMPtr result(BN_secure_new());
    if (!result || BN_sub_word(primeMinusOne.get(), 1) != 1 ||
        BN_mod(result.get(), privateExponent.get(), primeMinusOne.get(), context.get()) != 1)
      throw CryptoError::libraryFailure("BN_mod");
    return magnitudeOf(result.get());
  };
  RSAComponents components{Bytes(n.begin(), n.end()),
                           Bytes(e.begin(), e.end()),
                           SecureBytes(d),
                           SecureBytes(p),
                           SecureBytes(q),
                           SecureBytes(),
                           SecureBytes(),
                           SecureBytes(iqmp)};
  components.dP = exponentModulo(p);
  components.dQ = exponentModulo(q);
  return components;
}

SecureBytes RSAComponents::pkcs1DER() const {
  const ByteView numbers[] = {n,        e,         d.view(),  p.view(),
                              q.view(), dP.view(), dQ.view(), qInv.view()};
  size_t contentLength = 3;  // version 0
  for (ByteView value : numbers) {
    const size_t length = integerContentLength(value);
    contentLength += 1 + lengthOfLength(length) + length;
  }
  SecureBytes out(1 + lengthOfLength(contentLength) + contentLength);
  DERWriter writer(out);
  writer.header(0x30, contentLength);
  writer.integer({});
  for (ByteView value : numbers) writer.integer(value);
  return out;
}

ImportedKey importRSAKey(const RSAComponents& components, const ImportLimits& limits) {
  checkRSAKeySize(components.n, limits);
  {
    BNCtxPtr context(BN_CTX_secure_new());
    SecretBIGNUMPtr product(BN_secure_new());
    auto p = number(components.p.view()), q = number(components.q.view());
    if (!context || !product || BN_mul(product.get(), p.get(), q.get(), context.get()) != 1)
      throw CryptoError::libraryFailure("BN_mul");
    if (BN_cmp(product.get(), number(components.n).get()) != 0 || BN_is_one(p.get()) ||
        BN_is_one(q.get()))
      throw KeyImportError::inconsistentKey();
  }
  auto key = ImportedKey::fromSecret(KeyAlgorithm::rsa, components.pkcs1DER().view());
  if (!key) throw KeyImportError::malformed();

  const Bytes text = bytesOf(kConsistencyText);
  Bytes signature;
  try {
    signature = key->sign(text, SignFlags::rsaSHA2_256);
  } catch (const CryptoError&) {
    throw KeyImportError::inconsistentKey();
  }
  if (!verify(signature, text, SSHPublicKey::rsa(components.e, components.n)))
    throw KeyImportError::inconsistentKey();
  return *key;
}

}  // namespace quorvane

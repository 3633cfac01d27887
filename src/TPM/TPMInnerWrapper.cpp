#include "TPM/TPMInnerWrapper.h"

#include <openssl/evp.h>
#include <tss2/tss2_mu.h>

#include <memory>

#include "Base/Random.h"
#include "Base/SecureBytes.h"
#include "Crypto/Hash.h"
#include "KeyStore/KeyStoreError.h"

namespace quorvane {
namespace {

constexpr size_t kKeyBytes = 16;  // AES-128

template <typename T, typename Marshal>
Bytes marshal(const T& value, Marshal marshalFunction) {
  Bytes out(sizeof(T) + 2);
  size_t offset = 0;
  if (marshalFunction(&value, out.data(), out.size(), &offset) != TSS2_RC_SUCCESS)
    throw KeyStoreError::hardwareFailed("a key part could not be marshalled");
  out.resize(offset);
  return out;
}

struct CipherFree {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

}  // namespace

TPMInnerWrapped wrapForImport(const TPM2B_SENSITIVE& sensitive, const TPM2B_PUBLIC& objectPublic) {
  // The object's name: its name algorithm, then the digest of its public area.
  Bytes name{static_cast<uint8_t>(TPM2_ALG_SHA256 >> 8), static_cast<uint8_t>(TPM2_ALG_SHA256)};
  const Bytes publicDigest =
      crypto::sha256(marshal(objectPublic.publicArea, Tss2_MU_TPMT_PUBLIC_Marshal));
  name.insert(name.end(), publicDigest.begin(), publicDigest.end());

  Bytes marshalledSensitive = marshal(sensitive, Tss2_MU_TPM2B_SENSITIVE_Marshal);
  SecureBytes sensitivePart = SecureBytes::adopt(marshalledSensitive);
  SecureBytes integrityInput(sensitivePart.view());
  for (uint8_t byte : name) integrityInput.push_back(byte);
  const Bytes integrity = crypto::sha256(integrityInput.view());

  // size-prefixed integrity value || marshalled sensitive part
  SecureBytes plain;
  plain.push_back(static_cast<uint8_t>(integrity.size() >> 8));
  plain.push_back(static_cast<uint8_t>(integrity.size()));
  for (uint8_t byte : integrity) plain.push_back(byte);
  for (uint8_t byte : sensitivePart.view()) plain.push_back(byte);

  TPMInnerWrapped wrapped;
  if (plain.size() > sizeof wrapped.duplicate.buffer)
    throw KeyStoreError::hardwareFailed("the key is too large to import");
  Bytes key = crypto::randomBytes(kKeyBytes);
  SecureBytes encryptionKey = SecureBytes::adopt(key);
  const uint8_t iv[16] = {};
  std::unique_ptr<EVP_CIPHER_CTX, CipherFree> context(EVP_CIPHER_CTX_new());
  int written = 0, finished = 0;
  if (!context ||
      EVP_EncryptInit_ex(context.get(), EVP_aes_128_cfb128(), nullptr, encryptionKey.data(), iv) !=
          1 ||
      EVP_EncryptUpdate(context.get(), wrapped.duplicate.buffer, &written, plain.data(),
                        static_cast<int>(plain.size())) != 1 ||
      EVP_EncryptFinal_ex(context.get(), wrapped.duplicate.buffer + written, &finished) != 1)
    throw KeyStoreError::hardwareFailed("the key could not be encrypted for the TPM");
  wrapped.duplicate.size = static_cast<uint16_t>(written + finished);
  wrapped.encryptionKey.size = static_cast<uint16_t>(encryptionKey.size());
  std::copy(encryptionKey.data(), encryptionKey.data() + encryptionKey.size(),
            wrapped.encryptionKey.buffer);
  wrapped.symmetric.algorithm = TPM2_ALG_AES;
  wrapped.symmetric.keyBits.aes = 128;
  wrapped.symmetric.mode.aes = TPM2_ALG_CFB;
  return wrapped;
}

}  // namespace quorvane

// KeyImporter::decryptPrivateSection: the ciphers of OpenSSH private key files.
#include "Base/Check.h"
#include "Crypto/AESCTR.h"
#include "Crypto/AESGCM.h"
#include "Crypto/CBC.h"
#include "KeyImport/KeyImporter.h"

namespace quorvane::KeyImporter {

SecureBytes decryptPrivateSection(const OpenSSHCipher& cipher, ByteView key, ByteView iv,
                                  ByteView section, ByteView tag) {
  QUORVANE_CHECK(key.size() == cipher.keyLength && iv.size() == cipher.ivLength,
                 "key and IV have the cipher's lengths");
  switch (cipher.mode) {
    case OpenSSHCipher::Mode::ctr: return crypto::aesCTR(key, iv, section);
    case OpenSSHCipher::Mode::cbc:
    case OpenSSHCipher::Mode::tripleDESCBC: {
      const crypto::CBCCipher which = cipher.mode == OpenSSHCipher::Mode::tripleDESCBC
                                          ? crypto::CBCCipher::tripleDES
                                      : key.size() == 16 ? crypto::CBCCipher::aes128
                                      : key.size() == 24 ? crypto::CBCCipher::aes192
                                                         : crypto::CBCCipher::aes256;
      auto plain = crypto::cbcDecrypt(which, key, iv, section, crypto::CBCPadding::none);
      if (!plain) throw KeyImportError::malformed();
      return std::move(*plain);
    }
    case OpenSSHCipher::Mode::gcm: {
      if (tag.size() != crypto::kAESGCMTagSize) throw KeyImportError::malformed();
      SecureBytes sealed(section.size() + tag.size());
      std::copy(section.begin(), section.end(), sealed.data());
      std::copy(tag.begin(), tag.end(), sealed.data() + section.size());
      auto plain = crypto::aesGCMOpen(key, iv, sealed.view(), {});
      if (!plain) throw KeyImportError::wrongPassphrase();
      return SecureBytes::adopt(*plain);
    }
    case OpenSSHCipher::Mode::none:
    case OpenSSHCipher::Mode::unknown: break;
  }
  QUORVANE_CHECK(false, "only encrypting ciphers reach decryption");
  return {};
}

}  // namespace quorvane::KeyImporter

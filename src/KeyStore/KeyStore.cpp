#include "KeyStore/KeyStore.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Base/UTF8.h"
#include "KeyStore/KeyStoreError.h"
#include "KeyStore/SealedFile.h"
#include "KeyStore/SealedFileError.h"
#include "Platform/Paths.h"
#include "SSHWire/SSHSignature.h"

namespace quorvane {

namespace {

void requireUTF8Name(const std::string& name) {
  if (!isValidUTF8(bytesOf(name))) throw KeyStoreError::unsupported("the name is not UTF-8");
}

// The record keeps whole seconds, as its file does, so a record reads back equal to itself.
Date wholeSeconds(Date date) { return Date{std::floor(date.secondsSince1970)}; }

std::vector<KeyRecord>::const_iterator findRecord(const std::vector<KeyRecord>& records,
                                                  const UUID& id) {
  return std::find_if(records.begin(), records.end(),
                      [&](const KeyRecord& record) { return record.id == id; });
}

}  // namespace

std::filesystem::path KeyStore::defaultRecordsPath() { return supportFolder() / "keys.json"; }

KeyStore::KeyStore(std::shared_ptr<SecretStore> secrets, std::filesystem::path recordsPath,
                   std::shared_ptr<SealingKeyProvider> sealing,
                   std::shared_ptr<HardwareKeys> hardware)
    : secrets_(std::move(secrets)),
      recordsPath_(std::move(recordsPath)),
      sealing_(std::move(sealing)),
      hardware_(std::move(hardware)) {
  records_ = loadFromFile();
}

std::vector<KeyRecord> KeyStore::loadFromFile() {
  if (!sealing_) return {};
  try {
    return SealedFile::read(recordsPath_, kRecordsPurpose, *sealing_, decodeKeyRecords);
  } catch (const SealedFileError& error) {
    if (error.kind() == SealedFileError::Kind::missing) return {};
    throw;
  }
}

void KeyStore::reload() {
  MutexLock change(changeMutex_);
  std::vector<KeyRecord> loaded = loadFromFile();
  MutexLock lock(mutex_);
  records_ = std::move(loaded);
  signingKeys_.clear();
}

void KeyStore::save(const std::vector<KeyRecord>& records) {
  if (sealing_) SealedFile::write(toJSON(records), recordsPath_, kRecordsPurpose, *sealing_);
}

std::vector<KeyRecord> KeyStore::records() const {
  MutexLock lock(mutex_);
  return records_;
}

std::optional<KeyRecord> KeyStore::record(const UUID& id) const {
  MutexLock lock(mutex_);
  auto found = findRecord(records_, id);
  if (found == records_.end()) return std::nullopt;
  return *found;
}

std::optional<KeyRecord> KeyStore::record(ByteView publicKeyBlob) const {
  MutexLock lock(mutex_);
  for (const KeyRecord& record : records_)
    if (std::equal(record.publicKeyBlob.begin(), record.publicKeyBlob.end(), publicKeyBlob.begin(),
                   publicKeyBlob.end()))
      return record;
  return std::nullopt;
}

KeyRecord KeyStore::appendWithSecret(KeyRecord record) {
  std::vector<KeyRecord> updated = records();
  updated.push_back(record);
  try {
    save(updated);
  } catch (...) {
    try {
      secrets_->remove(record.id);
    } catch (const KeyStoreError&) {
      // The save's error is the one to report; an orphaned secret names no record.
    }
    throw;
  }
  MutexLock lock(mutex_);
  records_ = std::move(updated);
  return record;
}

KeyRecord KeyStore::create(std::string name, ProtectionClass protection, Date now,
                           const SecureBytes* pin) {
  if (protection == ProtectionClass::imported)
    throw KeyStoreError::unsupported("import has its own path");
  if (!hardware_ || !hardware_->available()) throw KeyStoreError::secureEnclaveUnavailable();
  requireUTF8Name(name);

  MutexLock change(changeMutex_);
  HardwareKeys::CreatedKey created = hardware_->create(protection, pin);
  if (created.publicKey.keyType() != SSHKeyType::ecdsaP256)
    throw KeyStoreError::unsupported("the hardware made a key that is not P-256");
  KeyRecord added{UUID::random(), std::move(name),        KeyAlgorithm::ecdsaP256,
                  protection,     created.publicKey.blob, wholeSeconds(now)};
  secrets_->store(added.id, created.handle.view());
  return appendWithSecret(std::move(added));
}

KeyRecord KeyStore::add(const ImportedKey& key, std::string name, Date now) {
  requireUTF8Name(name);
  MutexLock change(changeMutex_);
  if (record(key.publicKey().blob)) throw KeyStoreError::duplicateKey();
  KeyRecord added{UUID::random(),       std::move(name),
                  key.algorithm(),      ProtectionClass::imported,
                  key.publicKey().blob, wholeSeconds(now)};
  secrets_->store(added.id, key.secret().view());
  return appendWithSecret(std::move(added));
}

KeyRecord KeyStore::addToHardware(const ImportedKey& key, std::string name, Date now) {
  requireUTF8Name(name);
  if (!hardware_ || !hardware_->available()) throw KeyStoreError::secureEnclaveUnavailable();
  MutexLock change(changeMutex_);
  if (record(key.publicKey().blob)) throw KeyStoreError::duplicateKey();
  HardwareKeys::CreatedKey moved = hardware_->importKey(key.publicKey(), key.secret());
  KeyRecord added{UUID::random(),       std::move(name),
                  key.algorithm(),      ProtectionClass::remoteApproval,
                  key.publicKey().blob, wholeSeconds(now)};
  secrets_->store(added.id, moved.handle.view());
  return appendWithSecret(std::move(added));
}

KeyRecord KeyStore::generate(KeyAlgorithm algorithm, std::string name, Date now, int rsaBits) {
  if (algorithm == KeyAlgorithm::rsa &&
      std::find(std::begin(kGeneratedRSABits), std::end(kGeneratedRSABits), rsaBits) ==
          std::end(kGeneratedRSABits))
    throw KeyStoreError::unsupported("RSA keys are generated with 3072 or 4096 bits");
  requireUTF8Name(name);
  return add(ImportedKey::generate(algorithm, rsaBits), std::move(name), now);
}

bool KeyStore::refusesSHA1(const KeyRecord& record, SignFlags flags) {
  return record.algorithm == KeyAlgorithm::rsa && !signatureAlgorithm(SSHKeyType::rsa, flags);
}

Bytes KeyStore::sign(const KeyRecord& record, ByteView data, SignFlags flags,
                     const SecureBytes* pin) const {
  if (record.protection == ProtectionClass::imported) {
    const ImportedKey key = signingKey(record);
    if (refusesSHA1(record, flags)) throw KeyStoreError::rsaSHA1Refused();
    return key.sign(data, flags);
  }

  std::optional<SecureBytes> secret = secrets_->read(record.id);
  if (!secret) throw KeyStoreError::keyMissing(record.id);
  if (record.algorithm != KeyAlgorithm::ecdsaP256)
    throw KeyStoreError::unsupported(std::string(rawValue(record.algorithm)) + " in the TPM");
  if (!hardware_) throw KeyStoreError::secureEnclaveUnavailable();
  try {
    return SSHSignature::ecdsa(SSHKeyType::ecdsaP256, hardware_->sign(secret->view(), data, pin));
  } catch (const KeyStoreError& error) {
    // The back end cannot know which record a handle it refuses belongs to.
    if (error.kind() == KeyStoreError::Kind::invalidSecret)
      throw KeyStoreError::invalidSecret(record.id);
    throw;
  }
}

void KeyStore::checkPIN(const KeyRecord& record, const SecureBytes& pin) const {
  if (record.protection == ProtectionClass::imported)
    throw KeyStoreError::unsupported("a software key has no PIN");
  sign(record, bytesOf("quorvane: is this the key's PIN?"), {}, &pin);
}

ImportedKey KeyStore::signingKey(const KeyRecord& record) const {
  {
    MutexLock lock(mutex_);
    auto cached = signingKeys_.find(record.id);
    if (cached != signingKeys_.end() && cached->second.publicKey().blob == record.publicKeyBlob)
      return cached->second;
  }
  std::optional<SecureBytes> secret = secrets_->read(record.id);
  if (!secret) throw KeyStoreError::keyMissing(record.id);
  std::optional<ImportedKey> key = ImportedKey::fromSecret(record.algorithm, secret->view());
  // A secret of another key would make signatures that the record's public key does not verify.
  if (!key || key->publicKey().blob != record.publicKeyBlob)
    throw KeyStoreError::invalidSecret(record.id);
  MutexLock lock(mutex_);
  signingKeys_.insert_or_assign(record.id, *key);
  return *key;
}

void KeyStore::remove(const UUID& id) {
  MutexLock change(changeMutex_);
  std::vector<KeyRecord> updated = records();
  auto found = findRecord(updated, id);
  if (found == updated.end()) throw KeyStoreError::unknownKey(id);
  {
    MutexLock lock(mutex_);
    signingKeys_.erase(id);
  }
  secrets_->remove(id);
  updated.erase(found);
  save(updated);
  MutexLock lock(mutex_);
  records_ = std::move(updated);
}

KeyRecord KeyStore::rename(const UUID& id, std::string name) {
  requireUTF8Name(name);
  MutexLock change(changeMutex_);
  std::vector<KeyRecord> updated = records();
  auto found = std::find_if(updated.begin(), updated.end(),
                            [&](const KeyRecord& record) { return record.id == id; });
  if (found == updated.end()) throw KeyStoreError::unknownKey(id);
  found->name = std::move(name);
  KeyRecord renamed = *found;
  save(updated);
  MutexLock lock(mutex_);
  records_ = std::move(updated);
  return renamed;
}

std::vector<UUID> KeyStore::recordsWithoutSecrets() const {
  std::vector<UUID> missing;
  for (const KeyRecord& record : records())
    if (!secrets_->read(record.id)) missing.push_back(record.id);
  return missing;
}

}  // namespace quorvane

#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Bytes.h"
#include "Base/Date.h"
#include "Base/Mutex.h"
#include "KeyStore/HardwareKeys.h"
#include "KeyStore/ImportedKey.h"
#include "KeyStore/KeyRecord.h"
#include "KeyStore/SealingKeyProvider.h"
#include "KeyStore/SecretStore.h"
#include "SSHWire/SignFlags.h"

namespace quorvane {

// The user's keys: the list of records (the sealed file `recordsPath`, purpose "keys") and the
// secrets behind them (a SecretStore, one secret per record id), and signing with them.
//
// Without a sealing provider the list lives in memory only and no file is read or written (for
// tests and previews; an unsealed list would be one that any program could edit).
//
// Every change is written to the file before the list in memory changes, so after a failed
// change the list is as it was. Changes are serialised among themselves; `records` and `sign`
// never wait for one. Throws KeyStoreError, SealedFileError, std::system_error (the file could
// not be written) and CryptoError (OpenSSL failed).
class KeyStore {
 public:
  // The purpose of the records file's seal.
  static constexpr std::string_view kRecordsPurpose = "keys";
  // RSA sizes that `generate` makes.
  static constexpr int kGeneratedRSABits[] = {3072, 4096};

  // <support folder>/keys.json.
  static std::filesystem::path defaultRecordsPath();

  // Loads the list (see `reload`). `hardware` may be null: no hardware keys on this machine.
  KeyStore(std::shared_ptr<SecretStore> secrets, std::filesystem::path recordsPath,
           std::shared_ptr<SealingKeyProvider> sealing,
           std::shared_ptr<HardwareKeys> hardware = nullptr);
  KeyStore(const KeyStore&) = delete;
  KeyStore& operator=(const KeyStore&) = delete;

  // Reads the list from the file again; a file never written gives an empty list. Throws
  // SealedFileError (tampered, malformed) or the provider's error and keeps the list as it was.
  void reload();

  // A copy of the list in stored order (the order identities are offered in).
  std::vector<KeyRecord> records() const;
  std::optional<KeyRecord> record(const UUID& id) const;
  std::optional<KeyRecord> record(ByteView publicKeyBlob) const;

  // A new hardware key. `imported`: unsupported("import has its own path"); no hardware back end
  // (or none available): secureEnclaveUnavailable; a name that is not UTF-8:
  // unsupported("the name is not UTF-8").
  // `pin`: the hardware's own secret for the key (see HardwareKeys::create).
  KeyRecord create(std::string name, ProtectionClass protection, Date now,
                   const SecureBytes* pin = nullptr);

  // Stores a software key under a new id with protection `imported`. A key whose public key blob
  // is already listed: duplicateKey. If the list cannot be saved the secret is deleted again.
  KeyRecord add(const ImportedKey& key, std::string name, Date now);

  // Moves a software key into the hardware: a record with protection `remoteApproval` whose
  // secret is the hardware's handle. The same errors as `add`, and the back end's
  // (secureEnclaveUnavailable without one; unsupported for keys it cannot take).
  KeyRecord addToHardware(const ImportedKey& key, std::string name, Date now);

  // Generates a software key (for machines without hardware keys) and adds it like an imported
  // one. RSA takes `rsaBits` from kGeneratedRSABits, else unsupported.
  KeyRecord generate(KeyAlgorithm algorithm, std::string name, Date now, int rsaBits = 3072);

  // An SSH signature blob over `data` by the record's key. A software key is read from its secret
  // on first use and kept in memory until `reload` or `remove`, so that a signature costs no file
  // read; a secret changed outside the store is seen after the next reload. No secret:
  // keyMissing(id). Software
  // keys: invalidSecret(id) when the secret does not make the record's key; RSA without a SHA-2
  // flag: rsaSHA1Refused. Hardware keys: only P-256 (else unsupported("<type> in the TPM")),
  // secureEnclaveUnavailable without a usable back end, invalidSecret(id) for a handle that the
  // back end does not take (made by another TPM), and the back end's errors.
  // `pin` authorises a hardware key made with one.
  Bytes sign(const KeyRecord& record, ByteView data, SignFlags flags,
             const SecureBytes* pin = nullptr) const;

  // Whether `pin` is the PIN of the hardware key `record`: signs a fixed text with it. Throws as
  // `sign` does (wrongPIN, pinLockedOut).
  void checkPIN(const KeyRecord& record, const SecureBytes& pin) const;

  // Whether `sign` refuses these flags for this key whatever else holds: an RSA signature
  // without a SHA-2 flag would be made with SHA-1.
  static bool refusesSHA1(const KeyRecord& record, SignFlags flags);

  // Deletes the record's secret, then the record. If the list cannot be saved after the secret is
  // gone, the record stays listed and signing with it fails with keyMissing; removing it again
  // finishes the job. Unknown id: unknownKey.
  void remove(const UUID& id);

  // Gives a record a new name and returns it. Unknown id: unknownKey; a name that is not UTF-8:
  // unsupported("the name is not UTF-8").
  KeyRecord rename(const UUID& id, std::string name);

  // The ids of records that have no secret (left by a removal that could not finish, or by a
  // secret deleted outside the store); for diagnostics.
  std::vector<UUID> recordsWithoutSecrets() const;

 private:
  // Appends `record` whose secret is already stored under its id, saves, and updates the list;
  // deletes the secret again if saving fails. REQUIRES: changeMutex_ is held.
  KeyRecord appendWithSecret(KeyRecord record);
  void save(const std::vector<KeyRecord>& records);
  // The software key behind `record`, from memory or from its secret.
  ImportedKey signingKey(const KeyRecord& record) const;
  std::vector<KeyRecord> loadFromFile();

  const std::shared_ptr<SecretStore> secrets_;
  const std::filesystem::path recordsPath_;
  const std::shared_ptr<SealingKeyProvider> sealing_;
  const std::shared_ptr<HardwareKeys> hardware_;

  // Held for the whole of a change (add, create, remove, rename, reload), so that a check such
  // as the duplicate test and the save that follows it are not interleaved with another change.
  // Never held by `records` or `sign`.
  // Changes (add, remove, rename, reload) run one at a time under changeMutex_; each publishes
  // its result under mutex_, which readers hold only for a lookup.
  Mutex changeMutex_ ACQUIRED_BEFORE(mutex_);
  mutable Mutex mutex_;
  std::vector<KeyRecord> records_ GUARDED_BY(mutex_);
  mutable std::map<UUID, ImportedKey> signingKeys_ GUARDED_BY(mutex_);  // keys used since reload
};

}  // namespace quorvane

#include "AgentCore/SupportState.h"

#include "ActivityStore/KeychainChainAnchor.h"
#include "KeyStore/KeychainSealingKey.h"
#include "KeyStore/KeychainSecretStore.h"
#include "KeyStore/SealedFile.h"
#include "KeyStore/SealedFileError.h"
#include "Platform/FileKeychain.h"
#include "Platform/Paths.h"

namespace quorvane {
namespace {

constexpr std::string_view kHostsPurpose = "hosts";

}  // namespace

SupportState SupportState::open() {
  auto keychain = std::make_shared<FileKeychain>();
  return {keychain, std::make_shared<KeychainSealingKey>(keychain), supportFolder()};
}

std::shared_ptr<KeyStore> SupportState::openKeyStore() const {
  return std::make_shared<KeyStore>(std::make_shared<KeychainSecretStore>(keychain),
                                    folder / "keys.json", sealing);
}

std::shared_ptr<ActivityStore> SupportState::openActivityLog(bool anchorInBackground) const {
  auto anchor = std::make_shared<KeychainChainAnchor>(*keychain);
  auto chainKey = anchor->chainKey();
  std::filesystem::create_directories(folder);
  return ActivityStore::open(folder / "activity.sqlite", anchor, std::move(chainKey),
                             anchorInBackground);
}

RulesFile RulesFile::read(const SupportState& support) {
  RulesFile file;
  try {
    file.rules = SealedFile::read(support.folder / "rules.json", kPurpose, *support.sealing,
                                  [](const JSONReader& reader) { return decodeRules(reader); });
    file.state = State::ok;
  } catch (const SealedFileError& error) {
    switch (error.kind()) {
      case SealedFileError::Kind::missing: file.state = State::none; break;
      case SealedFileError::Kind::tampered: file.state = State::tampered; break;
      case SealedFileError::Kind::malformed:
        file.state = State::unreadable;
        file.problem = error.what();
        break;
    }
  } catch (const std::exception& error) {
    file.state = State::unreadable;
    file.problem = error.what();
  }
  return file;
}

void RulesFile::save(const SupportState& support, const std::vector<Rule>& rules) {
  JSON list = JSON::array();
  for (const Rule& rule : rules) list.push_back(toJSON(rule));
  SealedFile::write(list, support.folder / "rules.json", kPurpose, *support.sealing);
}

SealedHostPinStore::SealedHostPinStore(SupportState support) : support_(std::move(support)) {}

std::optional<std::string> SealedHostPinStore::pinnedFingerprint(std::string_view hostName) {
  std::lock_guard lock(mutex_);
  try {
    JSON pins = SealedFile::read(support_.folder / "hosts.json", kHostsPurpose, *support_.sealing);
    auto found = pins.find(std::string(hostName));
    if (found != pins.end() && found->is_string()) return found->get<std::string>();
  } catch (const std::exception&) {
  }
  return std::nullopt;
}

void SealedHostPinStore::pin(std::string_view hostName, std::string_view fingerprint) {
  std::lock_guard lock(mutex_);
  JSON pins = JSON::object();
  try {
    pins = SealedFile::read(support_.folder / "hosts.json", kHostsPurpose, *support_.sealing);
    if (!pins.is_object()) pins = JSON::object();
  } catch (const std::exception&) {
  }
  if (pins.value(std::string(hostName), "") == fingerprint) return;
  pins[std::string(hostName)] = std::string(fingerprint);
  SealedFile::write(pins, support_.folder / "hosts.json", kHostsPurpose, *support_.sealing);
}

KeychainLockStore::KeychainLockStore(std::shared_ptr<Keychain> keychain)
    : keychain_(std::move(keychain)) {}

bool KeychainLockStore::isLocked() {
  auto item = keychain_->read(kService, kAccount);
  return item.status == kKeychainSuccess && item.data.size() == 1 && item.data.data()[0] == 1;
}

void KeychainLockStore::setLocked(bool locked) {
  const uint8_t value = locked ? 1 : 0;
  if (keychain_->update(kService, kAccount, ByteView(&value, 1)) == kKeychainItemNotFound)
    keychain_->add(kService, kAccount, ByteView(&value, 1));
}

}  // namespace quorvane

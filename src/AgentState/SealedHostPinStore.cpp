#include "AgentState/SealedHostPinStore.h"

#include "KeyStore/SealedFile.h"

namespace quorvane {
namespace {

constexpr std::string_view kHostsPurpose = "hosts";
constexpr std::string_view kHostsFile = "hosts.json";

}  // namespace

SealedHostPinStore::SealedHostPinStore(SupportState support) : support_(std::move(support)) {}

JSON& SealedHostPinStore::pinsLocked() {
  if (pins_) return *pins_;
  JSON pins = JSON::object();
  try {
    pins = SealedFile::read(support_.folder / kHostsFile, kHostsPurpose, *support_.sealing);
    if (!pins.is_object()) pins = JSON::object();
  } catch (const std::exception&) {
  }
  return pins_.emplace(std::move(pins));
}

std::optional<std::string> SealedHostPinStore::pinnedFingerprint(std::string_view hostName) {
  MutexLock lock(mutex_);
  const JSON& pins = pinsLocked();
  auto found = pins.find(std::string(hostName));
  if (found != pins.end() && found->is_string()) return found->get<std::string>();
  return std::nullopt;
}

void SealedHostPinStore::pin(std::string_view hostName, std::string_view fingerprint) {
  MutexLock lock(mutex_);
  JSON updated = pinsLocked();
  if (updated.value(std::string(hostName), "") == fingerprint) return;
  updated[std::string(hostName)] = std::string(fingerprint);
  SealedFile::write(updated, support_.folder / kHostsFile, kHostsPurpose, *support_.sealing);
  pins_ = std::move(updated);
}

void SealedHostPinStore::reload() {
  MutexLock lock(mutex_);
  pins_.reset();
}

}  // namespace quorvane

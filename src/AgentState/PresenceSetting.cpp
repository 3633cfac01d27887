#include "AgentState/PresenceSetting.h"

#include "KeyStore/SealedFile.h"

namespace quorvane {
namespace {

std::filesystem::path settingPath(const SupportState& support) {
  return support.folder / kPresenceSettingFile;
}

}  // namespace

bool presenceVerificationEnabled(const SupportState& support) {
  try {
    return SealedFile::read(
        settingPath(support), kPresenceSettingPurpose, *support.sealing,
        [](const JSONReader& reader) { return reader.required("verification").boolean(); });
  } catch (const std::exception&) {
    return true;
  }
}

void savePresenceVerification(const SupportState& support, bool enabled) {
  SealedFile::write(JSON{{"verification", enabled}}, settingPath(support), kPresenceSettingPurpose,
                    *support.sealing);
}

}  // namespace quorvane

#include "AgentState/PromptSetting.h"

#include "KeyStore/SealedFile.h"

namespace quorvane {

bool promptStartsAutomatically(const SupportState& support) {
  try {
    return SealedFile::read(
        support.folder / kPromptSettingFile, kPromptSettingPurpose, *support.sealing,
        [](const JSONReader& reader) { return reader.required("automatic").boolean(); });
  } catch (const std::exception&) {
    return true;
  }
}

void savePromptStartsAutomatically(const SupportState& support, bool automatic) {
  SealedFile::write(JSON{{"automatic", automatic}}, support.folder / kPromptSettingFile,
                    kPromptSettingPurpose, *support.sealing);
}

}  // namespace quorvane

#include "AgentState/RelaySetting.h"

#include "KeyStore/SealedFile.h"

namespace quorvane {

std::optional<RelaySetting> loadRelaySetting(const SupportState& support) {
  try {
    return SealedFile::read(support.folder / kRelaySettingFile, kRelaySettingPurpose,
                            *support.sealing,
                            [](const JSONReader& reader) -> std::optional<RelaySetting> {
                              reader.requireObject();
                              std::optional<JSONReader> url = reader.optional("baseURL");
                              if (!url) return std::nullopt;
                              RelaySetting setting{url->string(), std::nullopt};
                              if (std::optional<JSONReader> caFile = reader.optional("caFile"))
                                setting.caFile = caFile->string();
                              return setting;
                            });
  } catch (const SealedFileError& error) {
    if (error.kind() == SealedFileErrorKind::missing) return std::nullopt;
    throw;
  }
}

void saveRelaySetting(const SupportState& support, const std::optional<RelaySetting>& setting) {
  JSON value = JSON::object();
  if (setting) {
    value["baseURL"] = setting->baseURL;
    if (setting->caFile) value["caFile"] = setting->caFile->string();
  }
  SealedFile::write(value, support.folder / kRelaySettingFile, kRelaySettingPurpose,
                    *support.sealing);
}

}  // namespace quorvane

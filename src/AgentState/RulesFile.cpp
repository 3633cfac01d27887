#include "AgentState/RulesFile.h"

#include "KeyStore/SealedFile.h"
#include "KeyStore/SealedFileError.h"

namespace quorvane {

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

}  // namespace quorvane

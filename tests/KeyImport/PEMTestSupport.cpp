#include "PEMTestSupport.h"

#include <sstream>

#include "ImportTestSupport.h"
#include "KeyImport/KeyImporter.h"

namespace quorvane::testing::pem {

std::filesystem::path makeFile(const std::vector<std::string>& commands) {
  const auto base = keyDirectory() / "base.pem";
  const auto out = keyDirectory() / "out.pem";
  const auto passfile = keyDirectory() / "passphrase";
  std::filesystem::remove(base);
  std::filesystem::remove(out);
  writeFile(passfile, std::string(kPassphrase) + "\n");
  auto replaceAll = [](std::string& word, std::string_view token, std::string_view value) {
    for (size_t at; (at = word.find(token)) != std::string::npos;)
      word.replace(at, token.size(), value);
  };
  for (const std::string& command : commands) {
    std::istringstream words(command);
    std::vector<std::string> arguments;
    for (std::string word; words >> word;) {
      if (word == "{empty}") word.clear();
      replaceAll(word, "{base}", base.string());
      replaceAll(word, "{out}", out.string());
      replaceAll(word, "{passfile}", passfile.string());
      replaceAll(word, "{pass}", kPassphrase);
      arguments.push_back(word);
    }
    runTool(arguments);
  }
  return out;
}

Bytes bodyOf(const std::string& text) {
  const std::vector<PEMBlock> blocks = KeyImporter::pemBlocks(text);
  return Bytes(blocks.at(0).body.view().begin(), blocks.at(0).body.view().end());
}

}  // namespace quorvane::testing::pem

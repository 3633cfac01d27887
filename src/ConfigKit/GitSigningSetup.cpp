#include "ConfigKit/GitSigningSetup.h"

#include "ConfigKit/ConfigKitError.h"

namespace quorvane {

std::string GitSigningSetup::keyTypeAndBlob() const {
  std::vector<std::string_view> fields;
  std::string_view rest = publicKeyLine;
  while (fields.size() < 2 && !rest.empty()) {
    size_t space = rest.find(' ');
    std::string_view field = rest.substr(0, space);
    if (!field.empty()) fields.push_back(field);
    rest = space == std::string_view::npos ? std::string_view() : rest.substr(space + 1);
  }
  if (fields.size() < 2) throw ConfigKitError::malformedPublicKeyLine();
  return std::string(fields[0]) + " " + std::string(fields[1]);
}

std::string GitSigningSetup::signingKeyValue() const { return "key::" + keyTypeAndBlob(); }

std::vector<GitSetting> GitSigningSetup::settings() const {
  std::vector<GitSetting> list = {
      {"gpg.format", "ssh"},
      {"user.signingkey", signingKeyValue()},
      {"gpg.ssh.program", helperPath},
      {"gpg.ssh.allowedSignersFile", allowedSignersPath},
  };
  if (signCommitsByDefault) {
    list.push_back({"commit.gpgsign", "true"});
    list.push_back({"tag.gpgsign", "true"});
  }
  return list;
}

std::string GitSigningSetup::allowedSignersLine(std::string_view principal) const {
  bool valid = !principal.empty();
  for (char c : principal)
    if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7f || c == '"') valid = false;
  if (!valid) throw ConfigKitError::invalidPrincipal(std::string(principal));
  return std::string(principal) + " namespaces=\"git\" " + keyTypeAndBlob();
}

}  // namespace quorvane

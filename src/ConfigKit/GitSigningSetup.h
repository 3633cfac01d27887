#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quorvane {

// One Git configuration setting.
struct GitSetting {
  std::string key;
  std::string value;
  friend bool operator==(const GitSetting&, const GitSetting&) = default;
};

// What Git needs to sign commits and tags with one of the agent's SSH keys: the settings, in the
// order they are written, and the allowed-signers line that lets Git verify those signatures.
struct GitSigningSetup {
  std::string publicKeyLine;       // "TYPE BASE64 [COMMENT]", as in authorized_keys
  std::string helperPath;          // absolute path of the program Git runs to sign
  std::string allowedSignersPath;  // absolute path of the allowed-signers file
  bool signCommitsByDefault = false;

  // "key::TYPE BASE64": the literal key form that Git accepts for user.signingkey, without the
  // comment. Throws ConfigKitError::malformedPublicKeyLine when the line has fewer than two fields.
  std::string signingKeyValue() const;

  // gpg.format, user.signingkey, gpg.ssh.program, gpg.ssh.allowedSignersFile, then, when signing
  // by default, commit.gpgsign and tag.gpgsign ("true").
  std::vector<GitSetting> settings() const;

  // `principal` namespaces="git" TYPE BASE64: the key may sign only in Git's namespace. Throws
  // ConfigKitError::invalidPrincipal for an empty principal or one with whitespace, quotes or
  // control characters (the file's syntax could not carry it as it is).
  std::string allowedSignersLine(std::string_view principal) const;

  // The key type and base64 blob: the first two fields of publicKeyLine (empty pieces between
  // spaces dropped), joined with one space.
  std::string keyTypeAndBlob() const;
};

}  // namespace quorvane

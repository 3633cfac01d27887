#pragma once

// Helpers of the key import tests: key files made by the real tools, reading back what ssh-keygen
// derives from them, and editing OpenSSH containers field by field.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "KeyImport/KeyImporter.h"
#include "SSHWire/SSHPublicKey.h"
#include "support/TestSupport.h"

namespace quorvane::testing {

// A directory shared by the tests of one test program, removed when the program ends.
const std::filesystem::path& keyDirectory();

// Runs a tool that must succeed (a key generator); fails the calling test otherwise and returns its
// standard output.
std::string runTool(const std::vector<std::string>& arguments);

// A new key file made by ssh-keygen: `type` and `bits` as for -t and -b, an empty passphrase, the
// comment "imported key". Returns its path; the public key is beside it in PATH.pub.
std::filesystem::path sshKeygenKey(const std::string& name, const std::string& type, int bits = 0);

// Re-encrypts a key file in place with ssh-keygen -p (-Z cipher, -a rounds, -m format; an empty
// format keeps OpenSSH's). `oldPassphrase` is the current one.
void sshKeygenReencrypt(const std::filesystem::path& file, const std::string& passphrase,
                        const std::string& cipher = "", int rounds = 0,
                        const std::string& format = "", const std::string& oldPassphrase = "");

// The public key that `ssh-keygen -y` derives from a private key file.
SSHPublicKey sshKeygenPublicKey(const std::filesystem::path& file,
                                const std::string& passphrase = "");

SecureBytes passphraseOf(const std::string& text);

// The error that importing `text` gives; nothing (and a test failure) when it imports.
std::optional<KeyImportError> importError(std::string_view text,
                                          const std::string& passphrase = "");

// Imports the file with the passphrase, then checks that its public key is the one ssh-keygen
// derives from the same file and that its signatures (both SHA-2 flags for RSA) verify under it.
ParsedPrivateKey expectImportsAndSigns(const std::filesystem::path& file,
                                       const std::string& passphrase = "");
// The same against a public key derived elsewhere (ssh-keygen cannot read every PEM key).
ParsedPrivateKey expectImportsAndSigns(const std::filesystem::path& file,
                                       const std::string& passphrase, const SSHPublicKey& expected);

// The Ed25519 public key that openssl derives from a PEM private key file (ssh-keygen does not
// read Ed25519 keys in PEM files).
SSHPublicKey opensslEd25519PublicKey(const std::filesystem::path& file,
                                     const std::string& passphrase = "");

// The fields of an OpenSSH private key container, to be changed and written back.
struct OpenSSHContainer {
  std::string cipher, kdf;
  Bytes kdfOptions;
  uint32_t keyCount = 0;
  Bytes publicKey, privateSection, tail;

  static OpenSSHContainer read(const std::string& fileText);
  Bytes encode() const;
  // The container armoured as an "OPENSSH PRIVATE KEY" block.
  std::string armored() const;
};

// Names parameterised cases by their `name` field.
template <typename Case>
std::string caseName(const ::testing::TestParamInfo<Case>& info) {
  return info.param.name;
}

// A PEM block with `label` around `body`, with 64-character lines.
std::string armor(const std::string& label, ByteView body);

}  // namespace quorvane::testing

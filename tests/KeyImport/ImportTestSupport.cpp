#include "ImportTestSupport.h"

#include <gtest/gtest.h>

#include <sstream>

#include "Base/Base64.h"
#include "KeyStore/InMemorySecretStore.h"
#include "KeyStore/KeyStore.h"
#include "SSHWire/SignatureVerification.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"

namespace quorvane::testing {

const std::filesystem::path& keyDirectory() {
  static TemporaryDirectory directory;
  return directory.path();
}

std::string runTool(const std::vector<std::string>& arguments) {
  CommandResult result = runCommand(arguments);
  std::string line;
  for (const std::string& argument : arguments) line += argument + " ";
  EXPECT_EQ(result.exitCode, 0) << "failed: " << line;
  return result.output;
}

std::filesystem::path sshKeygenKey(const std::string& name, const std::string& type, int bits) {
  const std::filesystem::path path = keyDirectory() / name;
  std::filesystem::remove(path);
  std::filesystem::remove(path.string() + ".pub");
  std::vector<std::string> arguments = {"ssh-keygen", "-q", "-t",           type, "-N",
                                        "",           "-C", "imported key", "-f", path.string()};
  if (bits != 0) arguments.insert(arguments.end(), {"-b", std::to_string(bits)});
  runTool(arguments);
  return path;
}

void sshKeygenReencrypt(const std::filesystem::path& file, const std::string& passphrase,
                        const std::string& cipher, int rounds, const std::string& format,
                        const std::string& oldPassphrase) {
  std::vector<std::string> arguments = {"ssh-keygen", "-q",       "-p", "-P",         oldPassphrase,
                                        "-N",         passphrase, "-f", file.string()};
  if (!cipher.empty()) arguments.insert(arguments.end(), {"-Z", cipher});
  if (rounds != 0) arguments.insert(arguments.end(), {"-a", std::to_string(rounds)});
  if (!format.empty()) arguments.insert(arguments.end(), {"-m", format});
  runTool(arguments);
}

SSHPublicKey sshKeygenPublicKey(const std::filesystem::path& file, const std::string& passphrase) {
  std::istringstream line(runTool({"ssh-keygen", "-y", "-P", passphrase, "-f", file.string()}));
  std::string type, blob;
  line >> type >> blob;
  auto decoded = base64Decode(blob);
  EXPECT_TRUE(decoded) << "ssh-keygen -y printed no key for " << file;
  return SSHPublicKey::parse(decoded.value_or(Bytes{}));
}

SecureBytes passphraseOf(const std::string& text) { return SecureBytes(bytesOf(text)); }

std::optional<KeyImportError> importError(std::string_view text, const std::string& passphrase) {
  try {
    KeyImporter::parse(text, passphraseOf(passphrase));
  } catch (const KeyImportError& error) {
    return error;
  }
  ADD_FAILURE() << "imported without an error";
  return std::nullopt;
}

ParsedPrivateKey expectImportsAndSigns(const std::filesystem::path& file,
                                       const std::string& passphrase) {
  return expectImportsAndSigns(file, passphrase, sshKeygenPublicKey(file, passphrase));
}

SSHPublicKey opensslEd25519PublicKey(const std::filesystem::path& file,
                                     const std::string& passphrase) {
  // The SubjectPublicKeyInfo of an Ed25519 key ends with the 32-byte key.
  const std::string der = runTool({"openssl", "pkey", "-in", file.string(), "-passin",
                                   "pass:" + passphrase, "-pubout", "-outform", "DER"});
  EXPECT_GE(der.size(), 32u);
  return SSHPublicKey::ed25519(bytesOf(std::string_view(der).substr(der.size() - 32)));
}

ParsedPrivateKey expectImportsAndSigns(const std::filesystem::path& file,
                                       const std::string& passphrase,
                                       const SSHPublicKey& expected) {
  ParsedPrivateKey parsed = KeyImporter::parse(readFile(file), passphraseOf(passphrase));
  EXPECT_EQ(parsed.publicKey, expected);
  EXPECT_EQ(parsed.key.publicKey(), expected);
  // Through the key store, as the agent signs: the stored secret must make the same key.
  KeyStore store(std::make_shared<InMemorySecretStore>(), "", nullptr);
  const KeyRecord record = store.add(parsed.key, "imported", Date{1'800'000'000});
  EXPECT_EQ(record.publicKeyBlob, expected.blob);
  const Bytes data = bytesOf("data signed by an imported key");
  for (SignFlags flags : {SignFlags::rsaSHA2_256, SignFlags::rsaSHA2_512}) {
    EXPECT_TRUE(verify(store.sign(record, data, flags), data, expected)) << file;
    EXPECT_FALSE(verify(store.sign(record, data, flags), bytesOf("other data"), expected));
  }
  return parsed;
}

OpenSSHContainer OpenSSHContainer::read(const std::string& fileText) {
  std::vector<PEMBlock> blocks = KeyImporter::pemBlocks(fileText);
  EXPECT_EQ(blocks.size(), 1u);
  const ByteView body = blocks.at(0).body.view();
  WireReader reader(body);
  reader.readBytes(15);
  OpenSSHContainer container;
  container.cipher = textOf(reader.readString());
  container.kdf = textOf(reader.readString());
  container.kdfOptions = reader.readString();
  container.keyCount = reader.readUInt32();
  container.publicKey = reader.readString();
  container.privateSection = reader.readString();
  container.tail = reader.readRest();
  return container;
}

Bytes OpenSSHContainer::encode() const {
  WireWriter writer;
  writer.writeRaw(ByteView(reinterpret_cast<const uint8_t*>("openssh-key-v1"), 15));
  writer.writeString(std::string_view(cipher));
  writer.writeString(std::string_view(kdf));
  writer.writeString(kdfOptions);
  writer.writeUInt32(keyCount);
  writer.writeString(publicKey);
  writer.writeString(privateSection);
  writer.writeRaw(tail);
  return std::move(writer).take();
}

std::string OpenSSHContainer::armored() const { return armor("OPENSSH PRIVATE KEY", encode()); }

std::string armor(const std::string& label, ByteView body) {
  const std::string text = base64Encode(body);
  std::string out = "-----BEGIN " + label + "-----\n";
  for (size_t i = 0; i < text.size(); i += 64) out += text.substr(i, 64) + "\n";
  return out + "-----END " + label + "-----\n";
}

}  // namespace quorvane::testing

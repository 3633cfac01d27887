// KeyImporter::parse: recognising the format of a key file.
#include "KeyImport/KeyImporter.h"

#include "Base/UTF8.h"
#include "KeyImport/TextScanning.h"

namespace quorvane::KeyImporter {
namespace {

bool endsWith(std::string_view text, std::string_view suffix) { return text.ends_with(suffix); }

// One line of an OpenSSH public key file: a key type word, whitespace, then the rest.
bool looksLikePublicKeyLine(std::string_view text) {
  const auto space = std::find_if(text.begin(), text.end(), isWhitespace);
  if (space == text.end()) return false;
  const std::string_view type(text.begin(), space);
  return type.starts_with("ssh-") || type.starts_with("ecdsa-") || type.starts_with("sk-");
}

}  // namespace

ParsedPrivateKey parse(std::string_view text, const SecureBytes& passphrase,
                       const ImportLimits& limits) {
  if (text.size() > limits.maximumTextBytes || !isValidUTF8(text))
    throw KeyImportError::malformed();
  const std::string_view trimmed = trimWhitespace(text);
  if (trimmed.starts_with("PuTTY-User-Key-File-")) throw KeyImportError::unsupportedFormat("PuTTY");
  if (trimmed.starts_with("---- BEGIN SSH2 PUBLIC KEY ----")) throw KeyImportError::publicKeyOnly();
  if (trimmed.starts_with("---- BEGIN SSH2 ENCRYPTED PRIVATE KEY ----"))
    throw KeyImportError::unsupportedFormat("SSH.COM");

  const std::vector<PEMBlock> blocks = pemBlocks(trimmed);
  if (blocks.empty()) {
    if (looksLikePublicKeyLine(trimmed)) throw KeyImportError::publicKeyOnly();
    throw KeyImportError::unsupportedFormat("unknown");
  }
  const PEMBlock* privateBlock = nullptr;
  size_t privateBlocks = 0;
  for (const PEMBlock& block : blocks) {
    if (!endsWith(block.label, "PRIVATE KEY")) continue;
    privateBlock = &block;
    ++privateBlocks;
  }
  if (privateBlocks == 0) {
    for (const PEMBlock& block : blocks)
      if (endsWith(block.label, "PUBLIC KEY")) throw KeyImportError::publicKeyOnly();
    throw KeyImportError::unsupportedFormat(blocks.front().label);
  }
  if (privateBlocks > 1) throw KeyImportError::multipleKeys();

  const Passphrase given = passphrase.empty() ? Passphrase() : Passphrase(passphrase.view());
  const std::string& label = privateBlock->label;
  if (label == "OPENSSH PRIVATE KEY") {
    if (!privateBlock->headers.empty()) throw KeyImportError::malformed();
    return parseOpenSSH(privateBlock->body.view(), given, limits);
  }
  if (label == "RSA PRIVATE KEY" || label == "EC PRIVATE KEY" || label == "PRIVATE KEY" ||
      label == "ENCRYPTED PRIVATE KEY")
    return parsePEM(*privateBlock, given, limits);
  if (label == "DSA PRIVATE KEY") throw KeyImportError::unsupportedKeyType("ssh-dss");
  throw KeyImportError::unsupportedFormat(label);
}

}  // namespace quorvane::KeyImporter

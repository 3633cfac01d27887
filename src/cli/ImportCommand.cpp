#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <memory>
#include <sstream>

#include "Base/UTF8.h"
#include "KeyImport/ImportMessages.h"
#include "KeyImport/KeyImporter.h"
#include "KeyStore/KeyStoreError.h"
#include "Platform/Clock.h"
#include "TPM/TPMHardwareKeys.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"
#include "cli/Terminal.h"

namespace quorvane::cli {
namespace {

struct ImportOptions {
  std::string file, name, passphraseFile;
  bool passphraseStdin = false, json = false, intoTPM = false;
};
ImportOptions options;

// Key files larger than this are not read at all; the importer refuses anything above 1 MiB.
constexpr std::uintmax_t kMaxKeyFileBytes = 2 << 20;

SecureBytes readKeyFile(const std::string& path) {
  std::error_code error;
  auto size = std::filesystem::file_size(path, error);
  if (error) throw CommandFailure("cannot read " + path + ": " + error.message());
  if (size > kMaxKeyFileBytes) throw CommandFailure(kUnreadableKeyFileMessage);
  std::ifstream file(path, std::ios::binary);
  SecureBytes text(static_cast<size_t>(size));
  if (!file.read(reinterpret_cast<char*>(text.data()), static_cast<std::streamsize>(size)))
    throw CommandFailure("cannot read " + path);
  if (!isValidUTF8(text.view())) throw CommandFailure(kUnreadableKeyFileMessage);
  return text;
}

// The passphrase given by option: the first line of a file or of standard input.
std::optional<SecureBytes> givenPassphrase() {
  std::optional<SecureBytes> line;
  if (options.passphraseStdin) {
    line = SecureBytes::readLine(std::cin);
  } else if (!options.passphraseFile.empty()) {
    std::ifstream file(options.passphraseFile, std::ios::binary);
    if (!file) throw CommandFailure("cannot read " + options.passphraseFile);
    line = SecureBytes::readLine(file);
  } else {
    return std::nullopt;
  }
  // An empty first line (or none at all) is an empty passphrase.
  SecureBytes passphrase = line ? std::move(*line) : SecureBytes();
  if (!passphrase.empty() && passphrase.data()[passphrase.size() - 1] == '\r')
    passphrase.pop_back();
  return passphrase;
}

// Parses on a worker thread; a slow key derivation shows that it is working.
ParsedPrivateKey parseWithProgress(const SecureBytes& text, const SecureBytes& passphrase) {
  auto work = std::async(std::launch::async, [&] {
    return KeyImporter::parse(
        std::string_view(reinterpret_cast<const char*>(text.data()), text.size()), passphrase);
  });
  bool shown = false;
  const char* frames = "|/-\\";
  for (int tick = 0; work.wait_for(std::chrono::milliseconds(200)) != std::future_status::ready;
       ++tick) {
    if (::isatty(STDERR_FILENO)) {
      std::cerr << "\rDeriving the key from the passphrase… " << frames[tick % 4] << std::flush;
      shown = true;
    } else if (!shown) {
      std::cerr << "Deriving the key from the passphrase…\n";
      shown = true;
    }
  }
  if (shown && ::isatty(STDERR_FILENO)) std::cerr << "\r\033[K" << std::flush;
  return work.get();
}

// How many times a passphrase typed on the terminal may be wrong before the import gives up.
constexpr int kPassphraseTries = 3;

// Parses a key file that needs a passphrase nobody gave: asks on the terminal, again after a
// wrong one, up to kPassphraseTries times. Without a terminal it says how to give one.
ParsedPrivateKey parseAskingForPassphrase(const SecureBytes& text) {
  for (int attempt = 1;; ++attempt) {
    std::optional<SecureBytes> passphrase =
        readSecretFromTerminal("Passphrase for " + options.file + ": ");
    if (!passphrase)
      throw CommandFailure(
          "this key is protected by a passphrase and there is no terminal to ask for it; give it "
          "with --passphrase-file FILE or --passphrase-stdin");
    try {
      return parseWithProgress(text, *passphrase);
    } catch (const KeyImportError& error) {
      if (error.kind() != KeyImportError::Kind::wrongPassphrase || attempt == kPassphraseTries)
        throw CommandFailure(printable(importErrorMessage(error)));
      std::cerr << "Wrong passphrase; try again.\n";
    }
  }
}

// Only P-256 keys go into the TPM; the others are refused with the reason.
void refuseOutsideTPM(KeyAlgorithm algorithm) {
  switch (algorithm) {
    case KeyAlgorithm::ecdsaP256: return;
    case KeyAlgorithm::ed25519:
      throw CommandFailure("TPMs have no Ed25519 keys; import it without --into-tpm");
    case KeyAlgorithm::ecdsaP384:
      throw CommandFailure(
          "Quorvane puts only P-256 keys into the TPM; import this P-384 key without --into-tpm");
    case KeyAlgorithm::rsa:
      throw CommandFailure(
          "Quorvane puts only P-256 keys into the TPM (not RSA keys yet); import it without "
          "--into-tpm");
  }
}

void importKey() {
  const SecureBytes text = readKeyFile(options.file);
  std::optional<SecureBytes> passphrase = givenPassphrase();
  std::optional<ParsedPrivateKey> parsed;
  try {
    parsed = parseWithProgress(text, passphrase.value_or(SecureBytes()));
  } catch (const KeyImportError& error) {
    if (error.kind() != KeyImportError::Kind::passphraseRequired || passphrase)
      throw CommandFailure(printable(importErrorMessage(error)));
    parsed = parseAskingForPassphrase(text);
  }

  std::string name = options.name;
  if (name.empty()) name = parsed->comment;
  if (name.empty()) name = std::filesystem::path(options.file).filename().string();
  std::shared_ptr<TPMHardwareKeys> tpm;
  if (options.intoTPM) {
    refuseOutsideTPM(parsed->key.algorithm());
    tpm = std::make_shared<TPMHardwareKeys>();
    if (!tpm->available())
      throw CommandFailure("no usable TPM at " + tpm->tcti() + ": " +
                           tpm->problem().value_or("unknown") + ". Nothing was imported.");
  }
  auto store = SupportState::open().openKeyStore(tpm);
  requireFreeName(store->records(), name, "give this key another with --name NAME");
  KeyRecord record;
  try {
    record = options.intoTPM ? store->addToHardware(parsed->key, name, SystemClock().now())
                             : store->add(parsed->key, name, SystemClock().now());
  } catch (const KeyStoreError& error) {
    if (error.kind() == KeyStoreError::Kind::duplicateKey)
      throw CommandFailure("this key is already in Quorvane");
    throw;
  }
  notifyAgentOfChange();
  if (options.json) {
    JSON json = toJSON(record);
    json["fingerprint"] = fingerprint(record.publicKeyBlob);
    if (auto notice = importNotice(*parsed)) json["notice"] = *notice;
    return printJSON(json);
  }
  if (options.intoTPM)
    std::cout << "Moved “" << record.name << "” (" << fingerprint(record.publicKeyBlob)
              << ") into the TPM: from now on it signs only on this machine. Delete the file "
                 "(and its copies) so that it cannot be used elsewhere.\n";
  else
    std::cout << "Imported “" << record.name << "” (" << fingerprint(record.publicKeyBlob)
              << "). The file can now be deleted; Quorvane keeps its own protected copy.\n";
  if (auto notice = importNotice(*parsed)) std::cout << *notice << "\n";
}

}  // namespace

void addImportCommand(CLI::App& keys) {
  CLI::App* command = keys.add_subcommand(
      "import", "import a private key file (OpenSSH, PEM, PKCS#1, SEC1, PKCS#8; encrypted or not)");
  command->add_option("FILE", options.file, "the private key file, e.g. ~/.ssh/id_ed25519")
      ->required();
  command->add_option("--name", options.name,
                      "the key's name (default: its comment, or the file name)");
  auto* file = command->add_option("--passphrase-file", options.passphraseFile,
                                   "read the passphrase from the first line of this file");
  auto* standardInput =
      command->add_flag("--passphrase-stdin", options.passphraseStdin,
                        "read the passphrase from the first line of standard input");
  file->excludes(standardInput);
  command->add_flag("--into-tpm", options.intoTPM,
                    "move a P-256 key into the TPM, where it can never be copied from again");
  addJSONFlag(command, options.json);
  command->callback(importKey);
}

}  // namespace quorvane::cli

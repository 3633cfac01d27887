#include "KeyStore/SealedFile.h"

#include <openssl/crypto.h>

#include <limits>
#include <string>

#include "Base/Base64.h"
#include "Base/Check.h"
#include "Crypto/HMAC.h"
#include "Platform/AtomicFile.h"
#include "Platform/WholeFile.h"

namespace quorvane {

namespace {

constexpr mode_t kFileMode = 0600;
constexpr mode_t kFolderMode = 0700;
constexpr std::string_view kVersion1Prefix = "quorvane-sealed-v1";
constexpr std::string_view kVersion2Prefix = "quorvane-sealed-v2";

Bytes base64Field(const JSONReader& reader, std::string_view key) {
  auto bytes = base64Decode(reader.required(key).string());
  if (!bytes) throw SealedFileError::malformed();
  return *bytes;
}

bool tagMatches(ByteView expected, ByteView actual) {
  return expected.size() == actual.size() &&
         CRYPTO_memcmp(expected.data(), actual.data(), expected.size()) == 0;
}

// Reading from step 3 on, with the generation recorded before the file was read.
JSON unsealWithStored(ByteView contents, std::string_view purpose, SealingKeyProvider& provider,
                      uint64_t stored) {
  const SealedFile::Envelope envelope = SealedFile::Envelope::decode(contents);
  if (!envelope.generation) {
    if (envelope.version != 1) throw SealedFileError::malformed();
    if (stored != 0) throw SealedFileError::tampered();
  } else {
    if (envelope.version != 2) throw SealedFileError::malformed();
    if (*envelope.generation < stored) throw SealedFileError::tampered();
  }
  if (envelope.purpose != purpose) throw SealedFileError::tampered();

  const SecureBytes key = provider.key();
  const Bytes tag = crypto::hmacSHA256(
      key.view(), SealedFile::macInput(envelope.purpose, envelope.generation, envelope.payload));
  if (!tagMatches(tag, envelope.mac)) throw SealedFileError::tampered();

  if (envelope.generation && *envelope.generation > stored) {
    try {
      provider.setGeneration(*envelope.generation, purpose);
    } catch (...) {
      // The file is genuine; recording its generation again is left to the next read or write.
    }
  }
  try {
    return parseJSON(textOf(envelope.payload));
  } catch (const DecodingError&) {
    throw SealedFileError::malformed();
  }
}

}  // namespace

std::string SealedFile::Envelope::encode() const {
  JSON object = {{"version", version},
                 {"purpose", purpose},
                 {"payload", base64Encode(payload)},
                 {"mac", base64Encode(mac)}};
  if (generation) object["generation"] = *generation;
  return object.dump(2);
}

SealedFile::Envelope SealedFile::Envelope::decode(ByteView text) {
  try {
    const JSON document = parseJSON(textOf(text));
    const JSONReader reader(document);
    Envelope envelope;
    envelope.version = reader.required("version").int64();
    envelope.purpose = reader.required("purpose").string();
    if (auto generation = reader.optional("generation")) {
      if (!generation->json().is_number_unsigned()) throw SealedFileError::malformed();
      envelope.generation = generation->json().get<uint64_t>();
    }
    envelope.payload = base64Field(reader, "payload");
    envelope.mac = base64Field(reader, "mac");
    return envelope;
  } catch (const DecodingError&) {
    throw SealedFileError::malformed();
  }
}

Bytes SealedFile::macInput(std::string_view purpose, std::optional<uint64_t> generation,
                           ByteView payload) {
  Bytes input;
  const std::string_view prefix = generation ? kVersion2Prefix : kVersion1Prefix;
  input.insert(input.end(), prefix.begin(), prefix.end());
  input.insert(input.end(), purpose.begin(), purpose.end());
  input.push_back(0);
  if (generation) {
    const std::string decimal = std::to_string(*generation);
    input.insert(input.end(), decimal.begin(), decimal.end());
    input.push_back(0);
  }
  input.insert(input.end(), payload.begin(), payload.end());
  return input;
}

void SealedFile::write(const JSON& value, const std::filesystem::path& path,
                       std::string_view purpose, SealingKeyProvider& provider) {
  std::string payloadText;
  try {
    payloadText = value.dump();
  } catch (const JSON::type_error&) {
    QUORVANE_CHECK(false, "sealed values hold UTF-8 text only");
  }
  const uint64_t stored = provider.generation(purpose);
  QUORVANE_CHECK(stored < std::numeric_limits<uint64_t>::max(), "generation counter overflow");
  const uint64_t generation = stored + 1;

  Envelope envelope;
  envelope.version = 2;
  envelope.purpose = std::string(purpose);
  envelope.generation = generation;
  envelope.payload = bytesOf(payloadText);
  const SecureBytes key = provider.key();
  envelope.mac = crypto::hmacSHA256(key.view(), macInput(purpose, generation, envelope.payload));

  createFolders(path.parent_path(), kFolderMode);
  writeFileAtomically(path, bytesOf(envelope.encode()), kFileMode);
  provider.setGeneration(generation, purpose);
}

JSON SealedFile::read(const std::filesystem::path& path, std::string_view purpose,
                      SealingKeyProvider& provider) {
  const uint64_t stored = provider.generation(purpose);
  const WholeFile file = readWholeFile(path, kFileLimit);
  switch (file.status) {
    case WholeFile::Status::ok: break;
    case WholeFile::Status::tooLarge: throw SealedFileError::malformed();
    case WholeFile::Status::notFound:
    case WholeFile::Status::failed:
      throw stored == 0 ? SealedFileError::missing() : SealedFileError::tampered();
  }
  return unsealWithStored(file.contents.view(), purpose, provider, stored);
}

JSON SealedFile::unseal(ByteView contents, std::string_view purpose, SealingKeyProvider& provider) {
  return unsealWithStored(contents, purpose, provider, provider.generation(purpose));
}

}  // namespace quorvane

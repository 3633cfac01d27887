#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "Base/Bytes.h"
#include "Base/JSONReader.h"
#include "KeyStore/SealedFileError.h"
#include "KeyStore/SealingKeyProvider.h"

namespace quorvane {

// A JSON file that the user may read but no other program may change, replace with an older
// copy, or move to another use unnoticed. The file is an envelope around the value's JSON text
// (the payload):
//
//   {                               pretty-printed, keys sorted
//     "generation" : 7,             unsigned 64-bit; absent in version 1
//     "mac" : "<base64>",           HMAC-SHA256 under the provider's key, 32 bytes
//     "payload" : "<base64>",       the value's JSON, keys sorted, dates ISO 8601
//     "purpose" : "keys",           must equal the purpose the reader expects
//     "version" : 2                 1 or 2
//   }
//
// The MAC covers (NUL is the byte 00):
//   version 1:  "quorvane-sealed-v1" purpose NUL payload
//   version 2:  "quorvane-sealed-v2" purpose NUL decimal(generation) NUL payload
//
// Every write is version 2 with the purpose's recorded generation plus one, and records that
// generation once the file is on disk. A reader refuses a generation below the recorded one, a
// version-1 file once any generation is recorded, and an absent file once one is recorded, so an
// older copy put back reads as `tampered`. Reading never repairs or deletes anything.
struct SealedFile {
  SealedFile() = delete;

  // Files larger than this are not sealed files (`malformed`); it bounds what a read allocates.
  static constexpr size_t kFileLimit = 16 << 20;

  struct Envelope {
    int64_t version = 2;
    std::string purpose;
    std::optional<uint64_t> generation;
    Bytes payload;
    Bytes mac;

    // The file's text, as written.
    std::string encode() const;
    // Reads the file's text. Throws SealedFileError::malformed for text that is not JSON or an
    // object without the fields above in their types (strict base64; extra keys are ignored).
    // The version and generation are not checked against each other here.
    static Envelope decode(ByteView text);

    friend bool operator==(const Envelope&, const Envelope&) = default;
  };

  // The bytes that the MAC covers: version 1 when `generation` is nothing, else version 2.
  static Bytes macInput(std::string_view purpose, std::optional<uint64_t> generation,
                        ByteView payload);

  // Seals `value` into the file at `path` (its folders are made, 0700, when missing; the file is
  // 0600 and replaced atomically). Throws the provider's error, or std::system_error when the
  // file cannot be written, in which case the generation is not advanced.
  // REQUIRES: every string in `value` is UTF-8.
  static void write(const JSON& value, const std::filesystem::path& path, std::string_view purpose,
                    SealingKeyProvider& provider);

  // The value sealed in the file at `path`. Throws SealedFileError, or the provider's error.
  static JSON read(const std::filesystem::path& path, std::string_view purpose,
                   SealingKeyProvider& provider);

  // The value, decoded by `decode(const JSONReader&)`; a DecodingError of `decode` is
  // SealedFileError::malformed.
  template <typename Decode>
  static auto read(const std::filesystem::path& path, std::string_view purpose,
                   SealingKeyProvider& provider, Decode decode) {
    const JSON value = read(path, purpose, provider);
    try {
      return decode(JSONReader(value));
    } catch (const DecodingError&) {
      throw SealedFileError::malformed();
    }
  }

  // The checks of `read` applied to file contents already read (for tests and fuzzing): the
  // value, or SealedFileError, or the provider's error. Moves the recorded generation up like
  // `read` does.
  static JSON unseal(ByteView contents, std::string_view purpose, SealingKeyProvider& provider);
};

}  // namespace quorvane

#pragma once

#include <string>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class DecodingErrorKind {
  typeMismatch,   // a value has the wrong JSON type, or a case-keyed object the wrong key count
  valueNotFound,  // a required value is null
  keyNotFound,    // a required key is missing
  dataCorrupted,  // the text is not JSON, or a value is of the right type but not acceptable
};

struct DecodingErrorPayload {
  std::string codingPath;
  std::string description;
  friend bool operator==(const DecodingErrorPayload&, const DecodingErrorPayload&) = default;
};

// The error of decoding the system's JSON files and messages. `codingPath` says where in the
// document the problem sits ("rules[2].purpose"); `description` says what it is, in the fixed
// words that callers may show or compare.
class DecodingError : public KindedError<DecodingError, DecodingErrorKind, DecodingErrorPayload> {
 public:
  static constexpr EnumNames<Kind, 4> kKindNames{"DecodingError",
                                                 {{{Kind::typeMismatch, "typeMismatch"},
                                                   {Kind::valueNotFound, "valueNotFound"},
                                                   {Kind::keyNotFound, "keyNotFound"},
                                                   {Kind::dataCorrupted, "dataCorrupted"}}}};

  static DecodingError typeMismatch(std::string codingPath, std::string description);
  static DecodingError valueNotFound(std::string codingPath, std::string description);
  static DecodingError keyNotFound(std::string codingPath, std::string key);
  static DecodingError dataCorrupted(std::string codingPath, std::string description);

  const std::string& codingPath() const { return payload().codingPath; }
  const std::string& description() const { return payload().description; }

 private:
  DecodingError(Kind kind, DecodingErrorPayload payload);
};

}  // namespace quorvane

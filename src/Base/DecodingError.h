#pragma once

#include <stdexcept>
#include <string>

namespace quorvane {

// The error of decoding the system's JSON files and messages. `codingPath` says where in the
// document the problem sits ("rules[2].purpose"); `description` says what it is, in the fixed
// words that callers may show or compare.
class DecodingError : public std::runtime_error {
 public:
  enum class Kind {
    typeMismatch,   // a value has the wrong JSON type, or a case-keyed object the wrong key count
    valueNotFound,  // a required value is null
    keyNotFound,    // a required key is missing
    dataCorrupted,  // the text is not JSON, or a value is of the right type but not acceptable
  };

  static DecodingError typeMismatch(std::string codingPath, std::string description);
  static DecodingError valueNotFound(std::string codingPath, std::string description);
  static DecodingError keyNotFound(std::string codingPath, std::string key);
  static DecodingError dataCorrupted(std::string codingPath, std::string description);

  Kind kind() const { return kind_; }
  const std::string& codingPath() const { return codingPath_; }
  const std::string& description() const { return description_; }

 private:
  DecodingError(Kind kind, std::string codingPath, std::string description);
  Kind kind_;
  std::string codingPath_;
  std::string description_;
};

}  // namespace quorvane

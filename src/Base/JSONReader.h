#pragma once

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/Date.h"
#include "Base/DecodingError.h"
#include "Base/UUID.h"

namespace quorvane {

using JSON = nlohmann::json;

// How a file or message writes dates: the system's files use ISO 8601 text; some stores use a
// number of seconds since 1970.
enum class DateEncoding { iso8601, secondsSince1970 };

// Parses JSON text. Text that is not JSON (or not UTF-8) is DecodingError::dataCorrupted.
JSON parseJSON(std::string_view text);

// Writes a date as `encoding` says.
JSON encodeDate(Date date, DateEncoding encoding);

// A JSON value being decoded, with its place in the document for error messages. Every accessor
// checks the JSON type and throws DecodingError (typeMismatch, keyNotFound, valueNotFound,
// dataCorrupted) instead of defaulting. The reader refers to the JSON it was made from, which must
// outlive it.
class JSONReader {
 public:
  explicit JSONReader(const JSON& value, std::string codingPath = "");

  const JSON& json() const { return *value_; }
  const std::string& codingPath() const { return codingPath_; }

  // Scalars.
  std::string string() const;
  bool boolean() const;
  int64_t int64() const;
  double number() const;
  Date date(DateEncoding encoding) const;
  UUID uuid() const;

  // Arrays: the elements in order.
  std::vector<JSONReader> array() const;
  template <typename T, typename Decode>
  std::vector<T> arrayOf(Decode decodeElement) const {
    std::vector<T> result;
    for (const JSONReader& element : array()) result.push_back(decodeElement(element));
    return result;
  }
  std::vector<std::string> strings() const;

  // Objects. `required` fails for a missing key (keyNotFound) or a null value (valueNotFound);
  // `optional` gives nothing for either.
  JSONReader required(std::string_view key) const;
  std::optional<JSONReader> optional(std::string_view key) const;
  // Fails with typeMismatch unless the value is an object; for values whose keys are all optional
  // or that have none (the empty object of a case without fields).
  void requireObject() const;

  // A case-keyed object: exactly one of `caseKeys` must be present (keys not listed are ignored),
  // else typeMismatch "Invalid number of keys found, expected one.". Returns the case key and the
  // reader of its value.
  std::pair<std::string, JSONReader> singleCase(
      std::initializer_list<std::string_view> caseKeys) const;

  // Fails with dataCorrupted at this value's place.
  [[noreturn]] void fail(const std::string& description) const;

 private:
  void requireType(bool matches, const char* expected) const;
  std::string childPath(std::string_view key) const;

  const JSON* value_;
  std::string codingPath_;
};

}  // namespace quorvane

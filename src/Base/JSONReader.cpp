#include "Base/JSONReader.h"

#include <limits>

namespace quorvane {

JSON parseJSON(std::string_view text) {
  try {
    return JSON::parse(text);
  } catch (const JSON::exception& error) {
    throw DecodingError::dataCorrupted(
        "", std::string("The given data was not valid JSON. ") + error.what());
  }
}

JSON encodeDate(Date date, DateEncoding encoding) {
  switch (encoding) {
    case DateEncoding::iso8601: return date.iso8601();
    case DateEncoding::secondsSince1970: return date.secondsSince1970;
  }
  return nullptr;
}

JSONReader::JSONReader(const JSON& value, std::string codingPath)
    : value_(&value), codingPath_(std::move(codingPath)) {}

void JSONReader::requireType(bool matches, const char* expected) const {
  if (!matches)
    throw DecodingError::typeMismatch(codingPath_, std::string("Expected to decode ") + expected +
                                                       " but found " + value_->type_name() + ".");
}

void JSONReader::fail(const std::string& description) const {
  throw DecodingError::dataCorrupted(codingPath_, description);
}

std::string JSONReader::childPath(std::string_view key) const {
  return codingPath_.empty() ? std::string(key) : codingPath_ + "." + std::string(key);
}

std::string JSONReader::string() const {
  requireType(value_->is_string(), "a string");
  return value_->get_ref<const std::string&>();
}

bool JSONReader::boolean() const {
  requireType(value_->is_boolean(), "a boolean");
  return value_->get<bool>();
}

int64_t JSONReader::int64() const {
  requireType(value_->is_number_integer(), "an integer");
  if (value_->is_number_unsigned() &&
      value_->get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
    fail("The number does not fit in a signed 64-bit integer.");
  return value_->get<int64_t>();
}

double JSONReader::number() const {
  requireType(value_->is_number(), "a number");
  return value_->get<double>();
}

Date JSONReader::date(DateEncoding encoding) const {
  switch (encoding) {
    case DateEncoding::iso8601: {
      auto date = Date::parseISO8601(string());
      if (!date) fail("Expected date string to be ISO8601-formatted.");
      return *date;
    }
    case DateEncoding::secondsSince1970: {
      double seconds = number();
      if (!(seconds >= Date::kEarliestSeconds && seconds <= Date::kLatestSeconds))
        fail("The date is out of range.");
      return Date{seconds};
    }
  }
  fail("Unknown date encoding.");
}

UUID JSONReader::uuid() const {
  auto uuid = UUID::parse(string());
  if (!uuid) fail("Attempted to decode UUID from invalid UUID string.");
  return *uuid;
}

std::vector<JSONReader> JSONReader::array() const {
  requireType(value_->is_array(), "an array");
  std::vector<JSONReader> elements;
  elements.reserve(value_->size());
  for (size_t i = 0; i < value_->size(); ++i)
    elements.emplace_back((*value_)[i], codingPath_ + "[" + std::to_string(i) + "]");
  return elements;
}

std::vector<std::string> JSONReader::strings() const {
  return arrayOf<std::string>([](const JSONReader& element) { return element.string(); });
}

JSONReader JSONReader::required(std::string_view key) const {
  requireType(value_->is_object(), "an object");
  auto found = value_->find(key);
  if (found == value_->end()) throw DecodingError::keyNotFound(codingPath_, std::string(key));
  if (found->is_null())
    throw DecodingError::valueNotFound(childPath(key), "Expected a value but found null instead.");
  return JSONReader(*found, childPath(key));
}

std::optional<JSONReader> JSONReader::optional(std::string_view key) const {
  requireType(value_->is_object(), "an object");
  auto found = value_->find(key);
  if (found == value_->end() || found->is_null()) return std::nullopt;
  return JSONReader(*found, childPath(key));
}

void JSONReader::requireObject() const { requireType(value_->is_object(), "an object"); }

std::pair<std::string, JSONReader> JSONReader::singleCase(
    std::initializer_list<std::string_view> caseKeys) const {
  requireType(value_->is_object(), "an object");
  const JSON* caseValue = nullptr;
  std::string caseKey;
  size_t found = 0;
  for (std::string_view key : caseKeys) {
    auto entry = value_->find(key);
    if (entry == value_->end()) continue;
    ++found;
    caseKey = key;
    caseValue = &*entry;
  }
  if (found != 1)
    throw DecodingError::typeMismatch(codingPath_, "Invalid number of keys found, expected one.");
  return {caseKey, JSONReader(*caseValue, childPath(caseKey))};
}

}  // namespace quorvane

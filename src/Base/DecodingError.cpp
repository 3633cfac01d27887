#include "Base/DecodingError.h"

#include <utility>

namespace quorvane {

namespace {

std::string message(const std::string& codingPath, const std::string& description) {
  return codingPath.empty() ? description : codingPath + ": " + description;
}

}  // namespace

DecodingError::DecodingError(Kind kind, std::string codingPath, std::string description)
    : std::runtime_error(message(codingPath, description)),
      kind_(kind),
      codingPath_(std::move(codingPath)),
      description_(std::move(description)) {}

DecodingError DecodingError::typeMismatch(std::string codingPath, std::string description) {
  return DecodingError(Kind::typeMismatch, std::move(codingPath), std::move(description));
}

DecodingError DecodingError::valueNotFound(std::string codingPath, std::string description) {
  return DecodingError(Kind::valueNotFound, std::move(codingPath), std::move(description));
}

DecodingError DecodingError::keyNotFound(std::string codingPath, std::string key) {
  return DecodingError(Kind::keyNotFound, std::move(codingPath),
                       "No value associated with key \"" + key + "\".");
}

DecodingError DecodingError::dataCorrupted(std::string codingPath, std::string description) {
  return DecodingError(Kind::dataCorrupted, std::move(codingPath), std::move(description));
}

}  // namespace quorvane

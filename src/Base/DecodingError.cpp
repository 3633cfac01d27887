#include "Base/DecodingError.h"

#include <utility>

namespace quorvane {

namespace {

std::string message(const DecodingErrorPayload& payload) {
  return payload.codingPath.empty() ? payload.description
                                    : payload.codingPath + ": " + payload.description;
}

}  // namespace

DecodingError::DecodingError(Kind kind, DecodingErrorPayload payload)
    : KindedError(kind, payload, message(payload)) {}

DecodingError DecodingError::typeMismatch(std::string codingPath, std::string description) {
  return DecodingError(Kind::typeMismatch, {std::move(codingPath), std::move(description)});
}

DecodingError DecodingError::valueNotFound(std::string codingPath, std::string description) {
  return DecodingError(Kind::valueNotFound, {std::move(codingPath), std::move(description)});
}

DecodingError DecodingError::keyNotFound(std::string codingPath, std::string key) {
  return DecodingError(Kind::keyNotFound,
                       {std::move(codingPath), "No value associated with key \"" + key + "\"."});
}

DecodingError DecodingError::dataCorrupted(std::string codingPath, std::string description) {
  return DecodingError(Kind::dataCorrupted, {std::move(codingPath), std::move(description)});
}

}  // namespace quorvane

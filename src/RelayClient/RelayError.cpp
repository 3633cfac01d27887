#include "RelayClient/RelayError.h"

#include <utility>

namespace quorvane {

RelayError::RelayError(Kind kind, RelayErrorPayload payload, const std::string& message)
    : KindedError(kind, std::move(payload), message) {}

RelayError RelayError::http(int status) {
  return RelayError(
      Kind::http, {status, ""},
      "relay: the answer's status " + std::to_string(status) + " is not one the operation accepts");
}

RelayError RelayError::transport(std::string description) {
  std::string message = "relay: the request did not complete: " + description;
  return RelayError(Kind::transport, {0, std::move(description)}, message);
}

RelayError RelayError::malformed() {
  return RelayError(Kind::malformed, {}, "relay: the answer does not parse");
}

}  // namespace quorvane

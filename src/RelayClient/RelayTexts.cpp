#include "RelayClient/RelayTexts.h"

namespace quorvane {

std::string relayFailureText(const RelayError& error) {
  switch (error.kind()) {
    case RelayErrorKind::transport:
      return "the relay is not reachable. Check your internet connection.";
    case RelayErrorKind::http:
      return "the relay answered with error " + std::to_string(error.status());
    case RelayErrorKind::malformed: break;
  }
  return "the relay's answer could not be read.";
}

}  // namespace quorvane

#include "Pairing/PairingError.h"

#include <string>

namespace quorvane {

PairingError::PairingError(Kind kind) : KindedError(kind, {}, std::string(text(kind))) {}

std::string_view PairingError::text(Kind kind) {
  switch (kind) {
    case Kind::notACode: return "This is not a Quorvane pairing code.";
    case Kind::unreadableCode:
      return "The code could not be read. Show a new one on the other computer.";
    case Kind::expired: return "The code expired. Start again and scan it within 5 minutes.";
    case Kind::alreadyUsed:
      return "This code was already used or has expired. Show a new one on the other computer.";
    case Kind::timedOut:
      return "The other side did not answer in time. Start again with a new code.";
  }
  return "pairing failed";
}

}  // namespace quorvane

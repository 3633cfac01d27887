#pragma once

#include <string>
#include <string_view>

#include "RelayClient/RelayError.h"

namespace quorvane {

// What the user is told when a relay operation fails, completing a sentence such as "Remote
// approval failed: ": for a transport failure "the relay is not reachable. Check your internet
// connection.", for a refused status "the relay answered with error " and the status, and for an
// answer that does not parse "the relay's answer could not be read.".
std::string relayFailureText(const RelayError& error);

// Shown during pairing for any relay failure.
inline constexpr std::string_view kPairingRelayFailureText =
    "No connection to the Quorvane relay. Check your internet connection.";

}  // namespace quorvane

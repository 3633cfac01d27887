#pragma once

#include <string_view>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class PairingErrorKind {
  notACode,        // the text does not start with "quorvane:pair:"
  unreadableCode,  // the code's payload is damaged, or the offer does not open with its key
  expired,         // the offer's time ran out before the device scanned it
  alreadyUsed,     // the code's box is gone or holds no offer: used, or expired and removed
  timedOut,        // the other side did not answer before the deadline
};

// The user-facing failures of pairing. Each kind has one fixed sentence, which is `what()`.
// Protocol failures (a changed or forged message) are QAPFailure; relay failures are RelayError.
class PairingError : public KindedError<PairingError, PairingErrorKind> {
 public:
  static constexpr EnumNames<Kind, 5> kKindNames{"PairingError",
                                                 {{{Kind::notACode, "notACode"},
                                                   {Kind::unreadableCode, "unreadableCode"},
                                                   {Kind::expired, "expired"},
                                                   {Kind::alreadyUsed, "alreadyUsed"},
                                                   {Kind::timedOut, "timedOut"}}}};

  explicit PairingError(Kind kind);

  // The sentence shown for `kind`.
  static std::string_view text(Kind kind);
};

}  // namespace quorvane

#pragma once

#include <string>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane::relay {

enum class RelayServerErrorKind {
  store,     // the store failed (SQLite or Redis); the message says what and why
  listen,    // the listening address is unusable
  tls,       // the certificate or key cannot be loaded
  settings,  // a command-line value is out of range
};

// Why the relay cannot start or a store operation failed: the message is for the operator.
class RelayServerError : public KindedError<RelayServerError, RelayServerErrorKind> {
 public:
  static constexpr EnumNames<Kind, 4> kKindNames{"RelayServerError",
                                                 {{{Kind::store, "store"},
                                                   {Kind::listen, "listen"},
                                                   {Kind::tls, "tls"},
                                                   {Kind::settings, "settings"}}}};

  RelayServerError(Kind kind, const std::string& message) : KindedError(kind, {}, message) {}
};

}  // namespace quorvane::relay

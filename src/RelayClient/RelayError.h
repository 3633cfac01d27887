#pragma once

#include <string>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class RelayErrorKind {
  http,       // the relay answered with a status that the operation does not accept
  transport,  // the request did not complete (no connection, TLS, time-out, cancelled)
  malformed,  // the answer did not parse (JSON, base64, a missing or mistyped field)
};

struct RelayErrorPayload {
  int status = 0;           // http: the status the relay answered with
  std::string description;  // transport: what went wrong, in the HTTP library's words
  friend bool operator==(const RelayErrorPayload&, const RelayErrorPayload&) = default;
};

// The error of every relay operation. Nothing is retried where it is thrown: retrying and backing
// off belong to the callers (see PollBackoff). `what()` is a technical sentence for logs; the
// words shown to the user come from relayFailureText.
class RelayError : public KindedError<RelayError, RelayErrorKind, RelayErrorPayload> {
 public:
  static constexpr EnumNames<Kind, 3> kKindNames{
      "RelayError",
      {{{Kind::http, "http"}, {Kind::transport, "transport"}, {Kind::malformed, "malformed"}}}};

  static RelayError http(int status);
  static RelayError transport(std::string description);
  static RelayError malformed();

  int status() const { return payload().status; }
  const std::string& description() const { return payload().description; }

 private:
  RelayError(Kind kind, RelayErrorPayload payload, const std::string& message);
};

// The description of a transport failure caused by the caller's stop request.
inline constexpr const char* kRelayCancelledDescription = "the request was cancelled";

}  // namespace quorvane

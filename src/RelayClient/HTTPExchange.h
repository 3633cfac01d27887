#pragma once

#include <optional>
#include <stop_token>
#include <string>

#include "Base/SecureBytes.h"
#include "RelayClient/RelayEndpoint.h"
#include "RelayClient/RelayRequests.h"

namespace quorvane {

// The relay's answer to one request.
struct HTTPAnswer {
  int status = 0;
  SecureBytes body;                 // may hold credentials (mailbox creation)
  std::optional<std::string> date;  // the "Date" header of the final answer, if any
};

// Answers larger than this are refused (RelayError::malformed) rather than held in memory.
inline constexpr size_t kRelayAnswerLimit = 32 << 20;

// Performs `request` against `endpoint` with libcurl and returns the answer, whatever its status
// (checking the status against `request.accepted` is the caller's). Throws
// RelayError::transport with libcurl's description when the request does not complete (no
// connection, TLS failure, time-out), or with kRelayCancelledDescription as soon as `stop` is
// requested; RelayError::malformed for an answer over kRelayAnswerLimit. Redirects are not
// followed. Safe to call from several threads at once.
HTTPAnswer performHTTP(const RelayEndpoint& endpoint, const RelayRequest& request,
                       std::stop_token stop = {});

}  // namespace quorvane

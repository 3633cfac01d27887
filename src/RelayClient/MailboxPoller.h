#pragma once

#include <functional>
#include <stop_token>

#include "RelayClient/MailboxCredentials.h"
#include "RelayClient/RelayError.h"
#include "RelayClient/RelayTransport.h"

namespace quorvane {

// Waits `seconds` or until `stop` is requested; false when it was stopped.
using PollSleep = std::function<bool(double seconds, std::stop_token stop)>;

// The real sleep: a wait on a condition that a stop request ends at once.
bool sleepUnlessStopped(double seconds, std::stop_token stop);

// What a poller tells its owner.
struct PollHandlers {
  // Each message, in the relay's order, as soon as its fetch returns.
  std::function<void(const RelayMessage&)> onMessage;
  // A failed fetch and the delay (PollBackoff) before the next one; may be empty.
  std::function<void(const RelayError&, double delay)> onFailure;
  // A fetch that succeeded, before its messages are handed on; may be empty.
  std::function<void()> onFetched = nullptr;
};

// Keeps one waiting fetch open on `mailbox` until `stop` is requested: hands every message on,
// and after a failed fetch sleeps as PollBackoff says before trying again. Returns when stopped
// (a fetch in flight is cancelled). Exceptions thrown by the handlers pass through.
void pollMailbox(RelayTransport& relay, const MailboxCredentials& mailbox, std::stop_token stop,
                 const PollHandlers& handlers, const PollSleep& sleep = sleepUnlessStopped);

}  // namespace quorvane

#include "RelayClient/MailboxPoller.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "RelayClient/PollBackoff.h"

namespace quorvane {

bool sleepUnlessStopped(double seconds, std::stop_token stop) {
  std::mutex mutex;
  std::condition_variable_any wake;
  std::unique_lock lock(mutex);
  wake.wait_for(lock, stop, std::chrono::duration<double>(seconds), [] { return false; });
  return !stop.stop_requested();
}

void pollMailbox(RelayTransport& relay, const MailboxCredentials& mailbox, std::stop_token stop,
                 const PollHandlers& handlers, const PollSleep& sleep) {
  PollBackoff backoff;
  while (!stop.stop_requested()) {
    std::vector<RelayMessage> messages;
    try {
      messages = relay.fetch(mailbox, /*wait=*/true, stop);
    } catch (const RelayError& error) {
      if (stop.stop_requested()) return;
      const double delay = backoff.delayAfterFailure();
      if (handlers.onFailure) handlers.onFailure(error, delay);
      if (!sleep(delay, stop)) return;
      continue;
    }
    backoff.succeeded();
    if (handlers.onFetched) handlers.onFetched();
    for (const RelayMessage& message : messages)
      if (handlers.onMessage) handlers.onMessage(message);
  }
}

}  // namespace quorvane

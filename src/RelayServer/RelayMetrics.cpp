#include "RelayServer/RelayMetrics.h"

namespace quorvane::relay {

void RelayMetrics::countRequest(const std::string& method, const std::string& route, int status) {
  const bool known = method == "GET" || method == "HEAD" || method == "POST" || method == "DELETE";
  MutexLock lock(mutex_);
  ++requests_[{known ? method : "other", route, status}];
}

std::string RelayMetrics::prometheusText(const Gauges& gauges) {
  std::string text =
      "# HELP quorvane_relay_requests_total Requests answered, by method, route and status.\n"
      "# TYPE quorvane_relay_requests_total counter\n";
  {
    MutexLock lock(mutex_);
    // Routes are fixed patterns and methods a fixed set, so the labels need no escaping.
    for (const auto& [key, count] : requests_) {
      const auto& [method, route, status] = key;
      text += "quorvane_relay_requests_total{method=\"" + method + "\",route=\"" + route +
              "\",status=\"" + std::to_string(status) + "\"} " + std::to_string(count) + "\n";
    }
  }
  auto gauge = [&](const char* name, const char* help, uint64_t value) {
    text += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " gauge\n" + name +
            " " + std::to_string(value) + "\n";
  };
  gauge("quorvane_relay_waiting_fetches", "Fetches waiting for a message now.",
        gauges.waitingFetches);
  gauge("quorvane_relay_mailboxes", "Mailboxes in the store.", gauges.mailboxes);
  gauge("quorvane_relay_messages_stored", "Messages in the store.", gauges.messagesStored);
  return text;
}

}  // namespace quorvane::relay

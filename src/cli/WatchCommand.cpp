#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <iostream>
#include <map>
#include <thread>

#include "ControlProtocol/ControlClient.h"
#include "ControlProtocol/ControlError.h"
#include "PromptModel/PromptRequest.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"
#include "cli/Terminal.h"
#include "cli/TypedLines.h"

namespace quorvane::cli {
namespace {

using namespace std::chrono_literals;

// The typed lines, which also answer the agent's verification prompts.
class TypedInput : public TypedLines {
 public:
  // Answers a verification prompt: on a terminal without echo; otherwise the next typed line.
  std::optional<SecureBytes> answer(const PresencePrompt& prompt) {
    if (::isatty(STDIN_FILENO) || !prompt.asks()) return answerPresencePrompt(prompt);
    std::cerr << prompt.text << std::flush;
    while (!hasLine())
      if (!read()) return std::nullopt;
    std::string text = *line();
    SecureBytes typed(ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
    secureWipe(text.data(), text.size());
    return typed;
  }
};

// The choices for `request`, as the line that waits for the answer.
std::string answerPrompt(const JSON& request) {
  const bool window = request.value("windowAllowed", false);
  return std::string("  [o]nce") + (window ? ", [w]indow (5m 15m 30m 1h 12h 24h)" : "") +
         ", [d]eny, deny and [b]lock > ";
}

// One watch session on one agent connection: the requests waiting now, oldest first; the first
// is the one on screen.
class WatchSession {
 public:
  WatchSession(ControlClient& agent, TypedInput& typed) : agent_(agent), typed_(typed) {}

  // Runs until the agent goes away (true) or the input ends (false).
  bool run();

 private:
  void onEvent(const JSON& event);
  void onLine(const std::string& line);
  void showFront();

  ControlClient& agent_;
  TypedInput& typed_;
  std::deque<JSON> waiting_;
};

bool WatchSession::run() {
  for (;;) {
    if (!agent_.hasBufferedLine()) {
      pollfd watched[2] = {{agent_.fd(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
      if (::poll(watched, 2, -1) < 0) continue;
      if ((watched[1].revents & (POLLIN | POLLHUP)) != 0) {
        if (!typed_.read()) return false;
        while (auto line = typed_.line()) onLine(*line);
      }
      if ((watched[0].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
    }
    auto event = agent_.next();
    if (!event) return true;
    onEvent(*event);
  }
}

void WatchSession::onEvent(const JSON& event) {
  const std::string kind = event.value("event", "");
  if (kind == "request") {
    const JSON& request = event["request"];
    auto queued = std::ranges::find_if(
        waiting_, [&](const JSON& r) { return r.value("id", "") == request.value("id", ""); });
    if (queued == waiting_.end()) {
      waiting_.push_back(request);
      if (waiting_.size() == 1) showFront();
      return;
    }
    // Announced again: the agent tells that it must now be answered here (or no longer must).
    const bool nowOffline =
        request.value("remoteOffline", false) && !queued->value("remoteOffline", false);
    const bool shown = queued == waiting_.begin();
    *queued = request;
    if (shown && nowOffline)
      std::cout << "\n  " << kRemoteOfflineText << "\n" << answerPrompt(request) << std::flush;
    return;
  }
  if (kind != "ended") return;
  const std::string id = event.value("id", "");
  const bool wasShown = !waiting_.empty() && waiting_.front().value("id", "") == id;
  std::erase_if(waiting_, [&](const JSON& request) { return request.value("id", "") == id; });
  if (!wasShown) return;
  std::cout << "\n  This request ended (answered elsewhere, expired, or its program left).\n";
  showFront();
}

void WatchSession::showFront() {
  typed_.discard();
  if (waiting_.empty()) {
    std::cout << "Waiting for signature requests (Ctrl-C to stop)…\n" << std::flush;
    return;
  }
  const JSON& request = waiting_.front();
  showRequest(request);
  if (waiting_.size() > 1) std::cout << "  (" << waiting_.size() - 1 << " more waiting)\n";
  std::cout << answerPrompt(request) << std::flush;
}

void WatchSession::onLine(const std::string& answer) {
  if (waiting_.empty()) {
    std::cout << "  Nothing is waiting; that was not an answer.\n" << std::flush;
    return;
  }
  const JSON request = waiting_.front();
  const std::string id = request.value("id", "");
  const bool window = request.value("windowAllowed", false);
  JSON message = {
      {"message", "answer"}, {"id", id}, {"approve", true}, {"frontend", "quorvane watch"}};
  if (answer == "d" || answer == "deny") {
    message["approve"] = false;
  } else if (answer == "b" || answer == "block") {
    message["approve"] = false;
    message["block"] = true;
  } else if (window && (answer == "w" || kWindows.contains(answer))) {
    message["windowSeconds"] = kWindows.at(answer == "w" ? "15m" : answer);
  } else if (answer != "o" && answer != "once") {
    std::cout << "  Not an answer: type o, " << (window ? "w, " : "") << "d or b > " << std::flush;
    return;
  }
  auto second = ControlClient::connect();
  JSON result =
      second ? second->exchange(message, [&](const PresencePrompt& p) { return typed_.answer(p); })
             : JSON{{"ok", false}, {"error", "the agent is gone"}};
  std::cout << (result.value("ok", false) ? "  Answered.\n"
                                          : "  " + result.value("error", "refused") + "\n");
  if (message.value("block", false)) showBlocks();
  // The agent reports the request's end; until then the next one is not shown twice.
  std::erase_if(waiting_, [&](const JSON& r) { return r.value("id", "") == id; });
  showFront();
}

}  // namespace

// Starts a watch stream; nothing when no agent answers (or one that is stopping hangs up).
std::optional<ControlClient> startWatching() {
  auto agent = ControlClient::connect();
  if (!agent) return std::nullopt;
  try {
    agent->request({{"message", "watch"}});
  } catch (const ControlError&) {
    return std::nullopt;
  }
  return agent;
}

// Shows exactly the requests that wait now; says at once when the agent goes away, and carries
// on when it comes back.
void watchRequests() {
  std::cout << std::unitbuf;  // every line shows at once, also when the output is not a terminal
  TypedInput typed;
  bool announcedAbsence = false;
  for (;;) {
    auto agent = startWatching();
    if (!agent) {
      if (!announcedAbsence) std::cout << "The agent is not running; waiting for it…\n";
      announcedAbsence = true;
      std::this_thread::sleep_for(1s);
      continue;
    }
    if (announcedAbsence) std::cout << "Connected to the agent.\n";
    announcedAbsence = false;
    try {
      showBlocks();
    } catch (const std::exception&) {
      // The blocks are a courtesy; the stream below tells whether the agent is still there.
    }
    WatchSession session(*agent, typed);
    std::cout << "Waiting for signature requests (Ctrl-C to stop)…\n";
    bool agentGone = true;
    try {
      agentGone = session.run();
    } catch (const ControlError&) {
    }
    if (!agentGone) return;
    std::cout << "\nThe agent stopped; waiting for it to come back…\n";
    announcedAbsence = true;
  }
}

}  // namespace quorvane::cli

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <deque>
#include <iostream>
#include <mutex>
#include <thread>

#include "ApprovalProto/ProtocolTime.h"
#include "ApproverSession/ApproverError.h"
#include "ApproverSession/RequestIDs.h"
#include "Base/Hex.h"
#include "RelayClient/MailboxPoller.h"
#include "RelayClient/PollBackoff.h"
#include "RelayClient/RelayTexts.h"
#include "cli/ApproverSupport.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"
#include "cli/Terminal.h"
#include "cli/TypedLines.h"

namespace quorvane::cli {
namespace {

// A receive that came back sooner than this is not followed at once by the next one, so that a
// relay that answers at once (or several relays polled without waiting) is not asked in a loop.
constexpr double kShortestReceiveSpacing = 0.25;

// Written by the signal handler and by the receiving thread to wake the main loop.
int wakeFD = -1;
std::atomic<bool> interrupted{false};

void onInterrupt(int) {
  interrupted = true;
  const char byte = 0;
  [[maybe_unused]] ssize_t ignored = ::write(wakeFD, &byte, 1);
}

// What the receiving thread tells the main thread.
struct WatchEvent {
  enum class Kind { received, rejected, notice, offline, online, fatal };
  Kind kind;
  std::string text;  // the failure's name, or the message
};

// Receives on its own thread, with its own session (sessions are used by one thread each), and
// hands what it found to the main thread.
class Receiver {
 public:
  Receiver() : run_(ApproverRun::open()) {}

  void start() {
    thread_ = std::jthread([this](std::stop_token stop) { loop(stop); });
  }
  void stop() {
    thread_.request_stop();
    if (thread_.joinable()) thread_.join();
  }
  std::deque<WatchEvent> take() {
    std::lock_guard lock(mutex_);
    return std::exchange(events_, {});
  }

 private:
  void post(WatchEvent event) {
    {
      std::lock_guard lock(mutex_);
      events_.push_back(std::move(event));
    }
    const char byte = 1;
    [[maybe_unused]] ssize_t ignored = ::write(wakeFD, &byte, 1);
  }

  void loop(std::stop_token stop) {
    PollBackoff backoff;
    bool offline = false;
    bool toldOfMissingMailboxes = false;
    while (!stop.stop_requested()) {
      const auto started = std::chrono::steady_clock::now();
      ApproverSession::Received received;
      try {
        received = run_->session->receive(true, stop);
      } catch (const ApproverError& error) {
        return post({WatchEvent::Kind::fatal, error.what()});
      } catch (const std::exception& error) {
        received.relayFailures.emplace_back("", RelayError::transport(error.what()));
      }
      if (stop.stop_requested()) return;
      // What arrived is read back from the inbox by the main thread, which sees other runs'
      // changes there too; only what the inbox does not keep is told here.
      for (std::string& failure : received.rejected)
        post({WatchEvent::Kind::rejected, std::move(failure)});
      post({WatchEvent::Kind::received, ""});
      // Said once: it does not change while the watch runs.
      if (!toldOfMissingMailboxes) {
        for (const std::string& relayURL : received.withoutMailbox)
          post({WatchEvent::Kind::notice, missingMailboxText(relayURL)});
        toldOfMissingMailboxes = true;
      }
      if (!received.relayFailures.empty()) {
        // Said once per outage; the back-off keeps a dead relay from being asked in a loop.
        const auto& [relayURL, error] = received.relayFailures.front();
        if (!offline)
          post({WatchEvent::Kind::offline, relayURL.empty()
                                               ? std::string("Receiving failed: ") + error.what()
                                               : relayProblemText(relayURL, error)});
        offline = true;
        if (!sleepUnlessStopped(backoff.delayAfterFailure(), stop)) return;
        continue;
      }
      if (offline) post({WatchEvent::Kind::online, ""});
      offline = false;
      backoff.succeeded();
      const double took =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
      if (took < kShortestReceiveSpacing &&
          !sleepUnlessStopped(kShortestReceiveSpacing - took, stop))
        return;
    }
  }

  std::unique_ptr<ApproverRun> run_;
  std::mutex mutex_;
  std::deque<WatchEvent> events_;  // guarded by mutex_
  std::jthread thread_;
};

bool offersFiveMinutes(const ApprovalRequestMessage& request) {
  for (qap::ApprovalScope scope : request.scopes)
    if (scope == qap::ApprovalScope::fiveMinutes) return true;
  return false;
}

// The watch on the main thread. It shows what the inbox holds, read again after every receive
// and every second, so that changes made by other runs (an answer given with `approver answer`,
// another watch receiving first) show too. On a terminal the oldest waiting request is the one
// on screen and the keyboard answers it.
class ApproverWatch {
 public:
  ApproverWatch(bool json, bool interactive, int wakeReadFD)
      : run_(ApproverRun::open()), json_(json), interactive_(interactive), wake_(wakeReadFD) {}

  // Runs until Ctrl-C or the end of the typed input; a failure that ends it is returned.
  std::optional<std::string> run();

 private:
  // Compares the inbox with what is known and tells the differences.
  void refresh();
  void arrived(const WaitingRequest& request);
  void gone(const WaitingRequest& request, bool wasShown, const ApproverSession::Snapshot& now);
  void onEvent(const WatchEvent& event);
  void onLine(const std::string& line);
  void showFront();
  void emit(const JSON& event) {
    std::cout << event.dump(-1, ' ', false, JSON::error_handler_t::replace) << "\n";
  }
  void note(const std::string& text) { std::cout << (interactive_ ? "\n  " : "") << text << "\n"; }

  std::unique_ptr<ApproverRun> run_;
  const bool json_;
  const bool interactive_;
  const int wake_;
  TypedLines typed_;
  std::vector<WaitingRequest> known_;  // the waiting requests as last shown, oldest first
  std::vector<std::string> computers_;
};

std::optional<std::string> ApproverWatch::run() {
  for (const PairedMac& mac : run_->session->computers()) computers_.push_back(mac.identity.name);
  if (computers_.empty()) throw ApproverError(ApproverErrorKind::notPaired, "");
  if (!json_) {
    std::cout << "Watching for requests from ";
    for (size_t i = 0; i < computers_.size(); ++i)
      std::cout << (i == 0 ? "" : ", ") << printable(computers_[i]);
    std::cout << " (Ctrl-C to stop).\n";
    if (!interactive_)
      std::cout << "Standard input is not a terminal: requests are listed; answer them with "
                   "quorvane approver answer ID.\n";
  }
  refresh();
  if (interactive_ && known_.empty()) showFront();

  Receiver receiver;
  receiver.start();
  std::optional<std::string> failure;
  while (!interrupted) {
    pollfd watched[2] = {{wake_, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    if (::poll(watched, interactive_ ? 2 : 1, 1000) < 0) continue;  // a signal: checked above
    if ((watched[0].revents & POLLIN) != 0) {
      char drain[64];
      while (::read(wake_, drain, sizeof drain) > 0) {
      }
    }
    refresh();
    for (const WatchEvent& event : receiver.take()) {
      if (event.kind == WatchEvent::Kind::fatal) failure = event.text;
      onEvent(event);
    }
    if (failure) break;
    if (interactive_ && (watched[1].revents & (POLLIN | POLLHUP)) != 0) {
      if (!typed_.read()) break;  // the end of input ends the watch
      while (auto line = typed_.line()) onLine(*line);
    }
  }
  receiver.stop();
  if (!json_ && !failure) std::cout << "\nStopped watching.\n";
  return failure;
}

void ApproverWatch::refresh() {
  const ApproverSession::Snapshot now = run_->session->snapshot();
  auto waitsNow = [&](const WaitingRequest& request) {
    return std::ranges::any_of(now.waiting, [&](const WaitingRequest& w) {
      return w.request.requestID == request.request.requestID;
    });
  };
  const std::vector<WaitingRequest> before = std::exchange(known_, now.waiting);
  bool frontGone = false;
  for (size_t i = 0; i < before.size(); ++i)
    if (!waitsNow(before[i])) {
      frontGone = frontGone || i == 0;
      gone(before[i], i == 0, now);
    }
  for (const PairedMac& mac : now.computers) std::erase(computers_, mac.identity.name);
  for (const std::string& name : computers_) {
    if (json_) {
      emit({{"event", "unpaired"}, {"computer", name}});
    } else {
      note(printable(name) + " removed its pairing with this computer.");
    }
  }
  computers_.clear();
  for (const PairedMac& mac : now.computers) computers_.push_back(mac.identity.name);

  bool arrivedAny = false;
  for (const WaitingRequest& request : now.waiting)
    if (std::ranges::none_of(before, [&](const WaitingRequest& w) {
          return w.request.requestID == request.request.requestID;
        })) {
      arrivedAny = true;
      arrived(request);
    }
  // On a terminal the screen shows the oldest request: again when it changed.
  if (interactive_ && (frontGone || (arrivedAny && known_.size() == 1 && before.empty())))
    showFront();
}

void ApproverWatch::arrived(const WaitingRequest& request) {
  if (json_) return emit({{"event", "request"}, {"request", waitingRequestJSON(request)}});
  if (!interactive_) showWaitingRequest(request, run_->clock.now());
}

void ApproverWatch::gone(const WaitingRequest& request, bool wasShown,
                         const ApproverSession::Snapshot& now) {
  const Bytes& requestID = request.request.requestID;
  auto closed = std::ranges::find_if(
      now.closed, [&](const ClosedRequest& c) { return c.requestID == requestID; });
  std::string event = "gone";
  std::string text = "is gone (its computer is no longer paired).";
  if (closed != now.closed.end()) switch (closed->reason) {
      case ClosedReason::answered:
        event = "answered";
        text = "was answered by another quorvane command on this computer.";
        break;
      case ClosedReason::settledElsewhere:
        event = "settled";
        text = "was settled elsewhere.";
        break;
      case ClosedReason::expired:
        event = "expired";
        text = "has expired.";
        break;
    }
  if (json_)
    return emit(
        {{"event", event}, {"id", shortRequestID(requestID)}, {"requestID", hexEncode(requestID)}});
  if (interactive_ && !wasShown) return;
  note("Request " + shortRequestID(requestID) + " " + text);
}

void ApproverWatch::onEvent(const WatchEvent& event) {
  using Kind = WatchEvent::Kind;
  switch (event.kind) {
    case Kind::received:
    case Kind::fatal: return;
    case Kind::rejected:
      if (json_) return emit({{"event", "rejected"}, {"failure", event.text}});
      std::cerr << "quorvane: a message that did not open was dropped (" << event.text << ").\n";
      return;
    case Kind::notice:
      if (json_) return emit({{"event", "notice"}, {"text", event.text}});
      note(event.text);
      return;
    case Kind::offline:
      if (json_) return emit({{"event", "offline"}, {"text", event.text}});
      note(event.text + " Trying again…");
      return;
    case Kind::online:
      if (json_) return emit({{"event", "online"}});
      note("The relay answers again.");
      return;
  }
}

void ApproverWatch::showFront() {
  typed_.discard();
  if (known_.empty()) {
    std::cout << "Waiting for requests…\n";
    return;
  }
  const WaitingRequest& front = known_.front();
  showWaitingRequest(front, run_->clock.now());
  if (known_.size() > 1) std::cout << "  (" << known_.size() - 1 << " more waiting)\n";
  std::cout << "  [o]nce" << (offersFiveMinutes(front.request) ? ", [f]ive minutes" : "")
            << ", [d]eny, deny and [b]lock > " << std::flush;
}

void ApproverWatch::onLine(const std::string& typed) {
  if (known_.empty()) {
    std::cout << "  Nothing is waiting; that was not an answer.\n";
    return;
  }
  const WaitingRequest front = known_.front();
  const bool fiveOffered = offersFiveMinutes(front.request);
  ApprovalDecision decision = ApprovalDecision::approve;
  qap::ApprovalScope scope = qap::ApprovalScope::once;
  std::string done = "Approved once.";
  if (typed == "d" || typed == "deny") {
    decision = ApprovalDecision::deny;
    done = "Denied.";
  } else if (typed == "b" || typed == "block") {
    decision = ApprovalDecision::denyAndBlock;
    done = "Denied and blocked.";
  } else if (fiveOffered && (typed == "f" || typed == "5m")) {
    scope = qap::ApprovalScope::fiveMinutes;
    done = "Approved for five minutes.";
  } else if (typed != "o" && typed != "once") {
    std::cout << "  Not an answer: type o, " << (fiveOffered ? "f, " : "") << "d or b > "
              << std::flush;
    return;
  }
  try {
    run_->session->answer(hexEncode(front.request.requestID), decision, scope, true);
    std::cout << "  " << done << "\n";
  } catch (const ApproverError& error) {
    std::cout << "  " << error.what() << "\n";
  } catch (const RelayError& error) {
    // The request still waits: the same answer can be typed again.
    std::cout << "  " << relayFailureText(error) << " Nothing was sent; answer again > "
              << std::flush;
    return;
  }
  // Known to be gone: the next refresh need not say so.
  std::erase_if(known_, [&](const WaitingRequest& w) {
    return w.request.requestID == front.request.requestID;
  });
  showFront();
}

}  // namespace

void watchApproverRequests(bool json) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) throw CommandFailure("can't make a pipe");
  wakeFD = fds[1];
  struct sigaction action {};
  action.sa_handler = onInterrupt;
  ::sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
  std::cout << std::unitbuf;  // every line shows at once, also when the output is not a terminal
  const bool interactive = !json && ::isatty(STDIN_FILENO);
  const std::optional<std::string> failure = ApproverWatch(json, interactive, fds[0]).run();
  if (failure) throw CommandFailure(*failure);
}

}  // namespace quorvane::cli

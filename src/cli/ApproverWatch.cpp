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
  enum class Kind { arrived, settled, expired, unpaired, rejected, offline, online, fatal };
  Kind kind;
  std::optional<WaitingRequest> request;
  std::string text;  // the computer, the failure's name, or the message
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
    while (!stop.stop_requested()) {
      const auto started = std::chrono::steady_clock::now();
      ApproverSession::Received received;
      try {
        received = run_->session->receive(true, stop);
      } catch (const ApproverError& error) {
        return post({WatchEvent::Kind::fatal, std::nullopt, error.what()});
      } catch (const std::exception& error) {
        received.relayFailures.emplace_back("", RelayError::transport(error.what()));
      }
      if (stop.stop_requested()) return;
      for (WaitingRequest& request : received.arrived)
        post({WatchEvent::Kind::arrived, std::move(request), ""});
      for (WaitingRequest& request : received.settledElsewhere)
        post({WatchEvent::Kind::settled, std::move(request), ""});
      for (WaitingRequest& request : received.expired)
        post({WatchEvent::Kind::expired, std::move(request), ""});
      for (std::string& computer : received.unpairedBy)
        post({WatchEvent::Kind::unpaired, std::nullopt, std::move(computer)});
      for (std::string& failure : received.rejected)
        post({WatchEvent::Kind::rejected, std::nullopt, std::move(failure)});
      if (!received.relayFailures.empty()) {
        // Said once per outage; the back-off keeps a dead relay from being asked in a loop.
        const auto& [relayURL, error] = received.relayFailures.front();
        if (!offline)
          post({WatchEvent::Kind::offline, std::nullopt,
                relayURL.empty() ? std::string("Receiving failed: ") + error.what()
                                 : relayProblemText(relayURL, error)});
        offline = true;
        if (!sleepUnlessStopped(backoff.delayAfterFailure(), stop)) return;
        continue;
      }
      if (offline) post({WatchEvent::Kind::online, std::nullopt, ""});
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

// Lines typed on standard input, read only when poll says something is there.
class TypedLines {
 public:
  // Reads what is available; false at the end of input.
  bool read() {
    char chunk[256];
    const ssize_t count = ::read(STDIN_FILENO, chunk, sizeof chunk);
    if (count <= 0) return false;
    pending_.append(chunk, static_cast<size_t>(count));
    return true;
  }
  std::optional<std::string> line() {
    const size_t end = pending_.find('\n');
    if (end == std::string::npos) return std::nullopt;
    std::string text = pending_.substr(0, end);
    pending_.erase(0, end + 1);
    return text;
  }
  // Forgets what was typed before now: an answer belongs to the request it was typed for.
  void discard() {
    ::tcflush(STDIN_FILENO, TCIFLUSH);
    pending_.clear();
  }

 private:
  std::string pending_;
};

bool offersFiveMinutes(const ApprovalRequestMessage& request) {
  for (qap::ApprovalScope scope : request.scopes)
    if (scope == qap::ApprovalScope::fiveMinutes) return true;
  return false;
}

// The watch on the main thread: the requests waiting, oldest first; on a terminal the first is
// the one on screen and the keyboard answers it.
class ApproverWatch {
 public:
  ApproverWatch(bool json, bool interactive, int wakeReadFD)
      : run_(ApproverRun::open()), json_(json), interactive_(interactive), wake_(wakeReadFD) {}

  // Runs until Ctrl-C, the end of the typed input, or a failure that ends it (exit code 1).
  int run();

 private:
  void onEvent(WatchEvent event);
  void onLine(const std::string& line);
  void showFront();
  // Drops the front request when its deadline passed while it was on screen.
  void expireFront();
  void catchUpQuietly();
  // Removes a request from the queue; whether it was the one on screen.
  bool remove(const Bytes& requestID);
  void emit(const JSON& event) {
    std::cout << event.dump(-1, ' ', false, JSON::error_handler_t::replace) << "\n";
  }
  void note(const std::string& text) { std::cout << (interactive_ ? "\n  " : "") << text << "\n"; }

  std::unique_ptr<ApproverRun> run_;
  const bool json_;
  const bool interactive_;
  const int wake_;
  TypedLines typed_;
  std::deque<WaitingRequest> queue_;
};

int ApproverWatch::run() {
  const std::vector<PairedMac> computers = run_->session->computers();
  if (computers.empty()) throw ApproverError(ApproverErrorKind::notPaired, "");
  if (!json_) {
    std::cout << "Watching for requests from ";
    for (size_t i = 0; i < computers.size(); ++i)
      std::cout << (i == 0 ? "" : ", ") << printable(computers[i].identity.name);
    std::cout << " (Ctrl-C to stop).\n";
    if (!interactive_)
      std::cout << "Standard input is not a terminal: requests are listed; answer them with "
                   "quorvane approver answer ID.\n";
  }
  catchUpQuietly();
  for (WaitingRequest& request : run_->session->waiting())
    onEvent({WatchEvent::Kind::arrived, std::move(request), ""});
  if (interactive_ && queue_.empty()) showFront();

  Receiver receiver;
  receiver.start();
  int exitCode = 0;
  while (!interrupted) {
    pollfd watched[2] = {{wake_, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    if (::poll(watched, interactive_ ? 2 : 1, 1000) < 0) continue;  // a signal: checked above
    if ((watched[0].revents & POLLIN) != 0) {
      char drain[64];
      while (::read(wake_, drain, sizeof drain) > 0) {
      }
    }
    for (WatchEvent& event : receiver.take()) {
      if (event.kind == WatchEvent::Kind::fatal) {
        std::cerr << "quorvane: " << event.text << "\n";
        exitCode = 1;
        interrupted = true;
        break;
      }
      onEvent(std::move(event));
    }
    if (interrupted) break;
    if (interactive_ && (watched[1].revents & (POLLIN | POLLHUP)) != 0) {
      if (!typed_.read()) break;  // the end of input ends the watch
      while (auto line = typed_.line()) onLine(*line);
    }
    expireFront();
  }
  receiver.stop();
  if (!json_) std::cout << "\nStopped watching.\n";
  return exitCode;
}

void ApproverWatch::catchUpQuietly() {
  // What arrived while nothing watched; relay trouble is reported by the receiving thread.
  try {
    run_->session->receive(false);
  } catch (const RelayError&) {
  }
}

void ApproverWatch::onEvent(WatchEvent event) {
  using Kind = WatchEvent::Kind;
  const std::string id = event.request ? shortRequestID(event.request->request.requestID) : "";
  switch (event.kind) {
    case Kind::arrived:
      if (json_)
        return emit({{"event", "request"}, {"request", waitingRequestJSON(*event.request)}});
      if (!interactive_) return showWaitingRequest(*event.request, run_->clock.now());
      queue_.push_back(std::move(*event.request));
      if (queue_.size() == 1) showFront();
      return;
    case Kind::settled:
    case Kind::expired: {
      const bool settled = event.kind == Kind::settled;
      if (json_)
        return emit({{"event", settled ? "settled" : "expired"},
                     {"id", id},
                     {"requestID", hexEncode(event.request->request.requestID)}});
      const bool wasShown = remove(event.request->request.requestID);
      if (interactive_ && !wasShown) return;
      note("Request " + id + (settled ? " was settled elsewhere." : " has expired."));
      if (wasShown) showFront();
      return;
    }
    case Kind::unpaired: {
      if (json_) return emit({{"event", "unpaired"}, {"computer", event.text}});
      const bool wasShown = !queue_.empty() && queue_.front().computer == event.text;
      std::erase_if(queue_, [&](const WaitingRequest& r) { return r.computer == event.text; });
      note(printable(event.text) +
           " removed its pairing with this computer; its requests are gone.");
      if (wasShown) showFront();
      return;
    }
    case Kind::rejected:
      if (json_) return emit({{"event", "rejected"}, {"failure", event.text}});
      std::cerr << "quorvane: a message that did not open was dropped (" << event.text << ").\n";
      return;
    case Kind::offline:
      if (json_) return emit({{"event", "offline"}, {"text", event.text}});
      note(event.text + " Trying again…");
      return;
    case Kind::online:
      if (json_) return emit({{"event", "online"}});
      note("The relay answers again.");
      return;
    case Kind::fatal: return;
  }
}

bool ApproverWatch::remove(const Bytes& requestID) {
  const bool wasShown = !queue_.empty() && queue_.front().request.requestID == requestID;
  std::erase_if(queue_, [&](const WaitingRequest& r) { return r.request.requestID == requestID; });
  return wasShown;
}

void ApproverWatch::expireFront() {
  if (!interactive_ || queue_.empty()) return;
  const ApprovalRequestMessage& front = queue_.front().request;
  if (millisecondsSince1970(run_->clock.now()) < front.expiresAt) return;
  note("Request " + shortRequestID(front.requestID) + " has expired.");
  queue_.pop_front();
  showFront();
}

void ApproverWatch::showFront() {
  typed_.discard();
  if (queue_.empty()) {
    std::cout << "Waiting for requests…\n";
    return;
  }
  const WaitingRequest& front = queue_.front();
  showWaitingRequest(front, run_->clock.now());
  if (queue_.size() > 1) std::cout << "  (" << queue_.size() - 1 << " more waiting)\n";
  std::cout << "  [o]nce" << (offersFiveMinutes(front.request) ? ", [f]ive minutes" : "")
            << ", [d]eny, deny and [b]lock > " << std::flush;
}

void ApproverWatch::onLine(const std::string& typed) {
  if (queue_.empty()) {
    std::cout << "  Nothing is waiting; that was not an answer.\n";
    return;
  }
  const WaitingRequest front = queue_.front();
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
  const std::string id = hexEncode(front.request.requestID);
  try {
    run_->session->answer(id, decision, scope, true);
    std::cout << "  " << done << "\n";
  } catch (const ApproverError& error) {
    std::cout << "  " << error.what() << "\n";
  } catch (const RelayError& error) {
    // The request still waits: the same answer can be typed again.
    std::cout << "  " << relayFailureText(error) << " Nothing was sent; answer again > "
              << std::flush;
    return;
  }
  remove(front.request.requestID);
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
  const int exitCode = ApproverWatch(json, interactive, fds[0]).run();
  if (exitCode != 0) throw CommandFailure("the watch stopped", exitCode);
}

}  // namespace quorvane::cli

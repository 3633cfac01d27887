#include "agent/ControlService.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <mutex>

#include "AgentCore/ControlProtocol.h"
#include "Platform/DecodingError.h"
#include "Policy/WindowChoice.h"

namespace quorvane {
namespace {

JSON failure(const std::string& error) { return {{"ok", false}, {"error", error}}; }
JSON success() { return {{"ok", true}}; }

JSON pendingList(const LocalApprover& approver) {
  JSON list = JSON::array();
  for (const ApprovalRequest& request : approver.pending()) list.push_back(toJSON(request));
  return {{"ok", true}, {"pending", list}};
}

bool sameUser(int fd) {
  ucred credentials{};
  socklen_t length = sizeof credentials;
  return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0 &&
         credentials.uid == ::getuid();
}

}  // namespace

ControlService::ControlService(Agent& agent, LocalApprover& approver, Clock& clock, Hooks hooks)
    : agent_(agent), approver_(approver), clock_(clock), hooks_(std::move(hooks)) {}

JSON ControlService::answer(const JSONReader& message) {
  auto id = UUID::parse(message.required("id").string());
  if (!id) return failure("no such request");
  const bool approve = message.required("approve").boolean();
  std::string frontend = "quorvane";
  if (auto given = message.optional("frontend")) frontend = given->string();
  ApprovalResult result;
  if (approve) {
    ApprovalScope scope = ApprovalScope::once();
    if (auto seconds = message.optional("windowSeconds")) {
      auto choice = WindowChoice::fromSeconds(seconds->number());
      if (!choice) return failure("not an approval window: 5m, 15m, 30m, 1h, 12h or 24h");
      scope = ApprovalScope::window(choice->seconds());
    }
    auto context = std::make_shared<AuthContext>(
        AuthContext{"approved with " + frontend, clock_.now()});
    result = {ApprovalResult::Approved{scope, context, "you, with " + frontend, true}};
  } else {
    auto block = message.optional("block");
    result = {ApprovalResult::Denied{block && block->boolean(), "you, with " + frontend}};
  }
  if (!approver_.answer(*id, std::move(result)))
    return failure("no such request: it was answered, expired or never existed");
  return success();
}

JSON ControlService::handle(const JSON& message) {
  try {
    JSONReader reader(message);
    const std::string name = reader.required("message").string();
    if (name == kReloadMessage) {
      if (hooks_.reload) hooks_.reload();
      return success();
    }
    if (name == kLockAllMessage) {
      agent_.lock();
      return success();
    }
    if (name == kPauseRemoteMessage) {
      if (hooks_.pauseRemote) hooks_.pauseRemote();
      return success();
    }
    if (name == "unlock") {
      agent_.unlock();
      return success();
    }
    if (name == kShowPendingMessage || name == "pending") return pendingList(approver_);
    if (name == "status")
      return {{"ok", true},
              {"locked", agent_.isLocked()},
              {"pending", approver_.pending().size()},
              {"epoch", agent_.epoch()},
              {"pid", ::getpid()}};
    if (name == "answer") return answer(reader);
    return failure("unknown message " + name);
  } catch (const DecodingError& error) {
    return failure(error.what());
  }
}

void ControlService::watch(int fd, std::stop_token shutdown) {
  std::mutex writeMutex;
  auto write = [&](const JSON& line) {
    std::lock_guard lock(writeMutex);
    writeControlLine(fd, line);
  };
  int token = approver_.subscribe([&](const LocalApprover::Event& event) {
    if (event.request)
      write({{"event", "request"}, {"request", toJSON(*event.request)}});
    else
      write({{"event", "ended"}, {"id", event.id.uuidString()}});
  });
  write(success());
  for (const ApprovalRequest& request : approver_.pending())
    write({{"event", "request"}, {"request", toJSON(request)}});

  // A watching client only listens; wait until it hangs up or the agent stops.
  pollfd entry{fd, POLLRDHUP, 0};
  while (!shutdown.stop_requested()) {
    entry.revents = 0;
    if (::poll(&entry, 1, 200) > 0 && (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0)
      break;
  }
  approver_.unsubscribe(token);
}

void ControlService::serve(int fd, std::stop_token shutdown) {
  if (!sameUser(fd)) return;
  std::string buffer;
  while (auto line = readControlLine(fd, buffer)) {
    JSON message = JSON::parse(*line, nullptr, false);
    if (!message.is_object()) {
      writeControlLine(fd, failure("not a JSON object"));
      continue;
    }
    if (message.value("message", "") == "watch") {
      watch(fd, shutdown);
      return;
    }
    if (!writeControlLine(fd, handle(message))) return;
  }
}

}  // namespace quorvane

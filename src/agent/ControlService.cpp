#include "agent/ControlService.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>

#include "Base/DecodingError.h"
#include "Base/EnumNames.h"
#include "ControlProtocol/ControlLineIO.h"
#include "ControlProtocol/ControlMessages.h"
#include "ControlProtocol/PromptReply.h"
#include "KeyStore/KeyStoreError.h"
#include "Policy/WindowChoice.h"
#include "SSHWire/SSHPublicKey.h"

namespace quorvane {
namespace {

constexpr EnumNames<LocalApprover::Ending, 3> kEndingNames{
    "Ending",
    {{{LocalApprover::Ending::answered, "answered"},
      {LocalApprover::Ending::expired, "expired"},
      {LocalApprover::Ending::cancelled, "cancelled"}}}};

constexpr time_t kWatcherSendLimitSeconds = 5;

JSON failure(const std::string& error) { return {{"ok", false}, {"error", error}}; }
JSON success() { return {{"ok", true}}; }

bool sameUser(int fd) {
  ucred credentials{};
  socklen_t length = sizeof credentials;
  return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0 &&
         credentials.uid == ::getuid();
}

// Reads the reply to a prompt: one line, straight into wiping memory, within `timeout`. Nothing
// when the client hangs up, sends a line over kMaxPromptReplyLength, stays silent, or the agent
// stops. Bytes after the line stay in `buffer` for the connection's next message.
std::optional<SecureBytes> readReplyLine(int fd, std::string& buffer,
                                         std::chrono::milliseconds timeout,
                                         std::stop_token shutdown) {
  SecureBytes line(kMaxPromptReplyLength);
  size_t length = 0;
  // Takes bytes into the line up to a newline: 1 at the newline (the rest goes to `buffer`),
  // 0 for more, -1 when the line is too long.
  auto absorb = [&](const uint8_t* bytes, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      if (bytes[i] == '\n') {
        buffer.assign(reinterpret_cast<const char*>(bytes) + i + 1, count - i - 1);
        return 1;
      }
      if (length == line.size()) return -1;
      line.data()[length++] = bytes[i];
    }
    return 0;
  };
  auto finished = [&](int state) -> std::optional<SecureBytes> {
    if (state < 0) return std::nullopt;
    return SecureBytes(ByteView(line.data(), length));
  };

  if (!buffer.empty()) {
    SecureBytes early(ByteView(reinterpret_cast<const uint8_t*>(buffer.data()), buffer.size()));
    secureWipe(buffer.data(), buffer.size());
    buffer.clear();
    if (int state = absorb(early.data(), early.size()); state != 0) return finished(state);
  }
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  SecureBytes chunk(4096);
  while (!shutdown.stop_requested() && std::chrono::steady_clock::now() < deadline) {
    pollfd entry{fd, POLLIN, 0};
    int ready = ::poll(&entry, 1, 200);
    if (ready < 0 && errno != EINTR) return std::nullopt;
    if (ready <= 0) continue;
    ssize_t got = ::recv(fd, chunk.data(), chunk.size(), 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return std::nullopt;
    if (int state = absorb(chunk.data(), static_cast<size_t>(got)); state != 0)
      return finished(state);
  }
  return std::nullopt;
}

// The verification's conversation with the client on a control connection.
class SocketConversation final : public PresenceConversation {
 public:
  SocketConversation(int fd, std::string& buffer, std::stop_token shutdown)
      : fd_(fd), buffer_(buffer), shutdown_(std::move(shutdown)) {}

  std::optional<SecureBytes> exchange(const PresencePrompt& prompt) override {
    if (gone_ || !writeControlLine(fd_, promptLine(prompt))) {
      gone_ = true;
      return std::nullopt;
    }
    if (!prompt.asks()) return std::nullopt;
    auto line = readReplyLine(fd_, buffer_,
                              std::chrono::seconds(ControlService::kPromptReplySeconds), shutdown_);
    if (!line) {
      gone_ = true;
      return std::nullopt;
    }
    try {
      PromptReply reply = parsePromptReply(line->view());
      if (reply.cancelled) return std::nullopt;
      return std::move(reply.answer);
    } catch (const DecodingError&) {
      return std::nullopt;  // not a reply: the verification ends without an answer
    }
  }

 private:
  int fd_;
  std::string& buffer_;
  std::stop_token shutdown_;
  bool gone_ = false;
};

// Keys whose protection stands for a fingerprint: in a TPM they carry a PIN.
bool needsPIN(const KeyRecord& key) {
  return key.protection == ProtectionClass::touchIDOnly ||
         key.protection == ProtectionClass::touchIDOrWatch;
}

std::string pinTriesText(uint32_t triesLeft) {
  if (triesLeft == 0)
    return "wrong PIN; no tries left before the TPM would lock: wait, then try again";
  return "wrong PIN; " + std::to_string(triesLeft) + (triesLeft == 1 ? " try" : " tries") + " left";
}

std::string refusalText(const PresenceResult& result) {
  switch (result.status) {
    case PresenceResult::Status::verified: return "verified";
    case PresenceResult::Status::failed: return "verification failed: " + result.detail;
    case PresenceResult::Status::cancelled: return "verification cancelled: " + result.detail;
    case PresenceResult::Status::unavailable: return "verification unavailable: " + result.detail;
  }
  return result.detail;
}

}  // namespace

ControlService::ControlService(Agent& agent, LocalApprover& approver, PresenceGate& presence,
                               Hooks hooks)
    : agent_(agent), approver_(approver), presence_(presence), hooks_(std::move(hooks)) {}

JSON ControlService::verified(const std::string& reason, PresenceConversation& conversation,
                              bool always, const std::function<JSON()>& action) {
  PresenceGate::Outcome outcome = presence_.confirm(reason, conversation, always);
  if (!outcome.confirmed()) return failure(refusalText(outcome.result));
  return action();
}

JSON ControlService::answer(const JSONReader& message, PresenceConversation& conversation) {
  auto id = UUID::parse(message.required("id").string());
  if (!id) return failure("no such request");
  const bool approve = message.required("approve").boolean();
  std::string frontend = "quorvane";
  if (auto given = message.optional("frontend")) frontend = given->string();
  const std::string by = "you, with " + frontend;
  if (!approve) {
    auto block = message.optional("block");
    if (!approver_.answer(*id, {ApprovalResult::Denied{block && block->boolean(), by}}))
      return failure("no such request: it was answered, expired or never existed");
    return success();
  }

  ApprovalScope scope = ApprovalScope::once();
  if (auto seconds = message.optional("windowSeconds")) {
    auto choice = WindowChoice::fromSeconds(seconds->number());
    if (!choice) return failure("not an approval window: 5m, 15m, 30m, 1h, 12h or 24h");
    scope = ApprovalScope::window(choice->seconds());
  }
  auto request = approver_.find(*id);
  if (!request) return failure("no such request: it was answered, expired or never existed");

  // The answer alone approves nothing: the user's presence is verified here, in the agent.
  PresenceGate::Outcome outcome = presence_.confirm(
      request->reason, conversation, false, [&] { return approver_.find(*id).has_value(); });
  if (outcome.result.status == PresenceResult::Status::cancelled)
    return failure(refusalText(outcome.result) + "; the request keeps waiting");
  if (!outcome.confirmed()) {
    // A failed verification denies the request (without a block), and the log says so.
    approver_.answer(*id, {ApprovalResult::Denied{false, by + ": " + refusalText(outcome.result)}});
    return failure(refusalText(outcome.result) + "; the request was denied");
  }
  std::shared_ptr<const AuthContext> context = outcome.context;
  if (hooks_.checkPIN && needsPIN(request->key)) {
    PINAnswer pin = askPIN(request->key, conversation);
    if (!pin.pin && pin.keepsWaiting) return failure(pin.refusal + "; the request keeps waiting");
    if (!pin.pin) {
      approver_.answer(*id, {ApprovalResult::Denied{false, by + ": " + pin.refusal}});
      return failure(pin.refusal + "; the request was denied");
    }
    auto withPIN = std::make_shared<AuthContext>(*outcome.context);
    withPIN->pin = std::make_shared<const SecureBytes>(std::move(*pin.pin));
    withPIN->pinKey = request->key.id;
    context = std::move(withPIN);
  }
  if (!approver_.answer(*id, {ApprovalResult::Approved{scope, context, by, true}}))
    return failure("no such request: it was answered, expired or never existed");
  return success();
}

ControlService::PINAnswer ControlService::askPIN(const KeyRecord& key,
                                                 PresenceConversation& conversation) {
  for (int attempt = 0; attempt < PresenceGate::kTries; ++attempt) {
    std::optional<SecureBytes> typed = conversation.exchange(
        {PresencePrompt::Style::secret, "PIN of the TPM key “" + key.name + "”: "});
    if (!typed) return {std::nullopt, "no PIN given", true};
    try {
      hooks_.checkPIN(key, *typed);
      return {std::move(typed), "", false};
    } catch (const KeyStoreError& error) {
      if (error.kind() == KeyStoreError::Kind::wrongPIN && attempt + 1 < PresenceGate::kTries) {
        conversation.exchange({PresencePrompt::Style::error, pinTriesText(error.count())});
        continue;
      }
      if (error.kind() == KeyStoreError::Kind::wrongPIN)
        return {std::nullopt, pinTriesText(error.count()), false};
      if (error.kind() == KeyStoreError::Kind::pinLockedOut)
        return {std::nullopt,
                "too many wrong PINs: the TPM takes PINs again in about " +
                    std::to_string(error.count()) + " s",
                false};
      return {std::nullopt, error.what(), false};
    }
  }
  return {std::nullopt, "wrong PIN", false};
}

namespace {

// A block for frontends: the key's fingerprint and name, the program (absent: every program), the
// end, and "text", the sentence that says all of it: "/usr/bin/git may not use “laptop” until
// 2026-11-24T15:30:00Z".
JSON blockJSON(const DenialBlock& block, const std::vector<AgentResponse::Identity>& keys) {
  JSON json = {{"key", block.keyFingerprint}, {"until", block.until.iso8601()}};
  std::string keyName = block.keyFingerprint;
  for (const AgentResponse::Identity& key : keys)
    if (fingerprint(key.keyBlob) == block.keyFingerprint) keyName = key.comment;
  json["keyName"] = keyName;
  std::string program = "every program";
  if (!block.program.empty()) {
    json["program"] = block.program;
    program = block.program.substr(block.program.find(':') + 1);  // without the signer's name
  }
  json["text"] = program + " may not use “" + keyName + "” until " + block.until.iso8601();
  return json;
}

// Whether `program`, as the user typed it, names the blocked program: its whole tree key
// ("system:/usr/bin/git"), the part after the colon, or that part's file name ("git").
bool namesProgram(const std::string& program, const DenialBlock& block) {
  if (block.program.empty()) return false;
  const std::string path = block.program.substr(block.program.find(':') + 1);
  return program == block.program || program == path || program == path.substr(path.rfind('/') + 1);
}

}  // namespace

JSON ControlService::blocks(const std::string& name, const JSONReader& message,
                            PresenceConversation& conversation) {
  if (name == "blocks") {
    JSON list = JSON::array();
    const auto keys = agent_.identities();
    for (const DenialBlock& block : agent_.activeBlocks()) list.push_back(blockJSON(block, keys));
    return {{"ok", true}, {"blocks", list}};
  }
  auto program = message.optional("program");
  auto key = message.optional("key");
  auto all = message.optional("all");
  if (!program && !key && !(all && all->boolean()))
    return failure("say which blocks to lift: a program, a key, or all");
  const std::string programName = program ? program->string() : "";
  const std::string keyFingerprint = key ? key->string() : "";
  return verified("lift blocks", conversation, false, [&] {
    const size_t lifted = agent_.unblock([&](const DenialBlock& block) {
      if (program) return namesProgram(programName, block);
      if (key) return block.keyFingerprint == keyFingerprint;
      return true;
    });
    return JSON{{"ok", true}, {"lifted", lifted}};
  });
}

JSON ControlService::presence(bool enabled, PresenceConversation& conversation) {
  if (enabled == presence_.required()) return success();
  auto change = [&] {
    if (hooks_.savePresence) hooks_.savePresence(enabled);
    presence_.setRequired(enabled);
    return success();
  };
  // An account without a usable password could never verify: turning verification off is then
  // the only way to approve anything, and an explicit choice of the user's is all it takes.
  if (!enabled && presence_.accountCanNeverPass()) return change();
  // Both ways verify: turning it off needs the user, turning it on proves it works first.
  return verified(enabled ? "turn presence verification on" : "turn presence verification off",
                  conversation, true, change);
}

JSON ControlService::handle(const JSON& message, PresenceConversation& conversation) {
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
    if (name == "resumeRemote")
      return verified("resume remote approval", conversation, false, [&] {
        if (hooks_.resumeRemote) hooks_.resumeRemote();
        return success();
      });
    if (name == "unlock")
      return verified("unlock the SSH keys", conversation, false, [&] {
        agent_.unlock();
        return success();
      });
    if (name == "presence") return presence(reader.required("enabled").boolean(), conversation);
    if (name == kShowPendingMessage || name == "pending") return pendingList();
    if (name == "status") {
      JSON status = {
          {"ok", true},
          {"locked", agent_.isLocked()},
          {"pending", approver_.pending().size()},
          {"epoch", agent_.epoch()},
          {"pid", ::getpid()},
          {"presenceVerification", presence_.required()},
          {"remoteApproval", !agent_.remoteApprovalAvailable()                ? "unavailable"
                             : hooks_.remoteOffline && hooks_.remoteOffline() ? "offline"
                                                                              : "available"}};
      if (auto problem = presence_.problem()) status["presenceProblem"] = *problem;
      return status;
    }
    if (name == "answer") return answer(reader, conversation);
    if (name == "blocks" || name == "unblock") return blocks(name, reader, conversation);
    return failure("unknown message " + name);
  } catch (const DecodingError& error) {
    return failure(error.what());
  } catch (const std::exception& error) {
    return failure(error.what());
  }
}

JSON ControlService::requestJSON(const ApprovalRequest& request) const {
  JSON json = toJSON(request);
  if (request.decision == Decision::askRemote &&
      (!agent_.remoteApprovalAvailable() || (hooks_.remoteOffline && hooks_.remoteOffline())))
    json["remoteOffline"] = true;
  return json;
}

JSON ControlService::pendingList() const {
  JSON list = JSON::array();
  for (const ApprovalRequest& request : approver_.pending()) list.push_back(requestJSON(request));
  return {{"ok", true}, {"pending", list}};
}

void ControlService::remoteStatusChanged() {
  ++remoteStatusChanges_;
  MutexLock lock(refreshMutex_);
  for (const auto& [stream, refresh] : refreshers_) refresh();
}

void ControlService::watch(int fd, std::stop_token shutdown) {
  // Events are written from the threads that sign, so a watcher that stops reading must not hold
  // them up: a write that cannot finish in time ends this stream.
  const timeval sendLimit{kWatcherSendLimitSeconds, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &sendLimit, sizeof sendLimit);
  std::mutex writeMutex;
  bool broken = false;
  auto writeHeld = [&](const JSON& line) {  // with writeMutex held
    if (broken) return;
    if (!writeControlLine(fd, line)) {
      broken = true;
      ::shutdown(fd, SHUT_RDWR);
    }
  };
  auto write = [&](const JSON& line) {
    std::lock_guard lock(writeMutex);
    writeHeld(line);
  };
  // A request for a paired device that waits here because remote approval is unavailable or
  // offline says so, for the frontend to tell the user to answer on this computer.
  auto requestLine = [&](const ApprovalRequest& request) {
    return JSON{{"event", "request"}, {"request", requestJSON(request)}};
  };
  // The answer and the requests waiting now go out before any event that happens meanwhile:
  // events wait for this lock, so a request that ends now is never announced after its end (it
  // may be announced twice, which frontends ignore).
  std::unique_lock starting(writeMutex);
  int token = approver_.subscribe([&](const LocalApprover::Event& event) {
    if (event.request) return write(requestLine(*event.request));
    write({{"event", "ended"},
           {"id", event.id.uuidString()},
           {"ending", std::string(kEndingNames.name(event.ending))}});
  });
  ++watchers_;
  const uint64_t statusSeen = remoteStatusChanges_.load();
  writeHeld(success());
  for (const ApprovalRequest& request : approver_.pending()) writeHeld(requestLine(request));
  starting.unlock();

  // Requests for paired devices go out again when remote approval's status changes. The refresh
  // is registered only now, so that it never waits for this stream's start while holding the
  // list of refreshes; a change that came meanwhile is caught up with at once.
  auto refresh = [&] {
    for (const ApprovalRequest& request : approver_.pending())
      if (request.decision == Decision::askRemote) write(requestLine(request));
  };
  int refresher = 0;
  {
    MutexLock lock(refreshMutex_);
    refresher = nextRefresher_++;
    refreshers_[refresher] = refresh;
  }
  if (remoteStatusChanges_.load() != statusSeen) refresh();

  // A watching client only listens; wait until it hangs up or the agent stops.
  pollfd entry{fd, POLLRDHUP, 0};
  while (!shutdown.stop_requested()) {
    entry.revents = 0;
    if (::poll(&entry, 1, 200) > 0 && (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0) break;
  }
  --watchers_;
  {
    MutexLock lock(refreshMutex_);
    refreshers_.erase(refresher);
  }
  approver_.unsubscribe(token);
}

void ControlService::serve(int fd, std::stop_token shutdown) {
  if (!sameUser(fd)) return;
  std::string buffer;
  SocketConversation conversation(fd, buffer, shutdown);
  while (auto line = readControlLine(fd, buffer)) {
    JSON message = JSON::parse(*line, nullptr, false);
    if (!message.is_object()) {
      writeControlLine(fd, failure("not a JSON object"));
      continue;
    }
    if (message.contains("message") && message["message"] == "watch") {
      watch(fd, shutdown);
      return;
    }
    if (!writeControlLine(fd, handle(message, conversation))) return;
  }
}

}  // namespace quorvane

#pragma once

#include <functional>
#include <stop_token>

#include "AgentCore/Agent.h"
#include "AgentCore/LocalApprover.h"
#include "Platform/Clock.h"
#include "Platform/JSONReader.h"

namespace quorvane {

// Serves connections on the control socket (the protocol is described with the message names in
// AgentCore/ControlProtocol.h): reload, lock and unlock, the list of waiting approval requests,
// answers to them, and a stream of new requests for prompt frontends.
class ControlService {
 public:
  struct Hooks {
    std::function<void()> reload;       // re-read keys, rules, pins
    std::function<void()> pauseRemote;  // re-read the remote-approval setting
  };

  ControlService(Agent& agent, LocalApprover& approver, Clock& clock, Hooks hooks);

  // Serves one connection until the client hangs up or `shutdown` stops. Clients of another user
  // are closed without an answer.
  void serve(int fd, std::stop_token shutdown);

  // The answer to one message (every message but "watch").
  JSON handle(const JSON& message);

 private:
  JSON answer(const JSONReader& message);
  void watch(int fd, std::stop_token shutdown);

  Agent& agent_;
  LocalApprover& approver_;
  Clock& clock_;
  Hooks hooks_;
};

}  // namespace quorvane

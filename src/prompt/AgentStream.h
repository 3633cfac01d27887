#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

#include "Base/JSONReader.h"
#include "ControlProtocol/ControlClient.h"

namespace quorvane::prompt {

// The agent's watch stream, read on a thread of its own. Each line, and finally the stream's end
// (the agent stopped), is handed to the GTK main loop, where `onLine` and `onEnd` run.
class AgentStream {
 public:
  // Opens the stream; nothing when no agent answers at `socket`.
  static std::unique_ptr<AgentStream> open(const std::filesystem::path& socket,
                                           std::function<void(const JSON&)> onLine,
                                           std::function<void()> onEnd);
  // Stops reading and waits for the thread.
  ~AgentStream();

 private:
  AgentStream(ControlClient client, std::function<void(const JSON&)> onLine,
              std::function<void()> onEnd);
  void read();

  ControlClient client_;
  std::function<void(const JSON&)> onLine_;
  std::function<void()> onEnd_;
  std::jthread reader_;
};

// Runs `work` on the GTK main loop, soon.
void onMainLoop(std::function<void()> work);

}  // namespace quorvane::prompt

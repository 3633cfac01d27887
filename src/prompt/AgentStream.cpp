#include "prompt/AgentStream.h"

#include <glib.h>
#include <sys/socket.h>

#include "ControlProtocol/ControlError.h"
#include "PromptModel/PromptAgentLink.h"

namespace quorvane::prompt {

void onMainLoop(std::function<void()> work) {
  auto* task = new std::function<void()>(std::move(work));
  g_idle_add_full(
      G_PRIORITY_DEFAULT,
      [](gpointer data) -> gboolean {
        (*static_cast<std::function<void()>*>(data))();
        return G_SOURCE_REMOVE;
      },
      task, [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
}

std::unique_ptr<AgentStream> AgentStream::open(const std::filesystem::path& socket,
                                               std::function<void(const JSON&)> onLine,
                                               std::function<void()> onEnd) {
  auto client = openPromptWatch(socket);
  if (!client) return nullptr;
  return std::unique_ptr<AgentStream>(
      new AgentStream(std::move(*client), std::move(onLine), std::move(onEnd)));
}

AgentStream::AgentStream(ControlClient client, std::function<void(const JSON&)> onLine,
                         std::function<void()> onEnd)
    : client_(std::move(client)), onLine_(std::move(onLine)), onEnd_(std::move(onEnd)) {
  reader_ = std::jthread([this] { read(); });
}

AgentStream::~AgentStream() {
  // Wakes the reader out of its blocking read; it then leaves without calling back.
  ::shutdown(client_.fd(), SHUT_RDWR);
  reader_.request_stop();
  reader_.join();
}

void AgentStream::read() {
  for (;;) {
    std::optional<JSON> line;
    try {
      line = client_.next();
    } catch (const ControlError&) {
      continue;  // a line that is not JSON is skipped; the stream goes on
    }
    if (reader_.get_stop_token().stop_requested()) return;
    if (!line) {
      onMainLoop(onEnd_);
      return;
    }
    onMainLoop([onLine = onLine_, json = std::move(*line)] { onLine(json); });
  }
}

}  // namespace quorvane::prompt

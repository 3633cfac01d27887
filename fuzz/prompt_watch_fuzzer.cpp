// A line of the agent's watch stream as the desktop dialog reads it. Nothing may crash; a line is
// either applied or refused with DecodingError, and a refused line leaves the queue as it was.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Base/DecodingError.h"
#include "PromptModel/PromptChoice.h"
#include "PromptModel/PromptQueue.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  PromptQueue queue;
  // Each line of the input is one line of the stream.
  std::string_view text(reinterpret_cast<const char*>(data), size);
  while (!text.empty()) {
    const size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    const size_t before = queue.count();
    try {
      queue.apply(parseJSON(line));
    } catch (const DecodingError&) {
      if (queue.count() != before) std::abort();
    }
    if (const PromptRequest* shown = queue.shown()) {
      (void)promptDetails(*shown);
      for (const PromptButton& button : promptButtons(*shown))
        if (button.kind == PromptChoiceKind::allowWindow && !shown->windowAllowed) std::abort();
      if (!answerMessage(*shown, PromptChoice::allowOnce())) std::abort();
    }
  }
  return 0;
}

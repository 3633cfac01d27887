#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "Base/JSONReader.h"
#include "PromptModel/PromptRequest.h"

namespace quorvane {

// Why a request left the dialog without an answer from it.
enum class PromptEnding {
  answered,    // answered elsewhere: `quorvane watch`, `quorvane approve`, a paired device
  expired,     // nobody answered in time
  clientGone,  // the program that asked hung up, or the agent withdrew the request
};

// The sentence the dialog shows when the request on screen ended elsewhere.
std::string_view endingText(PromptEnding ending);

// The dialog's requests, in the order the agent published them: the first is the one on screen,
// the others wait behind it. Fed with the lines of the control socket's watch stream.
class PromptQueue {
 public:
  // What a line of the stream changed.
  struct Change {
    bool shownChanged = false;               // another request (or none) is now on screen
    std::optional<PromptEnding> shownEnded;  // the one on screen ended elsewhere, and why
    bool shownUpdated = false;  // the one on screen was announced again with new details
  };

  // Applies one watch line: {"event": "request", "request": {...}} adds a request; one that is
  // queued already is updated in place (the agent announces it again when, say, remote approval
  // went offline); one that ended is ignored (the stream may announce a request twice),
  // {"event": "ended", "id", "ending"?} removes one; other lines change nothing.
  // Throws DecodingError for a request line that cannot be read (the queue is left as it was).
  Change apply(const JSON& line);

  // Removes a request answered from this dialog, so that its end is not reported as elsewhere.
  Change forget(const std::string& id);

  const PromptRequest* shown() const { return requests_.empty() ? nullptr : &requests_.front(); }
  size_t count() const { return requests_.size(); }
  bool empty() const { return requests_.empty(); }
  // "Request 1 of 3" while more than one waits; empty otherwise.
  std::string countText() const;

 private:
  std::deque<PromptRequest> requests_;
  // The ids of the requests that ended or were answered, newest last (at most kRememberedEnds).
  std::deque<std::string> finished_;
  static constexpr size_t kRememberedEnds = 256;
};

}  // namespace quorvane

#include "PromptModel/PromptQueue.h"

#include <algorithm>

namespace quorvane {

std::string_view endingText(PromptEnding ending) {
  switch (ending) {
    case PromptEnding::answered: return "This request was answered elsewhere.";
    case PromptEnding::expired: return "This request expired: nobody answered in time.";
    case PromptEnding::clientGone: return "The program that asked is gone; nothing was signed.";
  }
  return "";
}

PromptQueue::Change PromptQueue::apply(const JSON& line) {
  if (!line.is_object()) return {};
  const auto event = line.find("event");
  if (event == line.end() || !event->is_string()) return {};
  if (*event == "request") {
    auto found = line.find("request");
    PromptRequest request = decodePromptRequest(found == line.end() ? JSON() : *found);
    if (std::ranges::find(finished_, request.id) != finished_.end()) return {};
    auto queued = std::ranges::find(requests_, request.id, &PromptRequest::id);
    if (queued != requests_.end()) {
      const bool shown = queued == requests_.begin();
      *queued = std::move(request);
      return {false, std::nullopt, shown};
    }
    requests_.push_back(std::move(request));
    return {requests_.size() == 1, std::nullopt};
  }
  if (*event != "ended") return {};
  const auto id = line.find("id");
  if (id == line.end() || !id->is_string()) return {};
  PromptEnding ending = PromptEnding::answered;
  if (auto how = line.find("ending"); how != line.end() && how->is_string()) {
    if (*how == "expired") ending = PromptEnding::expired;
    if (*how == "cancelled") ending = PromptEnding::clientGone;
  }
  Change change = forget(id->get<std::string>());
  if (change.shownChanged) change.shownEnded = ending;
  return change;
}

PromptQueue::Change PromptQueue::forget(const std::string& id) {
  const bool wasShown = !requests_.empty() && requests_.front().id == id;
  if (std::ranges::find(finished_, id) == finished_.end()) {
    finished_.push_back(id);
    if (finished_.size() > kRememberedEnds) finished_.pop_front();
  }
  std::erase_if(requests_, [&](const PromptRequest& request) { return request.id == id; });
  return {wasShown, std::nullopt};
}

std::string PromptQueue::countText() const {
  if (requests_.size() < 2) return "";
  return "Request 1 of " + std::to_string(requests_.size());
}

}  // namespace quorvane

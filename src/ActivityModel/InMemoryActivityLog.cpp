#include "ActivityModel/InMemoryActivityLog.h"

#include <algorithm>
#include <string_view>

namespace quorvane {

namespace {

char lowerASCII(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool containsIgnoringASCIICase(std::string_view haystack, std::string_view needle) {
  auto found = std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end(),
                           [](char a, char b) { return lowerASCII(a) == lowerASCII(b); });
  return found != haystack.end() || needle.empty();
}

}  // namespace

void InMemoryActivityLog::append(const ActivityEntry& entry) {
  std::string text = encodeActivityEntryText(entry);
  ActivityEntry stored = decodeActivityEntryText(text);
  std::lock_guard lock(mutex_);
  stored_.push_back({std::move(text), std::move(stored)});
}

std::vector<ActivityEntry> InMemoryActivityLog::entries(const ActivityQuery& query) {
  // The text is matched as it appears inside the JSON, as the real log does.
  std::string needle = dumpLogJSON(JSON(query.text));
  needle = needle.substr(1, needle.size() - 2);
  std::lock_guard lock(mutex_);
  std::vector<ActivityEntry> result;
  for (auto stored = stored_.rbegin(); stored != stored_.rend() && result.size() < query.limit;
       ++stored) {
    if (query.from && stored->entry.date < *query.from) continue;
    if (query.to && stored->entry.date > *query.to) continue;
    if (!containsIgnoringASCIICase(stored->text, needle)) continue;
    result.push_back(stored->entry);
  }
  return result;
}

}  // namespace quorvane

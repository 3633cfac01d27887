#pragma once

// Small text helpers of the key importer.
#include <string_view>

namespace quorvane::KeyImporter {

inline bool isSpaceOrTab(char c) { return c == ' ' || c == '\t'; }

// ASCII whitespace: space, tab, line feed, carriage return, vertical tab, form feed.
inline bool isWhitespace(char c) { return isSpaceOrTab(c) || (c >= '\n' && c <= '\r'); }

template <typename Predicate>
std::string_view trimmed(std::string_view text, Predicate strip) {
  while (!text.empty() && strip(text.front())) text.remove_prefix(1);
  while (!text.empty() && strip(text.back())) text.remove_suffix(1);
  return text;
}

inline std::string_view trimSpacesAndTabs(std::string_view text) {
  return trimmed(text, isSpaceOrTab);
}

inline std::string_view trimWhitespace(std::string_view text) {
  return trimmed(text, isWhitespace);
}

}  // namespace quorvane::KeyImporter

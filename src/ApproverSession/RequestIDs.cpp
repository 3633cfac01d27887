#include "ApproverSession/RequestIDs.h"

#include <algorithm>
#include <cctype>

#include "Base/Hex.h"

namespace quorvane {

std::string shortRequestID(ByteView requestID) {
  return hexEncode(requestID).substr(0, kShortRequestIDLength);
}

std::vector<Bytes> requestIDsMatching(std::string_view typed, std::span<const Bytes> candidates) {
  if (typed.size() < kShortestTypedRequestID ||
      !std::ranges::all_of(typed, [](char c) { return std::isxdigit(static_cast<uint8_t>(c)); }))
    return {};
  std::string lower(typed);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<uint8_t>(c)));
  std::vector<Bytes> matches;
  for (const Bytes& id : candidates)
    if (hexEncode(id).starts_with(lower) && std::ranges::find(matches, id) == matches.end())
      matches.push_back(id);
  return matches;
}

}  // namespace quorvane

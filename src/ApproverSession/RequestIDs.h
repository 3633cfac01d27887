#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Bytes.h"

namespace quorvane {

// Request ids as the user sees and types them: the short form is the first
// kShortRequestIDLength hex digits of the id (the whole id in hex when shorter); scripts get the
// full hex id as well.
inline constexpr size_t kShortRequestIDLength = 8;
// Fewer typed digits than this match nothing, so that a slip cannot answer an unrelated request.
inline constexpr size_t kShortestTypedRequestID = 4;

std::string shortRequestID(ByteView requestID);

// The ids among `candidates` whose hex form begins with `typed` (either case). Nothing for text
// that is not hex digits or is shorter than kShortestTypedRequestID.
std::vector<Bytes> requestIDsMatching(std::string_view typed, std::span<const Bytes> candidates);

}  // namespace quorvane

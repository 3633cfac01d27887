#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Base/Date.h"
#include "Policy/PolicyRequest.h"

namespace quorvane {

// Denials count for this long (seconds): a denial this old or older no longer counts.
inline constexpr double kDenialWindowSeconds = 600;
// A block lasts this long (seconds) from the denial that caused it.
inline constexpr double kDenialBlockSeconds = 900;
// Denials of one key within the window, from any programs, that block the key for everybody.
inline constexpr size_t kKeyWideDenialLimit = 10;
// Denials of one key within the window from one program that block that program for that key.
inline constexpr size_t kPerOriginDenialLimit = 3;

// The limiter key of a request's program for its key: the fingerprint, "|", the tree key.
std::string originLimiterKey(const PolicyRequest& request);
// The limiter key of a request's key for every program: "key|" and the fingerprint.
std::string keyWideLimiterKey(const PolicyRequest& request);

// A block in force: requests for the key (by its fingerprint) from `program` (a tree key, see
// `treeKey`) are refused until `until`. An empty `program` blocks the key for every program.
struct DenialBlock {
  std::string keyFingerprint;
  std::string program;
  Date until;
  friend bool operator==(const DenialBlock&, const DenialBlock&) = default;
};

// Counts recent denials and blocks a key, or a key for one program, that is denied too often, so
// that a client cannot make the user answer prompts without end.
struct DenialLimiter {
  // Recent denial dates by limiter key.
  std::map<std::string, std::vector<Date>> denials;
  // The end of each block by limiter key; entries whose date has passed are inert.
  std::map<std::string, Date> blocks;

  // Counts one denial of `request` at `now`, key-wide first, then for its program. `block` is the
  // user's choice to deny and block, which blocks the program for the key at once; plain denials,
  // time-outs and clients that hung up while waiting pass false.
  void recordDenial(const PolicyRequest& request, bool block, Date now);

  // The end of the block that applies to `request` at `now` (the program's own block first, then
  // the key-wide one); nothing when neither is later than `now`. Removes nothing.
  std::optional<Date> blockedUntil(const PolicyRequest& request, Date now) const;

  // The blocks in force at `now`, the soonest to end first.
  std::vector<DenialBlock> activeBlocks(Date now) const;

  // Lifts the blocks in force that `lifted` selects, and forgets the denials counted towards
  // them, so that the next denial does not block again at once. Returns how many it lifted.
  size_t lift(const std::function<bool(const DenialBlock&)>& lifted, Date now);

  // Drops blocks that end at or before `now`, and denials that are at least the window old
  // (with lists that become empty). Changes no later outcome; for periodic housekeeping.
  void prune(Date now);

  friend bool operator==(const DenialLimiter&, const DenialLimiter&) = default;
};

}  // namespace quorvane

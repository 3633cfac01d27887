#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Base/Bytes.h"
#include "Base/Date.h"
#include "Base/Mutex.h"

namespace quorvane {

// The extension through which a client says, before it asks for signatures, why it will ask.
inline constexpr std::string_view kAnnounceExtension = "announce@quorvane.tallowmere.com";

// Announced reasons longer than this (in bytes) are not announcements.
inline constexpr size_t kMaxAnnouncedReasonLength = 1024;
// How long an announcement without a duration counts, and the most any announcement counts.
inline constexpr double kDefaultAnnouncementSeconds = 600;
inline constexpr double kMaxAnnouncementSeconds = 24 * 3600;

// What a program said about itself. Never trusted: shown to the user as the program's own claim.
struct Announcement {
  std::string reason;
  std::optional<int64_t> seconds;  // the duration the program named; absent for 0
  Date expires;
  friend bool operator==(const Announcement&, const Announcement&) = default;
};

// Parses a whole agent message body as an announcement:
//   byte 27, string "announce@quorvane.tallowmere.com", string reason (UTF-8), uint32 seconds
// (0: no duration), and nothing after. Anything else, including a malformed announcement, is not
// one: nothing is returned and the body is handled as an ordinary request. `now` sets `expires`:
// the named duration (at most a day) or ten minutes.
std::optional<Announcement> parseAnnouncement(ByteView body, Date now);
// The same for what follows the extension's name: string reason, uint32 seconds, and nothing after.
std::optional<Announcement> parseAnnouncementContents(ByteView contents, Date now);

// One process instance: its pid and its start time, so a reused pid does not inherit a claim.
struct ProcessInstance {
  int32_t pid = 0;
  uint64_t startTime = 0;
  friend auto operator<=>(const ProcessInstance&, const ProcessInstance&) = default;
};

// The announcements in force, by process instance. Safe to use from many threads.
class AnnouncementBoard {
 public:
  void record(ProcessInstance process, Announcement announcement);
  // The announcement of `process` while it has not expired.
  std::optional<Announcement> current(ProcessInstance process, Date now) const;
  // Forgets expired announcements.
  void prune(Date now);

 private:
  mutable Mutex mutex_;
  std::map<ProcessInstance, Announcement> entries_ GUARDED_BY(mutex_);
};

}  // namespace quorvane

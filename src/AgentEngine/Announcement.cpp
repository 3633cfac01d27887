#include "AgentEngine/Announcement.h"

#include <algorithm>

#include "SSHWire/AgentMessageType.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"

namespace quorvane {

std::optional<Announcement> parseAnnouncement(ByteView body, Date now) {
  try {
    WireReader reader(body);
    if (reader.readByte() != static_cast<uint8_t>(AgentMessageType::extension)) return std::nullopt;
    if (textOf(reader.readStringView()) != kAnnounceExtension) return std::nullopt;
    return parseAnnouncementContents(reader.readRest(), now);
  } catch (const WireError&) {
    return std::nullopt;
  }
}

std::optional<Announcement> parseAnnouncementContents(ByteView contents, Date now) {
  try {
    WireReader reader(contents);
    std::string reason = reader.readUTF8String();
    uint32_t seconds = reader.readUInt32();
    reader.expectEnd();
    if (reason.size() > kMaxAnnouncedReasonLength) return std::nullopt;
    double lasts = seconds == 0 ? kDefaultAnnouncementSeconds
                                : std::min<double>(seconds, kMaxAnnouncementSeconds);
    std::optional<int64_t> named;
    if (seconds != 0) named = seconds;
    return Announcement{std::move(reason), named, now + lasts};
  } catch (const WireError&) {
    return std::nullopt;
  }
}

void AnnouncementBoard::record(ProcessInstance process, Announcement announcement) {
  MutexLock lock(mutex_);
  entries_.insert_or_assign(process, std::move(announcement));
}

std::optional<Announcement> AnnouncementBoard::current(ProcessInstance process, Date now) const {
  MutexLock lock(mutex_);
  auto found = entries_.find(process);
  if (found == entries_.end() || found->second.expires <= now) return std::nullopt;
  return found->second;
}

void AnnouncementBoard::prune(Date now) {
  MutexLock lock(mutex_);
  std::erase_if(entries_, [&](const auto& entry) { return entry.second.expires <= now; });
}

}  // namespace quorvane

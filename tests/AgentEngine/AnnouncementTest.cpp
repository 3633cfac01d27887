#include <gtest/gtest.h>

#include "AgentEngine/Announcement.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {
namespace {

Bytes announcementBody(std::string_view name, std::string_view reason, uint32_t seconds) {
  WireWriter writer;
  writer.writeByte(27);
  writer.writeString(bytesOf(name));
  writer.writeString(bytesOf(reason));
  writer.writeUInt32(seconds);
  return std::move(writer).take();
}

const Date kNow{1'800'000'000};

TEST(Announcement, ParsesReasonAndDuration) {
  auto parsed = parseAnnouncement(announcementBody(kAnnounceExtension, "deploy v2", 90), kNow);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(*parsed, (Announcement{"deploy v2", 90, kNow + 90}));
  auto open = parseAnnouncement(announcementBody(kAnnounceExtension, "", 0), kNow);
  ASSERT_TRUE(open);
  EXPECT_EQ(open->seconds, std::nullopt);
  EXPECT_EQ(open->expires, kNow + kDefaultAnnouncementSeconds);
  EXPECT_EQ(parseAnnouncement(announcementBody(kAnnounceExtension, "", 0xFFFFFFFF), kNow)->expires,
            kNow + kMaxAnnouncementSeconds);
}

TEST(Announcement, AnythingElseIsNotAnAnnouncement) {
  const Bytes valid = announcementBody(kAnnounceExtension, "why", 5);
  for (size_t length = 0; length < valid.size(); ++length)
    EXPECT_FALSE(parseAnnouncement(ByteView(valid).first(length), kNow)) << length;
  Bytes longer = valid;
  longer.push_back(0);
  EXPECT_FALSE(parseAnnouncement(longer, kNow));
  EXPECT_FALSE(parseAnnouncement(announcementBody("announce@example.com", "why", 5), kNow));
  EXPECT_FALSE(parseAnnouncement(announcementBody(kAnnounceExtension, "\xC3\x28", 5), kNow));
  EXPECT_FALSE(parseAnnouncement(
      announcementBody(kAnnounceExtension, std::string(kMaxAnnouncedReasonLength + 1, 'x'), 5),
      kNow));
  Bytes otherType = valid;
  otherType[0] = 13;
  EXPECT_FALSE(parseAnnouncement(otherType, kNow));
}

TEST(AnnouncementBoard, KeysByProcessInstanceUntilExpiry) {
  AnnouncementBoard board;
  board.record({42, 1000}, Announcement{"why", 5, kNow + 5});
  EXPECT_TRUE(board.current({42, 1000}, kNow + 4.9));
  EXPECT_FALSE(board.current({42, 1000}, kNow + 5));
  EXPECT_FALSE(board.current({42, 1001}, kNow)) << "a reused pid inherits nothing";
  board.prune(kNow + 5);
  EXPECT_FALSE(board.current({42, 1000}, kNow));
}

}  // namespace
}  // namespace quorvane

#include <gtest/gtest.h>

#include <set>

#include "Base/UUID.h"

namespace quorvane {
namespace {

TEST(UUID, ParsesEitherCaseAndPrintsUpperCase) {
  auto uuid = UUID::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
  ASSERT_TRUE(uuid.has_value());
  EXPECT_EQ(uuid->uuidString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_EQ(UUID::parse(uuid->uuidString()), uuid);
}

TEST(UUID, RejectsAnythingButTheCanonicalForm) {
  for (const char* text :
       {"", "e621e1f8c36c495a93fc0c247a3e6e5f", "{e621e1f8-c36c-495a-93fc-0c247a3e6e5f}",
        "e621e1f8-c36c-495a-93fc-0c247a3e6e5", "e621e1f8-c36c-495a-93fc_0c247a3e6e5f",
        "g621e1f8-c36c-495a-93fc-0c247a3e6e5f"})
    EXPECT_FALSE(UUID::parse(text).has_value()) << text;
}

TEST(UUID, RandomIdentifiersAreVersion4AndDistinct) {
  std::set<UUID> seen;
  for (int i = 0; i < 100; ++i) {
    UUID uuid = UUID::random();
    EXPECT_EQ(uuid.uuidString()[14], '4');
    EXPECT_NE(std::string("89AB").find(uuid.uuidString()[19]), std::string::npos);
    seen.insert(uuid);
  }
  EXPECT_EQ(seen.size(), 100u);
}

}  // namespace
}  // namespace quorvane

#include <gtest/gtest.h>

#include "AgentEngine/ApprovalText.h"
#include "AgentEngine/HostNameStatus.h"

namespace quorvane {
namespace {

struct ActionCase {
  RequestPurpose purpose;
  std::optional<std::string> host;
  std::string action;
};

TEST(ApprovalText, NamesTheActionOfEveryPurpose) {
  const ActionCase cases[] = {
      {RequestPurpose::other(), std::nullopt, "make an unknown signature"},
      {RequestPurpose::signature("git"), std::nullopt, "sign a Git commit"},
      {RequestPurpose::signature("file"), std::nullopt, "sign data (file)"},
      {RequestPurpose::login("SHA256:x", "git"), "github.com", "sign in to github.com"},
      {RequestPurpose::login(std::nullopt, "git"), std::nullopt, "sign in to an unverified host"},
      {RequestPurpose::login("SHA256:x", "me", {"SHA256:hop"}), "db",
       "sign in to db through a forwarded connection"},
  };
  for (const auto& c : cases) EXPECT_EQ(approvalAction(c.purpose, c.host), c.action);
}

TEST(ApprovalText, ShowsHowFarAHostNameIsTrusted) {
  EXPECT_EQ(hostDisplay({HostNameStatus::Confirmed{"a"}}), "a");
  EXPECT_EQ(hostDisplay({HostNameStatus::Claimed{"a"}}), "a (name not confirmed)");
  EXPECT_EQ(hostDisplay({HostNameStatus::Conflict{"a"}}),
            "a (WARNING: different host key than before)");
  EXPECT_EQ(hostDisplay({HostNameStatus::Unknown{}}), std::nullopt);
}

TEST(ApprovalText, ComposesTheReason) {
  EXPECT_EQ(approvalReason("git", RequestPurpose::signature("git"), std::nullopt, "laptop"),
            "git for sign a Git commit with key “laptop”");
}

TEST(ApprovalText, ShortensPartsOf81CharactersOrMore) {
  const std::string eighty(80, 'a');
  EXPECT_EQ(shortenedApprovalPart(eighty), eighty);
  EXPECT_EQ(shortenedApprovalPart(eighty + "b"), std::string(79, 'a') + "…");
  // Characters, not bytes: 80 two-byte characters stay, and a cut never splits one.
  std::string umlauts;
  for (int i = 0; i < 80; ++i) umlauts += "ü";
  EXPECT_EQ(shortenedApprovalPart(umlauts), umlauts);
  EXPECT_EQ(shortenedApprovalPart(umlauts + "ü"), umlauts.substr(0, 79 * 2) + "…");
  const std::string reason =
      approvalReason(eighty + "b", RequestPurpose::other(), std::nullopt, eighty + "c");
  EXPECT_EQ(reason, std::string(79, 'a') + "… for make an unknown signature with key “" +
                        std::string(79, 'a') + "…”");
}

}  // namespace
}  // namespace quorvane

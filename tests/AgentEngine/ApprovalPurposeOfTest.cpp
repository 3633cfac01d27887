#include <gtest/gtest.h>

#include "AgentEngine/ApprovalPurposeOf.h"

namespace quorvane {
namespace {

struct NameCase {
  std::string label;
  HostNameStatus status;
  std::optional<std::string> shownName;
  HostNameState state;
};

void PrintTo(const NameCase& c, std::ostream* out) { *out << c.label; }

class ApprovalPurposeOfLogin : public ::testing::TestWithParam<NameCase> {};

TEST_P(ApprovalPurposeOfLogin, CarriesTheHostNameAndHowFarItIsEstablished) {
  const RequestPurpose direct = RequestPurpose::login("SHA256:host", "git");
  EXPECT_EQ(
      approvalPurposeOf(direct, GetParam().status),
      ApprovalPurpose::login("SHA256:host", GetParam().shownName, GetParam().state, "git", false));
}

INSTANTIATE_TEST_SUITE_P(
    NameStatuses, ApprovalPurposeOfLogin,
    ::testing::Values(
        NameCase{"confirmed",
                 {HostNameStatus::Confirmed{"github.com"}},
                 "github.com",
                 HostNameState::confirmed},
        NameCase{"claimed", {HostNameStatus::Claimed{"build"}}, "build", HostNameState::claimed},
        NameCase{"conflict", {HostNameStatus::Conflict{"prod"}}, "prod", HostNameState::conflict},
        NameCase{"unknown", {HostNameStatus::Unknown{}}, std::nullopt, HostNameState::unknown}),
    [](const ::testing::TestParamInfo<NameCase>& tested) { return tested.param.label; });

TEST(ApprovalPurposeOf, AForwardedLoginIsMarkedWithoutItsHops) {
  const RequestPurpose forwarded =
      RequestPurpose::login(std::nullopt, "deploy", {"SHA256:jump1", "SHA256:jump2"});
  EXPECT_EQ(
      approvalPurposeOf(forwarded, {}),
      ApprovalPurpose::login(std::nullopt, std::nullopt, HostNameState::unknown, "deploy", true));
}

TEST(ApprovalPurposeOf, SignaturesAndOtherDataKeepTheirKind) {
  EXPECT_EQ(approvalPurposeOf(RequestPurpose::signature("git"), {}),
            ApprovalPurpose::signature("git"));
  EXPECT_EQ(approvalPurposeOf(RequestPurpose::other(), {}), ApprovalPurpose::other());
}

}  // namespace
}  // namespace quorvane

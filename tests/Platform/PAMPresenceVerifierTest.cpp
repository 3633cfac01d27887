#include <gtest/gtest.h>

#include <deque>
#include <vector>

#include "Platform/PAMPresenceVerifier.h"
#include "support/PAMServices.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::PAMService;
using Status = PresenceResult::Status;

// A frontend that records every prompt and answers the asking ones from a script.
class ScriptedConversation final : public PresenceConversation {
 public:
  explicit ScriptedConversation(std::deque<std::optional<std::string>> answers)
      : answers_(std::move(answers)) {}
  std::optional<SecureBytes> exchange(const PresencePrompt& prompt) override {
    prompts.push_back(prompt);
    if (!prompt.asks() || answers_.empty()) return std::nullopt;
    auto answer = answers_.front();
    answers_.pop_front();
    if (!answer) return std::nullopt;
    return SecureBytes(bytesOf(*answer));
  }
  std::vector<PresencePrompt> prompts;

 private:
  std::deque<std::optional<std::string>> answers_;
};

struct Case {
  const char* name;
  std::optional<PAMService> service;  // none: the folder has no "quorvane" file
  std::deque<std::optional<std::string>> answers;
  Status expected;
  size_t prompts;
};

class PAMVerification : public ::testing::TestWithParam<Case> {};

TEST_P(PAMVerification, EndsAsThePrivateConfigurationDecides) {
  const Case& c = GetParam();
  testing::TemporaryDirectory folder;
  if (c.service)
    testing::writePAMService(folder.path(), *c.service);
  else  // PAM would fall back to "other"; the verifier must not.
    testing::writeFile(folder.path() / "other", "auth required pam_permit.so\n");
  PAMPresenceVerifier verifier(PAMPresenceVerifier::currentUserName().value_or("root"),
                               folder.path());
  EXPECT_EQ(verifier.unavailableReason().has_value(), !c.service);

  ScriptedConversation conversation(c.answers);
  PresenceResult result = verifier.verify(conversation);
  EXPECT_EQ(result.status, c.expected) << result.detail;
  ASSERT_EQ(conversation.prompts.size(), c.prompts);
  if (c.service == PAMService::asks) {
    EXPECT_EQ(conversation.prompts[0],
              (PresencePrompt{PresencePrompt::Style::info, std::string(testing::kReaderMessage)}));
    EXPECT_EQ(conversation.prompts[1].style, PresencePrompt::Style::secret);
    // PAM's "Password: " names the account, since the prompt may show far from the program.
    EXPECT_EQ(conversation.prompts[1].text,
              "Password for " + PAMPresenceVerifier::currentUserName().value_or("root") + ": ");
  }
  if (c.expected != Status::verified) {
    EXPECT_FALSE(result.detail.empty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    PrivateServices, PAMVerification,
    ::testing::Values(Case{"permit", PAMService::permit, {}, Status::verified, 0},
                      Case{"deny", PAMService::deny, {}, Status::failed, 0},
                      Case{"noService", std::nullopt, {}, Status::unavailable, 0},
                      Case{"rightAnswer",
                           PAMService::asks,
                           {std::string(testing::kTypedSecret)},
                           Status::verified,
                           2},
                      Case{"wrongAnswer", PAMService::asks, {"open sesame!"}, Status::failed, 2},
                      Case{"emptyAnswer", PAMService::asks, {""}, Status::failed, 2},
                      Case{"answerWithNUL",
                           PAMService::asks,
                           {std::string("open sesame\0x", 13)},
                           Status::failed,
                           2},
                      Case{"noAnswer", PAMService::asks, {std::nullopt}, Status::cancelled, 2}),
    [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace quorvane

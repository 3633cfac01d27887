#include <gtest/gtest.h>

#include "RelayClient/RelayClient.h"
#include "RelayClient/RelayError.h"
#include "support/ScriptedHTTPServer.h"
#include "support/TestCertificateAuthority.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::RecordedRequest;
using testing::ScriptedAnswer;
using testing::ScriptedHTTPServer;

TEST(RelayClientTLS, TrustsARelayThroughItsCAFileAndNothingElse) {
  testing::TestCertificateAuthority authority, stranger;
  ASSERT_TRUE(authority.make("relay"));
  ASSERT_TRUE(stranger.make("stranger"));
  ScriptedHTTPServer server(
      [](const RecordedRequest& request) {
        if (request.target == "/healthz")
          return ScriptedAnswer{200, {{"Date", "Sun, 06 Nov 1994 08:49:37 GMT"}}, ""};
        return ScriptedAnswer{201, {}, R"({"id":"m","secret":"s","send_token":"t"})"};
      },
      ScriptedHTTPServer::TLSFiles{authority.certificate(), authority.key()});
  ASSERT_TRUE(server.baseURL().starts_with("https://127.0.0.1:"));

  RelayClient trusting(RelayEndpoint{server.baseURL(), authority.ca(), {}});
  EXPECT_EQ(trusting.health().status, 200);
  EXPECT_EQ(trusting.createMailbox(true).id, "m");
  EXPECT_EQ(server.requests().back().target, "/v1/mailbox?ephemeral=1");

  for (const std::optional<std::filesystem::path>& caFile :
       {std::optional<std::filesystem::path>(), std::optional(stranger.ca()),
        std::optional(authority.ca().parent_path() / "missing.pem")}) {
    RelayClient untrusting(RelayEndpoint{server.baseURL(), caFile, {}});
    try {
      untrusting.health();
      ADD_FAILURE() << "trusted without " << authority.ca();
    } catch (const RelayError& error) {
      EXPECT_EQ(error.kind(), RelayErrorKind::transport);
    }
  }
  EXPECT_EQ(server.requests().size(), 2u);  // no request got through an untrusted connection
}

}  // namespace
}  // namespace quorvane

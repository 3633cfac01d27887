#include <gtest/gtest.h>

#include "RelayClient/RelayClient.h"
#include "RelayClient/RelayError.h"
#include "support/ScriptedHTTPServer.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::RecordedRequest;
using testing::ScriptedAnswer;
using testing::ScriptedHTTPServer;

// A private certificate authority and a certificate for 127.0.0.1 that it signed, made by the
// openssl program for this test.
struct TestAuthority {
  testing::TemporaryDirectory folder;
  std::filesystem::path ca() const { return folder.path() / "ca.pem"; }
  std::filesystem::path certificate() const { return folder.path() / "server.pem"; }
  std::filesystem::path key() const { return folder.path() / "server.key"; }

  void make(const std::string& name) {
    auto path = [&](const char* file) { return (folder.path() / (name + file)).string(); };
    ASSERT_EQ(testing::runCommand({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                                   "ec_paramgen_curve:prime256v1", "-nodes", "-keyout",
                                   path("-ca.key"), "-out", path("-ca.pem"), "-subj",
                                   "/CN=Quorvane test CA " + name, "-days", "2"})
                  .exitCode,
              0);
    testing::writeFile(path("-ext.cnf"),
                       "subjectAltName=IP:127.0.0.1\nbasicConstraints=CA:FALSE\n");
    ASSERT_EQ(testing::runCommand({"openssl", "req", "-newkey", "ec", "-pkeyopt",
                                   "ec_paramgen_curve:prime256v1", "-nodes", "-keyout",
                                   path("-server.key"), "-out", path("-server.csr"), "-subj",
                                   "/CN=127.0.0.1"})
                  .exitCode,
              0);
    ASSERT_EQ(
        testing::runCommand({"openssl", "x509", "-req", "-in", path("-server.csr"), "-CA",
                             path("-ca.pem"), "-CAkey", path("-ca.key"), "-CAcreateserial", "-out",
                             path("-server.pem"), "-days", "2", "-extfile", path("-ext.cnf")})
            .exitCode,
        0);
    std::filesystem::copy_file(path("-ca.pem"), ca(),
                               std::filesystem::copy_options::overwrite_existing);
    std::filesystem::copy_file(path("-server.pem"), certificate(),
                               std::filesystem::copy_options::overwrite_existing);
    std::filesystem::copy_file(path("-server.key"), key(),
                               std::filesystem::copy_options::overwrite_existing);
  }
};

TEST(RelayClientTLS, TrustsARelayThroughItsCAFileAndNothingElse) {
  TestAuthority authority, stranger;
  ASSERT_NO_FATAL_FAILURE(authority.make("relay"));
  ASSERT_NO_FATAL_FAILURE(stranger.make("stranger"));
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
        std::optional(authority.folder.path() / "missing.pem")}) {
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

#include <gtest/gtest.h>

#include "SSHWire/ConnectionBindings.h"
#include "SSHWire/SessionBind.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireWriter.h"
#include "support/TestSigner.h"
#include "support/TestSupport.h"
#include "support/WireTestSupport.h"

namespace quorvane {
namespace {

using testing::TestSigner;

Bytes bindContents(ByteView hostKeyBlob, ByteView sessionID, ByteView signature,
                   const Bytes& forwarding = {0}) {
  WireWriter writer;
  writer.writeString(hostKeyBlob);
  writer.writeString(sessionID);
  writer.writeString(signature);
  writer.writeRaw(forwarding);
  return std::move(writer).take();
}

class SessionBindParse : public ::testing::TestWithParam<SSHKeyType> {};

TEST_P(SessionBindParse, VerifiesTheHostSignatureOverTheSessionID) {
  TestSigner host(GetParam());
  Bytes sessionID(32, 0x77);
  SessionBind bind =
      SessionBind::parse(bindContents(host.publicKey().blob, sessionID, host.sign(sessionID)));
  EXPECT_EQ(bind, (SessionBind{host.publicKey(), sessionID, false, true}));

  TestSigner stranger(GetParam());
  EXPECT_FALSE(
      SessionBind::parse(bindContents(host.publicKey().blob, sessionID, stranger.sign(sessionID)))
          .signatureValid);
  Bytes otherSession(32, 0x78);
  EXPECT_FALSE(
      SessionBind::parse(bindContents(host.publicKey().blob, sessionID, host.sign(otherSession)))
          .signatureValid);
}

INSTANTIATE_TEST_SUITE_P(HostKeys, SessionBindParse,
                         ::testing::Values(SSHKeyType::ed25519, SSHKeyType::ecdsaP256,
                                           SSHKeyType::ecdsaP384, SSHKeyType::ecdsaP521,
                                           SSHKeyType::rsa));

TEST(SessionBindParse, RSAHostSignaturesMustUseSHA2) {
  TestSigner host(SSHKeyType::rsa);
  Bytes sessionID(48, 0x01);
  for (uint32_t flags : {2u, 4u})
    EXPECT_TRUE(SessionBind::parse(bindContents(host.publicKey().blob, sessionID,
                                                host.sign(sessionID, SignFlags{flags})))
                    .signatureValid);
  // The same signature relabelled as SHA-1 "ssh-rsa" is refused.
  Bytes relabelled = host.sign(sessionID, SignFlags::rsaSHA2_512);
  std::string_view oldName = "rsa-sha2-512", newName = "ssh-rsa";
  WireWriter writer;
  writer.writeString(newName);
  writer.writeRaw(ByteView(relabelled).subspan(4 + oldName.size()));
  EXPECT_FALSE(SessionBind::parse(bindContents(host.publicKey().blob, sessionID, writer.data()))
                   .signatureValid);
}

TEST(SessionBindParse, AnyNonZeroForwardingByteMeansForwarding) {
  TestSigner host(SSHKeyType::ed25519);
  Bytes sessionID(32, 0x10);
  Bytes signature = host.sign(sessionID);
  EXPECT_TRUE(SessionBind::parse(bindContents(host.publicKey().blob, sessionID, signature, {2}))
                  .isForwarding);
  EXPECT_FALSE(SessionBind::parse(bindContents(host.publicKey().blob, sessionID, signature, {0}))
                   .isForwarding);
}

struct MalformedBind {
  std::string name;
  Bytes contents;
  WireError error;
};

std::ostream& operator<<(std::ostream& out, const MalformedBind& c) { return out << c.name; }

const Bytes kHostBlob = SSHPublicKey::ed25519(Bytes(32, 9)).blob;
const Bytes kShortHostBlob = [] {
  WireWriter writer;
  writer.writeString(std::string_view("ssh-ed25519"));
  writer.writeString(Bytes(31, 9));
  return std::move(writer).take();
}();

const MalformedBind kMalformedBinds[] = {
    {"session identifier of 129 bytes", bindContents(kHostBlob, Bytes(129, 1), {}),
     WireError::invalid("session id length")},
    {"empty session identifier", bindContents(kHostBlob, {}, {}),
     WireError::invalid("session id length")},
    {"no forwarding byte", bindContents(kHostBlob, Bytes(32, 1), {}, {}), WireError::truncated()},
    {"two bytes after the signature", bindContents(kHostBlob, Bytes(32, 1), {}, {0, 0}),
     WireError::trailingBytes(1)},
    {"host key that does not parse", bindContents(kShortHostBlob, Bytes(32, 1), {}),
     WireError::invalid("ed25519 length")},
    // Checks run in order: framing, then the session identifier, then the host key.
    {"bad session identifier before bad host key", bindContents(kShortHostBlob, {}, {}),
     WireError::invalid("session id length")},
    {"missing byte before bad session identifier", bindContents(kHostBlob, {}, {}, {}),
     WireError::truncated()},
    {"oversized signature",
     [] {
       WireWriter writer;
       writer.writeString(kHostBlob);
       writer.writeString(Bytes(32, 1));
       writer.writeUInt32(262145);
       return std::move(writer).take();
     }(),
     WireError::lengthTooLarge(262145)},
};

class SessionBindRejects : public ::testing::TestWithParam<MalformedBind> {};

TEST_P(SessionBindRejects, MalformedContents) {
  EXPECT_EQ(testing::wireErrorOf([&] { SessionBind::parse(GetParam().contents); }),
            GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(Contents, SessionBindRejects, ::testing::ValuesIn(kMalformedBinds));

TEST(SessionBindParse, AcceptsSessionIDsFromOneTo128Bytes) {
  TestSigner host(SSHKeyType::ed25519);
  for (size_t length : {size_t{1}, size_t{128}}) {
    Bytes sessionID(length, 0x3c);
    EXPECT_TRUE(
        SessionBind::parse(bindContents(host.publicKey().blob, sessionID, host.sign(sessionID)))
            .signatureValid);
  }
}

// Bindings for the record and verdict rules; signatures are not involved there.
SessionBind binding(uint8_t host, uint8_t session, bool forwarding, bool valid = true) {
  return {SSHPublicKey::ed25519(Bytes(32, host)), Bytes(32, session), forwarding, valid};
}

using BindKind = ConnectionBindings::BindError::Kind;

struct RecordCase {
  std::string name;
  std::vector<SessionBind> held;
  SessionBind bind;
  std::optional<BindKind> error;  // nothing: recorded (or a harmless repeat)
};

std::ostream& operator<<(std::ostream& out, const RecordCase& c) { return out << c.name; }

std::vector<SessionBind> forwardingBinds(uint8_t count) {
  std::vector<SessionBind> binds;
  for (uint8_t i = 1; i <= count; ++i) binds.push_back(binding(i, i, true));
  return binds;
}

const RecordCase kRecordCases[] = {
    {"invalid signature is refused first",
     {binding(1, 1, false)},
     binding(1, 1, false, false),
     BindKind::invalidSignature},
    {"repeat after an auth binding is harmless",
     {binding(1, 1, false)},
     binding(1, 1, false),
     std::nullopt},
    {"same session with another host key",
     {binding(1, 1, true)},
     binding(2, 1, true),
     BindKind::conflictingKey},
    {"forwarding after an auth binding",
     {binding(1, 1, false)},
     binding(2, 2, true),
     BindKind::alreadyBoundForAuth},
    {"auth after an auth binding",
     {binding(1, 1, false)},
     binding(2, 2, false),
     BindKind::alreadyBoundForAuth},
    {"sixteenth forwarding binding", forwardingBinds(15), binding(16, 16, true), std::nullopt},
    {"seventeenth binding", forwardingBinds(16), binding(17, 17, false), BindKind::tooMany},
    {"repeat when sixteen are held", forwardingBinds(16), binding(16, 16, true), std::nullopt},
};

class ConnectionBindingsRecord : public ::testing::TestWithParam<RecordCase> {};

TEST_P(ConnectionBindingsRecord, RecordsOrRefusesLeavingBindingsUnchanged) {
  const RecordCase& c = GetParam();
  ConnectionBindings bindings{c.held};
  std::vector<SessionBind> expected = c.held;
  bool isRepeat = std::find(c.held.begin(), c.held.end(), c.bind) != c.held.end();
  if (!c.error && !isRepeat) expected.push_back(c.bind);
  try {
    bindings.record(c.bind);
    EXPECT_FALSE(c.error.has_value()) << "recorded";
  } catch (const ConnectionBindings::BindError& error) {
    EXPECT_EQ(std::optional(error.kind()), c.error);
  }
  EXPECT_EQ(bindings.binds, expected);
}

INSTANTIATE_TEST_SUITE_P(Rules, ConnectionBindingsRecord, ::testing::ValuesIn(kRecordCases));

using Verdict = ConnectionBindings::HostVerdict;

SignPurpose::UserAuth login(uint8_t session, std::optional<uint8_t> host) {
  SignPurpose::UserAuth auth;
  auth.sessionID = Bytes(32, session);
  if (host) auth.hostKeyBlob = SSHPublicKey::ed25519(Bytes(32, *host)).blob;
  return auth;
}

struct VerdictCase {
  std::string name;
  std::vector<SessionBind> binds;
  SignPurpose::UserAuth auth;
  Verdict expected;
};

std::ostream& operator<<(std::ostream& out, const VerdictCase& c) { return out << c.name; }

SSHPublicKey hostKey(uint8_t host) { return SSHPublicKey::ed25519(Bytes(32, host)); }

const VerdictCase kVerdictCases[] = {
    {"no bindings", {}, login(1, 1), {Verdict::Unbound{}}},
    {"plain login on its one binding",
     {binding(1, 1, false)},
     login(1, std::nullopt),
     {Verdict::Unbound{}}},
    {"host-bound login on its binding",
     {binding(1, 1, false)},
     login(1, 1),
     {Verdict::Verified{hostKey(1), {}}}},
    {"host-bound login naming another host",
     {binding(1, 1, false)},
     login(1, 2),
     {Verdict::Mismatch{}}},
    {"login for another session", {binding(1, 1, false)}, login(2, 1), {Verdict::Mismatch{}}},
    {"last binding is a forwarding one", {binding(1, 1, true)}, login(1, 1), {Verdict::Mismatch{}}},
    {"forwarded twice then bound",
     {binding(1, 1, true), binding(2, 2, true), binding(3, 3, false)},
     login(3, 3),
     {Verdict::Verified{hostKey(3), {hostKey(1), hostKey(2)}}}},
    {"plain login after forwarding",
     {binding(1, 1, true), binding(3, 3, false)},
     login(3, std::nullopt),
     {Verdict::Mismatch{}}},
    {"an earlier binding for authentication",
     {binding(1, 1, false), binding(3, 3, false)},
     login(3, 3),
     {Verdict::Mismatch{}}},
};

class ConnectionBindingsVerdict : public ::testing::TestWithParam<VerdictCase> {};

TEST_P(ConnectionBindingsVerdict, JudgesTheLoginsHost) {
  ConnectionBindings bindings{GetParam().binds};
  EXPECT_EQ(bindings.verdict(GetParam().auth), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Bindings, ConnectionBindingsVerdict, ::testing::ValuesIn(kVerdictCases));

}  // namespace
}  // namespace quorvane

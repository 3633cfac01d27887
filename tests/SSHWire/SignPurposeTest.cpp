#include <gtest/gtest.h>

#include <functional>

#include "SSHWire/SSHPublicKey.h"
#include "SSHWire/SignPurpose.h"
#include "SSHWire/WireWriter.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

const Bytes kKeyBlob = SSHPublicKey::ed25519(Bytes(32, 0x42)).blob;
const Bytes kHostKeyBlob = SSHPublicKey::ed25519(Bytes(32, 0x43)).blob;
const Bytes kSessionID(32, 0x5a);

// The fields of a user-authentication request, valid by default; each case changes one.
struct AuthFields {
  Bytes sessionID = kSessionID;
  uint8_t messageNumber = 50;
  std::string user = "git";
  std::string service = "ssh-connection";
  std::string method = "publickey";
  uint8_t hasSignature = 1;
  std::string algorithm = "ssh-ed25519";
  Bytes keyBlob = kKeyBlob;
  std::optional<Bytes> hostKeyBlob;
  Bytes tail;

  Bytes encode() const {
    WireWriter writer;
    writer.writeString(sessionID);
    writer.writeByte(messageNumber);
    writer.writeString(user);
    writer.writeString(service);
    writer.writeString(method);
    writer.writeByte(hasSignature);
    writer.writeString(algorithm);
    writer.writeString(keyBlob);
    if (hostKeyBlob) writer.writeString(*hostKeyBlob);
    writer.writeRaw(tail);
    return std::move(writer).take();
  }
};

struct AuthCase {
  std::string name;
  std::function<void(AuthFields&)> change;
  bool isLogin;
};

std::ostream& operator<<(std::ostream& out, const AuthCase& c) { return out << c.name; }

const AuthCase kAuthCases[] = {
    {"plain publickey login", [](AuthFields&) {}, true},
    {"host-bound login",
     [](AuthFields& f) {
       f.method = "publickey-hostbound-v00@openssh.com";
       f.hostKeyBlob = kHostKeyBlob;
     },
     true},
    {"any non-zero signature flag", [](AuthFields& f) { f.hasSignature = 7; }, true},
    {"host-bound without its host key",
     [](AuthFields& f) { f.method = "publickey-hostbound-v00@openssh.com"; }, false},
    {"plain publickey with a host key", [](AuthFields& f) { f.hostKeyBlob = kHostKeyBlob; }, false},
    {"another key's blob", [](AuthFields& f) { f.keyBlob = kHostKeyBlob; }, false},
    {"empty session identifier", [](AuthFields& f) { f.sessionID.clear(); }, false},
    {"wrong message number", [](AuthFields& f) { f.messageNumber = 51; }, false},
    {"wrong service", [](AuthFields& f) { f.service = "ssh-userauth"; }, false},
    {"password method", [](AuthFields& f) { f.method = "password"; }, false},
    {"no signature follows", [](AuthFields& f) { f.hasSignature = 0; }, false},
    {"trailing byte", [](AuthFields& f) { f.tail = {0}; }, false},
    {"user not UTF-8", [](AuthFields& f) { f.user = "\xff"; }, false},
};

class UserAuthClassify : public ::testing::TestWithParam<AuthCase> {};

TEST_P(UserAuthClassify, LoginOnlyWhenEveryFieldFits) {
  AuthFields fields;
  GetParam().change(fields);
  SignPurpose purpose = SignPurpose::classify(fields.encode(), kKeyBlob);
  if (!GetParam().isLogin) {
    EXPECT_EQ(purpose, SignPurpose{SignPurpose::Other{}});
    return;
  }
  SignPurpose::UserAuth expected{fields.sessionID, fields.user,    fields.method,
                                 fields.algorithm, fields.keyBlob, fields.hostKeyBlob};
  EXPECT_EQ(purpose, SignPurpose{expected});
}

INSTANTIATE_TEST_SUITE_P(Fields, UserAuthClassify, ::testing::ValuesIn(kAuthCases));

TEST(UserAuthClassify, EveryTruncationIsOther) {
  Bytes data = AuthFields{}.encode();
  for (size_t length = 0; length < data.size(); ++length)
    EXPECT_EQ(SignPurpose::classify(ByteView(data).first(length), kKeyBlob),
              SignPurpose{SignPurpose::Other{}})
        << length;
}

Bytes sshSigData(const std::string& namespace_, const std::string& hashAlgorithm,
                 const Bytes& tail = {}) {
  WireWriter writer;
  writer.writeRaw(bytesOf("SSHSIG"));
  writer.writeString(namespace_);
  writer.writeString(std::string_view("reserved is ignored"));
  writer.writeString(hashAlgorithm);
  writer.writeString(Bytes(64, 0x33));
  writer.writeRaw(tail);
  return std::move(writer).take();
}

TEST(SSHSigClassify, AcceptsSHA2HashesOnly) {
  EXPECT_EQ(SignPurpose::classify(sshSigData("git", "sha512"), kKeyBlob),
            SignPurpose{(SignPurpose::SSHSig{"git", "sha512", Bytes(64, 0x33)})});
  EXPECT_EQ(SignPurpose::classify(sshSigData("file", "sha256"), kKeyBlob),
            SignPurpose{(SignPurpose::SSHSig{"file", "sha256", Bytes(64, 0x33)})});
  for (const Bytes& data : {sshSigData("git", "sha1"), sshSigData("git", "SHA512"),
                            sshSigData("git", "sha512", {0}), bytesOf("SSHSIG"), bytesOf("SSHSI")})
    EXPECT_EQ(SignPurpose::classify(data, kKeyBlob), SignPurpose{SignPurpose::Other{}});
}

}  // namespace
}  // namespace quorvane

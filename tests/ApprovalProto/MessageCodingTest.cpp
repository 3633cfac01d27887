#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "ApprovalProto/ApprovalRequestMessage.h"
#include "ApprovalProto/ApprovalResponseMessage.h"
#include "ApprovalProto/ProtocolTime.h"
#include "ApprovalTestSupport.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::failureOf;
using testing::hex;
using Kind = QAPFailure::Kind;

// One field per group of hex digits, in the order of the format.
constexpr const char* kLoginRequestHex =
    "00000002"                                                                    // version
    " 00000002 7231"                                                              // requestID "r1"
    " 00000020 1111111111111111111111111111111111111111111111111111111111111111"  // macID
    " 0000018bcfe56800"                                    // createdAt 1700000000000
    " 0000018bcfe65260"                                    // expiresAt 1700000060000
    " 0000000a 5348413235363a616263"                       // keyFingerprint "SHA256:abc"
    " 00000004 776f726b"                                   // keyName "work"
    " 00"                                                  // purpose: login
    " 00000000"                                            //   hostKeyFingerprint absent
    " 0000000a 6769746875622e636f6d"                       //   hostName "github.com"
    " 01"                                                  //   nameState claimed
    " 00000003 676974"                                     //   user "git"
    " 01"                                                  //   forwarded
    " 00000003 737368"                                     // appName "ssh"
    " 01"                                                  // appVerified
    " 00000002 00000003 7a7368 00000008 5465726d696e616c"  // chain "zsh", "Terminal"
    " 00000008 2f686f6d652f6d65"                           // workingDirectory "/home/me"
    " 00000000"                                            // hint ""
    " 00000004 aabbccdd"                                   // dataHash
    " 00000002 00 01";                                     // scopes once, fiveMinutes

ApprovalRequestMessage loginRequest() {
  ApprovalRequestMessage request;
  request.requestID = bytesOf("r1");
  request.macID = Bytes(32, 0x11);
  request.createdAt = 1700000000000;
  request.expiresAt = 1700000060000;
  request.keyFingerprint = "SHA256:abc";
  request.keyName = "work";
  request.purpose =
      ApprovalPurpose::login(std::nullopt, "github.com", HostNameState::claimed, "git", true);
  request.appName = "ssh";
  request.appVerified = true;
  request.chain = {"zsh", "Terminal"};
  request.workingDirectory = "/home/me";
  request.dataHash = hex("aabbccdd");
  request.scopes = {qap::ApprovalScope::once, qap::ApprovalScope::fiveMinutes};
  return request;
}

constexpr const char* kResponseHex =
    "00000002"            // version
    " 00000002 7231"      // requestID "r1"
    " 00000001 11"        // macID
    " 00000001 22"        // deviceID
    " 02"                 // decision denyAndBlock
    " 01"                 // scope fiveMinutes
    " 00000004 aabbccdd"  // dataHash
    " 0000018bcfe59839"   // decidedAt 1700000012345
    " 01";                // fingerprintShown

ApprovalResponseMessage response() {
  return ApprovalResponseMessage{bytesOf("r1"),
                                 hex("11"),
                                 hex("22"),
                                 ApprovalDecision::denyAndBlock,
                                 qap::ApprovalScope::fiveMinutes,
                                 hex("aabbccdd"),
                                 1700000012345,
                                 true};
}

TEST(ApprovalMessages, EncodeFieldByField) {
  EXPECT_EQ(loginRequest().encode(), hex(kLoginRequestHex));
  EXPECT_EQ(ApprovalRequestMessage::decode(hex(kLoginRequestHex)), loginRequest());
  EXPECT_EQ(response().encode(), hex(kResponseHex));
  EXPECT_EQ(ApprovalResponseMessage::decode(hex(kResponseHex)), response());
}

TEST(ApprovalMessages, OtherPurposesAndEmptyListsRoundTrip) {
  for (const ApprovalPurpose& purpose :
       {ApprovalPurpose::signature("git"), ApprovalPurpose::other(),
        ApprovalPurpose::login("SHA256:host", std::nullopt, HostNameState::unknown, "", false)}) {
    ApprovalRequestMessage request = loginRequest();
    request.purpose = purpose;
    request.chain.clear();
    request.scopes.clear();
    EXPECT_EQ(ApprovalRequestMessage::decode(request.encode()), request);
  }
}

TEST(ApprovalMessages, AnEmptyHostNameReadsBackAsAbsent) {
  ApprovalRequestMessage request = loginRequest();
  request.purpose = ApprovalPurpose::login("", "", HostNameState::confirmed, "git", false);
  const ApprovalRequestMessage decoded = ApprovalRequestMessage::decode(request.encode());
  const auto& login = std::get<ApprovalPurpose::Login>(decoded.purpose.value);
  EXPECT_EQ(login.hostKeyFingerprint, std::nullopt);
  EXPECT_EQ(login.hostName, std::nullopt);
}

// Every proper prefix ends early, and one more byte is a trailing byte: all malformed.
TEST(ApprovalMessages, TruncationsAndATrailingByteAreMalformed) {
  for (const char* golden : {kLoginRequestHex, kResponseHex}) {
    const Bytes valid = hex(golden);
    const bool isRequest = golden == kLoginRequestHex;
    auto decode = [&](ByteView bytes) {
      if (isRequest)
        ApprovalRequestMessage::decode(bytes);
      else
        ApprovalResponseMessage::decode(bytes);
    };
    for (size_t length = 4; length < valid.size(); ++length)
      EXPECT_EQ(failureOf([&] { decode(ByteView(valid).first(length)); }), Kind::malformed)
          << length;
    Bytes longer = valid;
    longer.push_back(0);
    EXPECT_EQ(failureOf([&] { decode(longer); }), Kind::malformed);
  }
}

struct CorruptionCase {
  const char* name;
  bool request;
  size_t offset;  // byte to replace in the golden encoding; kLast for the last one
  uint8_t value;
  Kind expected;
};

// Offsets into the golden encodings above.
constexpr size_t kPurposeTag = 4 + 6 + 36 + 16 + 14 + 8;
constexpr size_t kNameState = kPurposeTag + 1 + 4 + 14;
constexpr size_t kForwarded = kNameState + 1 + 7;
constexpr size_t kAppVerified = kForwarded + 1 + 7;
constexpr size_t kChainCount = kAppVerified + 1;
constexpr size_t kKeyNameText = kPurposeTag - 4;
constexpr size_t kLast = SIZE_MAX;
constexpr size_t kDecision = 4 + 6 + 5 + 5;

const CorruptionCase kCorruptions[] = {
    {"version1", true, 3, 1, Kind::unsupportedVersion},
    {"version3", true, 3, 3, Kind::unsupportedVersion},
    {"responseVersion1", false, 3, 1, Kind::unsupportedVersion},
    {"responseVersion3", false, 3, 3, Kind::unsupportedVersion},
    {"purposeTag3", true, kPurposeTag, 3, Kind::malformed},
    {"nameState4", true, kNameState, 4, Kind::malformed},
    {"forwarded2", true, kForwarded, 2, Kind::malformed},
    {"appVerified2", true, kAppVerified, 2, Kind::malformed},
    {"chainCountBeyondTheBuffer", true, kChainCount, 0x7f, Kind::malformed},
    {"keyNameNotUTF8", true, kKeyNameText, 0xff, Kind::malformed},
    {"scope2", true, kLast, 2, Kind::malformed},
    {"decision3", false, kDecision, 3, Kind::malformed},
    {"responseScope2", false, kDecision + 1, 2, Kind::malformed},
    {"fingerprintShown2", false, kLast, 2, Kind::malformed},
    {"requestIDLengthOverTheLimit", false, 5, 0x04, Kind::malformed},
};

class ApprovalMessageCorruption : public ::testing::TestWithParam<CorruptionCase> {};

TEST_P(ApprovalMessageCorruption, IsRefused) {
  const CorruptionCase& c = GetParam();
  Bytes bytes = hex(c.request ? kLoginRequestHex : kResponseHex);
  const size_t offset = c.offset == kLast ? bytes.size() - 1 : c.offset;
  ASSERT_LT(offset, bytes.size());
  ASSERT_NE(bytes[offset], c.value) << "the case must change the byte";
  bytes[offset] = c.value;
  EXPECT_EQ(failureOf([&] {
              if (c.request)
                ApprovalRequestMessage::decode(bytes);
              else
                ApprovalResponseMessage::decode(bytes);
            }),
            c.expected);
}

INSTANTIATE_TEST_SUITE_P(Golden, ApprovalMessageCorruption, ::testing::ValuesIn(kCorruptions),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(ProtocolTime, MillisecondsSince1970) {
  EXPECT_EQ(millisecondsSince1970(Date{1700000000.1234}), 1700000000123u);
  EXPECT_EQ(millisecondsSince1970(Date{-5}), 0u);
  EXPECT_EQ(millisecondsSince1970(Date{std::nan("")}), 0u);
  EXPECT_EQ(millisecondsSince1970(Date{1e300}), std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(dateFromMilliseconds(1500), Date{1.5});
}

}  // namespace
}  // namespace quorvane

#include <gtest/gtest.h>

#include "SSHWire/AgentExtensions.h"
#include "SSHWire/AgentRequest.h"
#include "SSHWire/AgentResponse.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"
#include "support/TestSupport.h"
#include "support/WireTestSupport.h"

namespace quorvane {
namespace {

using testing::hex;

struct ParseCase {
  std::string name;
  std::string bodyHex;
  std::variant<AgentRequest, WireError> expected;
};

std::ostream& operator<<(std::ostream& out, const ParseCase& c) { return out << c.name; }

AgentRequest sign(std::string keyHex, std::string dataHex, uint32_t flags) {
  return {AgentRequest::Sign{hex(keyHex), hex(dataHex), SignFlags{flags}}};
}

const ParseCase kParseCases[] = {
    {"identities", "0b", AgentRequest{AgentRequest::RequestIdentities{}}},
    {"identities with a byte more", "0b 00", WireError::trailingBytes(1)},
    {"empty body", "", WireError::truncated()},
    {"add identity is unsupported even with a key", "11 0000000b 7373682d65643235353139",
     AgentRequest{AgentRequest::Unsupported{17}}},
    {"a message number meant for clients", "05", AgentRequest{AgentRequest::Unsupported{5}}},
    {"unknown message number", "ff 0102", AgentRequest{AgentRequest::Unsupported{255}}},
    {"sign", "0d 00000002 aabb 00000003 010203 00000006", sign("aabb", "010203", 6)},
    {"sign with empty key and data", "0d 00000000 00000000 00000000", sign("", "", 0)},
    {"sign without flags", "0d 00000002 aabb 00000003 010203", WireError::truncated()},
    {"sign with short flags", "0d 00000002 aabb 00000003 010203 000000", WireError::truncated()},
    {"sign with 4 extra bytes", "0d 00000002 aabb 00000003 010203 00000000 01020304",
     WireError::trailingBytes(4)},
    {"sign with an oversized key", "0d 00040001", WireError::lengthTooLarge(262145)},
    {"sign with oversized data", "0d 00000000 ffffffff", WireError::lengthTooLarge(0xffffffff)},
    {"lock", "16 00000003 616263", AgentRequest{AgentRequest::Lock{SecureBytes(hex("616263"))}}},
    {"lock with a byte more", "16 00000003 616263 00", WireError::trailingBytes(1)},
    {"lock without passphrase", "16", WireError::truncated()},
    {"unlock", "17 00000000", AgentRequest{AgentRequest::Unlock{SecureBytes()}}},
    {"query extension", "1b 00000005 7175657279",
     AgentRequest{AgentRequest::Extension{"query", {}}}},
    {"extension contents are the rest", "1b 00000001 78 00000001 ff",
     AgentRequest{AgentRequest::Extension{"x", hex("00000001 ff")}}},
    {"extension name not UTF-8", "1b 00000001 ff", WireError::invalid("utf8")},
    {"extension without name", "1b", WireError::truncated()},
};

class AgentRequestParse : public ::testing::TestWithParam<ParseCase> {};

TEST_P(AgentRequestParse, DecodesOrRejects) {
  const ParseCase& c = GetParam();
  Bytes body = hex(c.bodyHex);
  if (auto* request = std::get_if<AgentRequest>(&c.expected)) {
    EXPECT_EQ(AgentRequest::parse(body), *request);
  } else {
    EXPECT_EQ(testing::wireErrorOf([&] { AgentRequest::parse(body); }),
              std::get<WireError>(c.expected));
  }
}

INSTANTIATE_TEST_SUITE_P(Bodies, AgentRequestParse, ::testing::ValuesIn(kParseCases));

// Requests with a fixed end: every shorter prefix is truncated, one byte more is trailing.
class AgentRequestBoundaries : public ::testing::TestWithParam<std::string> {};

TEST_P(AgentRequestBoundaries, PrefixesAreTruncatedAndExtraBytesTrail) {
  Bytes body = hex(GetParam());
  ASSERT_NO_THROW(AgentRequest::parse(body));
  for (size_t length = 0; length < body.size(); ++length) {
    Bytes prefix(body.begin(), body.begin() + static_cast<ptrdiff_t>(length));
    EXPECT_EQ(testing::wireErrorOf([&] { AgentRequest::parse(prefix); }), WireError::truncated())
        << "prefix of " << length << " bytes";
  }
  Bytes longer = body;
  longer.push_back(0);
  EXPECT_EQ(testing::wireErrorOf([&] { AgentRequest::parse(longer); }),
            WireError::trailingBytes(1));
}

INSTANTIATE_TEST_SUITE_P(FixedLength, AgentRequestBoundaries,
                         ::testing::Values("0b", "0d 00000002 aabb 00000003 010203 00000006",
                                           "16 00000003 616263", "17 00000001 00"));

TEST(AgentRequest, AcceptsStringsOfExactlyTheLimit) {
  WireWriter writer;
  writer.writeByte(13);
  writer.writeString(Bytes(kWireLengthLimit, 1));
  writer.writeString(Bytes(kWireLengthLimit, 2));
  writer.writeUInt32(2);
  auto request = AgentRequest::parse(writer.data());
  auto& signRequest = std::get<AgentRequest::Sign>(request.value);
  EXPECT_EQ(signRequest.keyBlob.size(), kWireLengthLimit);
  EXPECT_EQ(signRequest.data.size(), kWireLengthLimit);
  EXPECT_TRUE(signRequest.flags.contains(SignFlags::rsaSHA2_256));
  EXPECT_FALSE(signRequest.flags.contains(SignFlags::rsaSHA2_512));
}

struct EncodeCase {
  std::string name;
  AgentResponse response;
  std::string bodyHex;
};

std::ostream& operator<<(std::ostream& out, const EncodeCase& c) { return out << c.name; }

const EncodeCase kEncodeCases[] = {
    {"no identities", {AgentResponse::Identities{}}, "0c 00000000"},
    {"two identities",
     {AgentResponse::Identities{{{hex("aa"), "work"}, {hex("bbcc"), "é"}}}},
     "0c 00000002 00000001 aa 00000004 776f726b 00000002 bbcc 00000002 c3a9"},
    {"signature", {AgentResponse::Signature{hex("0102")}}, "0e 00000002 0102"},
    {"success", AgentResponse::success(), "06"},
    {"failure", AgentResponse::failure(), "05"},
    {"extension failure", AgentResponse::extensionFailure(), "1c"},
    {"extension response is raw", {AgentResponse::ExtensionResponse{hex("0102")}}, "1d 0102"},
    {"query answer", queryExtensionResponse(),
     "1d 00000005 7175657279 00000018 73657373696f6e2d62696e64406f70656e7373682e636f6d"},
};

class AgentResponseEncode : public ::testing::TestWithParam<EncodeCase> {};

TEST_P(AgentResponseEncode, WritesTheBodyAndItsFrame) {
  const EncodeCase& c = GetParam();
  Bytes body = hex(c.bodyHex);
  EXPECT_EQ(c.response.encode(), body);
  Bytes framed = hex("00000000");
  framed[3] = static_cast<uint8_t>(body.size());
  framed.insert(framed.end(), body.begin(), body.end());
  EXPECT_EQ(c.response.framed(), framed);
}

INSTANTIATE_TEST_SUITE_P(Responses, AgentResponseEncode, ::testing::ValuesIn(kEncodeCases));

}  // namespace
}  // namespace quorvane

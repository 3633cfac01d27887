#include <gtest/gtest.h>

#include "Base/Base64.h"
#include "Pairing/PairingCode.h"
#include "PairingTestSupport.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {
namespace {

using testing::failureOf;
using testing::pairingErrorOf;
using Kind = PairingError::Kind;

PairingCode sampleCode() {
  return PairingCode{"https://relay.example/", "box-1", SecureBytes(bytesOf("box secret")),
                     SecureBytes(Bytes(32, 0x5a))};
}

// A code text around a payload written field by field, so that each field can be made wrong.
std::string codeTextOf(uint32_t version, std::string_view url, size_t keySize) {
  WireWriter writer;
  writer.writeUInt32(version);
  writer.writeString(url);
  writer.writeString(std::string_view("box-1"));
  writer.writeString(std::string_view("box secret"));
  writer.writeString(Bytes(keySize, 0x5a));
  std::string text = base64Encode(writer.data(), Base64Padding::unpadded);
  for (char& c : text) c = c == '+' ? '-' : c == '/' ? '_' : c;
  return std::string(kPairingCodePrefix) + text;
}

TEST(PairingCodeTest, TextRoundTripsAndIsURLSafe) {
  const SecureBytes text = pairingCodeText(sampleCode());
  EXPECT_TRUE(text.text().starts_with("quorvane:pair:"));
  EXPECT_EQ(text.text().find_first_of("+/="), std::string_view::npos);
  EXPECT_EQ(parsePairingCode(text.text()), sampleCode());
  EXPECT_EQ(codeTextOf(2, "https://relay.example/", 32), text.text());
}

TEST(PairingCodeTest, IgnoresSurroundingBlanksAndLineEnds) {
  const SecureBytes text = pairingCodeText(sampleCode());
  EXPECT_EQ(parsePairingCode("  " + std::string(text.text()) + "\r\n"), sampleCode());
}

TEST(PairingCodeTest, RejectsTextWithoutThePrefix) {
  EXPECT_EQ(pairingErrorOf([] { parsePairingCode("quorvane:offer:AAAA"); }), Kind::notACode);
  EXPECT_EQ(pairingErrorOf([] { parsePairingCode(""); }), Kind::notACode);
  EXPECT_EQ(std::string(PairingError(Kind::notACode).what()),
            "This is not a Quorvane pairing code.");
}

TEST(PairingCodeTest, RejectsPaddingAndTheStandardAlphabet) {
  const std::string text = codeTextOf(2, "https://relay.example/", 32);
  for (const std::string& bad :
       {text + "=", text + "==", text.substr(0, 20) + "+" + text.substr(21),
        text.substr(0, 20) + "/" + text.substr(21)})
    EXPECT_EQ(pairingErrorOf([&] { parsePairingCode(bad); }), Kind::unreadableCode) << bad;
  EXPECT_EQ(std::string(PairingError(Kind::unreadableCode).what()),
            "The code could not be read. Show a new one on the other computer.");
}

TEST(PairingCodeTest, RejectsKeysOtherThan32Bytes) {
  for (size_t size : {0u, 31u, 33u, 64u})
    EXPECT_EQ(pairingErrorOf([&] { parsePairingCode(codeTextOf(2, "https://r.example/", size)); }),
              Kind::unreadableCode)
        << size;
}

TEST(PairingCodeTest, RejectsARelayWithoutHTTPS) {
  for (const char* url : {"http://relay.example/", "HTTPS://relay.example/", "relay.example", ""})
    EXPECT_EQ(pairingErrorOf([&] { parsePairingCode(codeTextOf(2, url, 32)); }),
              Kind::unreadableCode)
        << url;
}

TEST(PairingCodeTest, RejectsOtherVersionsAsUnsupported) {
  for (uint32_t version : {0u, 1u, 3u})
    EXPECT_EQ(failureOf([&] { parsePairingCode(codeTextOf(version, "https://r.example/", 32)); }),
              QAPFailure::Kind::unsupportedVersion)
        << version;
}

TEST(PairingCodeTest, RejectsEveryTruncationAndATrailingByte) {
  WireWriter writer;
  writer.writeUInt32(2);
  writer.writeString(std::string_view("https://r.example/"));
  writer.writeString(std::string_view("box-1"));
  writer.writeString(std::string_view("s"));
  writer.writeString(Bytes(32, 1));
  Bytes payload = writer.data();
  auto textOfPayload = [](ByteView bytes) {
    std::string text = base64Encode(bytes, Base64Padding::unpadded);
    for (char& c : text) c = c == '+' ? '-' : c == '/' ? '_' : c;
    return std::string(kPairingCodePrefix) + text;
  };
  EXPECT_NO_THROW(parsePairingCode(textOfPayload(payload)));
  for (size_t length = 0; length < payload.size(); ++length)
    EXPECT_EQ(
        pairingErrorOf([&] { parsePairingCode(textOfPayload(ByteView(payload).first(length))); }),
        Kind::unreadableCode)
        << length;
  payload.push_back(0);
  EXPECT_EQ(pairingErrorOf([&] { parsePairingCode(textOfPayload(payload)); }),
            Kind::unreadableCode);
}

}  // namespace
}  // namespace quorvane

#include <gtest/gtest.h>

#include "SSHWire/Framing.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"
#include "support/TestSupport.h"
#include "support/WireTestSupport.h"

namespace quorvane {
namespace {

using testing::hex;

struct FrameLengthCase {
  std::string prefixHex;
  std::optional<uint32_t> length;  // accepted length, or the error below
  std::optional<WireError> error;
};

class FramingReadLength : public ::testing::TestWithParam<FrameLengthCase> {};

TEST_P(FramingReadLength, AcceptsOrRejects) {
  const FrameLengthCase& c = GetParam();
  Bytes prefix = hex(c.prefixHex);
  if (c.length) {
    EXPECT_EQ(Framing::readLength(prefix), *c.length);
  } else {
    EXPECT_EQ(testing::wireErrorOf([&] { Framing::readLength(prefix); }), *c.error);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Limits, FramingReadLength,
    ::testing::Values(
        FrameLengthCase{"00000001", 1, std::nullopt},
        FrameLengthCase{"00040000", 262144, std::nullopt},
        FrameLengthCase{"00000000", std::nullopt, WireError::invalid("empty message")},
        FrameLengthCase{"00040001", std::nullopt, WireError::lengthTooLarge(262145)},
        FrameLengthCase{"ffffffff", std::nullopt, WireError::lengthTooLarge(0xffffffff)},
        FrameLengthCase{"000400", std::nullopt, WireError::truncated()},
        FrameLengthCase{"", std::nullopt, WireError::truncated()},
        FrameLengthCase{"0000000100", std::nullopt, WireError::truncated()}));

TEST(Framing, FrameIsLengthThenBody) { EXPECT_EQ(Framing::frame(hex("0b")), hex("00000001 0b")); }

TEST(WireReader, ReadsBigEndianIntegers) {
  Bytes input = hex("01020304 0000000a 0000000b 02 00");
  WireReader reader(input);
  EXPECT_EQ(reader.readUInt32(), 0x01020304u);
  EXPECT_EQ(reader.readUInt64(), 0x0000000a0000000bull);
  EXPECT_TRUE(reader.readBool());  // any non-zero byte is true
  EXPECT_FALSE(reader.readBool());
  EXPECT_TRUE(reader.isAtEnd());
  EXPECT_EQ(testing::wireErrorOf([&] { reader.readByte(); }), WireError::truncated());
}

TEST(WireReader, StringLengthIsCheckedBeforeThePresenceOfItsBytes) {
  Bytes oversized = hex("00040001");
  EXPECT_EQ(testing::wireErrorOf([&] { WireReader(oversized).readString(); }),
            WireError::lengthTooLarge(262145));
  Bytes shortBody = hex("00000005 616263");
  EXPECT_EQ(testing::wireErrorOf([&] { WireReader(shortBody).readString(); }),
            WireError::truncated());
  Bytes shortPrefix = hex("000000");
  EXPECT_EQ(testing::wireErrorOf([&] { WireReader(shortPrefix).readString(); }),
            WireError::truncated());
}

struct UTF8Case {
  std::string stringHex;
  bool valid;
};

void PrintTo(const UTF8Case& c, std::ostream* out) { *out << c.stringHex; }

class WireReaderText : public ::testing::TestWithParam<UTF8Case> {};

TEST_P(WireReaderText, MustBeUTF8) {
  Bytes input = hex(GetParam().stringHex);
  if (GetParam().valid) {
    EXPECT_NO_THROW(WireReader(input).readUTF8String());
  } else {
    EXPECT_EQ(testing::wireErrorOf([&] { WireReader(input).readUTF8String(); }),
              WireError::invalid("utf8"));
  }
}

INSTANTIATE_TEST_SUITE_P(Sequences, WireReaderText,
                         ::testing::Values(UTF8Case{"00000002 c3a9", true},      // é
                                           UTF8Case{"00000004 f09f9491", true},  // four bytes
                                           UTF8Case{"00000001 00", true},     // NUL is valid UTF-8
                                           UTF8Case{"00000001 ff", false},    // never valid
                                           UTF8Case{"00000002 c080", false},  // overlong NUL
                                           UTF8Case{"00000003 eda080", false},    // a surrogate
                                           UTF8Case{"00000004 f4908080", false},  // > U+10FFFF
                                           UTF8Case{"00000002 e282", false}));    // truncated

TEST(WireReader, RestAtTheEndIsEmpty) {
  Bytes input = hex("00000000");
  WireReader reader(input);
  EXPECT_TRUE(reader.readString().empty());
  EXPECT_TRUE(reader.readRest().empty());
  EXPECT_TRUE(reader.isAtEnd());
}

TEST(WireReader, NestedReaderCannotRunPastItsString) {
  Bytes input = hex("00000002 0000 00000000");
  WireReader outer(input);
  WireReader inner = outer.readStringReader();
  EXPECT_EQ(testing::wireErrorOf([&] { inner.readUInt32(); }), WireError::truncated());
  EXPECT_EQ(outer.readUInt32(), 0u);
}

TEST(WireReader, ExpectEndReportsLeftoverBytes) {
  Bytes input = hex("01 0203");
  WireReader reader(input);
  reader.readByte();
  EXPECT_EQ(testing::wireErrorOf([&] { reader.expectEnd(); }), WireError::trailingBytes(2));
}

TEST(WireWriter, MirrorsTheReader) {
  WireWriter writer;
  writer.writeByte(7);
  writer.writeUInt32(0xdeadbeef);
  writer.writeUInt64(0x0102030405060708ull);
  writer.writeString(std::string_view("héllo"));
  writer.writeString(Bytes{});
  EXPECT_EQ(writer.data(), hex("07 deadbeef 0102030405060708 00000006 68c3a96c6c6f 00000000"));

  WireReader reader(writer.data());
  EXPECT_EQ(reader.readByte(), 7);
  EXPECT_EQ(reader.readUInt32(), 0xdeadbeefu);
  EXPECT_EQ(reader.readUInt64(), 0x0102030405060708ull);
  EXPECT_EQ(reader.readUTF8String(), "héllo");
  EXPECT_TRUE(reader.readString().empty());
  EXPECT_NO_THROW(reader.expectEnd());
}

TEST(Mpint, NormalisesLeadingBytes) {
  EXPECT_EQ(mpint(hex("00008001")), hex("008001"));
  EXPECT_EQ(mpint(hex("7f")), hex("7f"));
  EXPECT_EQ(mpint(hex("80")), hex("0080"));
  EXPECT_EQ(mpint(hex("0000")), Bytes{});
  EXPECT_EQ(mpint(Bytes{}), Bytes{});
}

}  // namespace
}  // namespace quorvane

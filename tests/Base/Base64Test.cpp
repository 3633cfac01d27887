#include <gtest/gtest.h>

#include "Base/Base64.h"

namespace quorvane {
namespace {

struct Base64Vector {
  std::string plain, padded, unpadded;
};

// RFC 4648 section 10.
const Base64Vector kRfc4648[] = {
    {"", "", ""},
    {"f", "Zg==", "Zg"},
    {"fo", "Zm8=", "Zm8"},
    {"foo", "Zm9v", "Zm9v"},
    {"foob", "Zm9vYg==", "Zm9vYg"},
    {"fooba", "Zm9vYmE=", "Zm9vYmE"},
    {"foobar", "Zm9vYmFy", "Zm9vYmFy"},
};

class Base64RoundTrip : public ::testing::TestWithParam<Base64Vector> {};

TEST_P(Base64RoundTrip, EncodesAndDecodesBothForms) {
  const Base64Vector& vector = GetParam();
  EXPECT_EQ(base64Encode(bytesOf(vector.plain)), vector.padded);
  EXPECT_EQ(base64Encode(bytesOf(vector.plain), Base64Padding::unpadded), vector.unpadded);
  EXPECT_EQ(base64Decode(vector.padded), bytesOf(vector.plain));
  EXPECT_EQ(base64Decode(vector.unpadded), bytesOf(vector.plain));
}

INSTANTIATE_TEST_SUITE_P(Rfc4648, Base64RoundTrip, ::testing::ValuesIn(kRfc4648));

TEST(Base64, EveryByteValueRoundTrips) {
  Bytes all;
  for (int i = 0; i < 256; ++i) all.push_back(static_cast<uint8_t>(i));
  EXPECT_EQ(base64Decode(base64Encode(all)), all);
  EXPECT_EQ(base64Decode(base64Encode(all, Base64Padding::unpadded)), all);
}

class Base64Rejects : public ::testing::TestWithParam<std::string> {};

TEST_P(Base64Rejects, MalformedText) { EXPECT_FALSE(base64Decode(GetParam()).has_value()); }

INSTANTIATE_TEST_SUITE_P(Malformed, Base64Rejects,
                         ::testing::Values("Z",          // a lone digit carries no whole byte
                                           "Zg=",        // partial padding
                                           "Zg===",      // too much padding
                                           "Zm8==",      // padding that does not complete the group
                                           "Zh==",       // unused bits not zero
                                           "Zm9=v",      // padding in the middle
                                           "Zm9v\n",     // whitespace
                                           "Zm9v YmFy",  // whitespace
                                           "Zm-v",       // URL-safe alphabet
                                           "====", "="));

}  // namespace
}  // namespace quorvane

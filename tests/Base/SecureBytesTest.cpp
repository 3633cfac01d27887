#include <gtest/gtest.h>

#include <sstream>

#include "Base/SecureBytes.h"

namespace quorvane {
namespace {

TEST(SecureBytes, ComparesContentsAndSize) {
  SecureBytes a(bytesOf("secret")), b(bytesOf("secret")), c(bytesOf("secreT")),
      d(bytesOf("secrets"));
  EXPECT_EQ(a, b);
  EXPECT_FALSE(a == c);
  EXPECT_FALSE(a == d);
  EXPECT_EQ(SecureBytes(), SecureBytes(Bytes{}));
}

TEST(SecureBytes, AdoptWipesTheSource) {
  Bytes source = bytesOf("passphrase");
  SecureBytes secret = SecureBytes::adopt(source);
  EXPECT_TRUE(source.empty());
  EXPECT_EQ(textOf(secret.view()), "passphrase");
}

// Typed text is read a line at a time, like getline, but never through an unwiped string.
TEST(SecureBytes, ReadLineTakesOneLineAtATimeLikeGetline) {
  std::istringstream in("first\n\nlast\r\nno newline");
  auto text = [](const std::optional<SecureBytes>& line) {
    return line ? std::optional<std::string>(textOf(line->view())) : std::nullopt;
  };
  EXPECT_EQ(text(SecureBytes::readLine(in)), "first");
  EXPECT_EQ(text(SecureBytes::readLine(in)), "");
  EXPECT_EQ(text(SecureBytes::readLine(in)), "last\r") << "a carriage return is the caller's";
  EXPECT_EQ(text(SecureBytes::readLine(in)), "no newline");
  EXPECT_EQ(text(SecureBytes::readLine(in)), std::nullopt) << "the end of input";
}

// Copies and moves keep the bytes; growing past a block moves them into a new one.
TEST(SecureBytes, KeepsItsBytesThroughCopiesMovesAndGrowth) {
  SecureBytes grown;
  for (int i = 0; i < 1000; ++i) grown.push_back(static_cast<uint8_t>(i));
  SecureBytes copy = grown;
  SecureBytes moved = std::move(grown);
  EXPECT_EQ(copy, moved);
  EXPECT_EQ(moved.size(), 1000u);
  EXPECT_EQ(moved.data()[999], static_cast<uint8_t>(999));
}

}  // namespace
}  // namespace quorvane

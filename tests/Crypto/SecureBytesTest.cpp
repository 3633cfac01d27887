#include <gtest/gtest.h>

#include "Crypto/SecureBytes.h"

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

TEST(SecureBytes, MovedFromValueIsEmpty) {
  SecureBytes first(bytesOf("key"));
  SecureBytes second(std::move(first));
  EXPECT_TRUE(first.empty());  // NOLINT(bugprone-use-after-move): the moved-from state is the point
  EXPECT_EQ(textOf(second.view()), "key");
  SecureBytes third;
  third = std::move(second);
  EXPECT_TRUE(second.empty());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(textOf(third.view()), "key");
}

}  // namespace
}  // namespace quorvane

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace quorvane

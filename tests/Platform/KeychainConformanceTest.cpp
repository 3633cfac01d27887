// The behaviour every keychain back end shares, run against each of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "Platform/FileKeychain.h"
#include "Platform/InMemoryKeychain.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

struct Backend {
  const char* name;
  std::function<std::unique_ptr<Keychain>(const std::filesystem::path& folder)> make;
};

std::ostream& operator<<(std::ostream& out, const Backend& backend) { return out << backend.name; }

// Items whose names could be confused by a careless encoding: separators, escapes, case, dots,
// NUL, non-ASCII, and long names that only differ at the end.
const std::vector<std::pair<std::string, std::string>> kTrickyItems = {
    {"com.tallowmere.quorvane.keys", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"},
    {"com.tallowmere.quorvane.keys", "e621e1f8-c36c-495a-93fc-0c247a3e6e5f"},
    {"svc", ""},
    {"", "account"},
    {"svc", "."},
    {"svc", ".."},
    {"svc", "../escape"},
    {"svc", "a/b"},
    {"svc", "a%2Fb"},
    {"svc", "a,b"},
    {"svc,a", "b"},
    {".hidden", "x"},
    {"svc", std::string("nul\0inside", 10)},
    {"svc", "nul"},
    {"svc",
     "gr\xC3\xBC\xC3\x9F"
     "e"},
    {"svc", std::string(300, 'x') + "1"},
    {"svc", std::string(300, 'x') + "2"},
    {"svc", std::string(4096, '/')},
};

class KeychainConformance : public ::testing::TestWithParam<Backend> {
 protected:
  testing::TemporaryDirectory directory_;
  std::unique_ptr<Keychain> keychain_ = GetParam().make(directory_.path() / "keychain");
};

TEST_P(KeychainConformance, FollowsTheLifeOfAnItem) {
  const Bytes first = bytesOf("first"), second = bytesOf("second value");
  for (const auto& [service, account] : kTrickyItems) {
    SCOPED_TRACE(account.substr(0, 40));
    EXPECT_EQ(keychain_->read(service, account).status, kKeychainItemNotFound);
    EXPECT_EQ(keychain_->update(service, account, first), kKeychainItemNotFound);
    EXPECT_EQ(keychain_->remove(service, account), kKeychainItemNotFound);

    EXPECT_EQ(keychain_->add(service, account, first), kKeychainSuccess);
    EXPECT_EQ(keychain_->add(service, account, second), kKeychainDuplicateItem);
    KeychainReadResult read = keychain_->read(service, account);
    EXPECT_EQ(read.status, kKeychainSuccess);
    EXPECT_EQ(read.data, SecureBytes(first));

    EXPECT_EQ(keychain_->update(service, account, second), kKeychainSuccess);
    EXPECT_EQ(keychain_->read(service, account).data, SecureBytes(second));

    EXPECT_EQ(keychain_->remove(service, account), kKeychainSuccess);
    EXPECT_EQ(keychain_->read(service, account).status, kKeychainItemNotFound);
    EXPECT_EQ(keychain_->remove(service, account), kKeychainItemNotFound);
  }
}

TEST_P(KeychainConformance, KeepsItemsWithSimilarNamesApart) {
  for (size_t i = 0; i < kTrickyItems.size(); ++i)
    ASSERT_EQ(keychain_->add(kTrickyItems[i].first, kTrickyItems[i].second,
                             bytesOf("value " + std::to_string(i))),
              kKeychainSuccess)
        << "item " << i;
  for (size_t i = 0; i < kTrickyItems.size(); ++i)
    EXPECT_EQ(keychain_->read(kTrickyItems[i].first, kTrickyItems[i].second).data,
              SecureBytes(bytesOf("value " + std::to_string(i))))
        << "item " << i;
}

TEST_P(KeychainConformance, StoresEmptyAndBinaryData) {
  Bytes binary(70000);
  for (size_t i = 0; i < binary.size(); ++i) binary[i] = static_cast<uint8_t>(i * 7);
  ASSERT_EQ(keychain_->add("svc", "empty", {}), kKeychainSuccess);
  ASSERT_EQ(keychain_->add("svc", "binary", binary), kKeychainSuccess);
  KeychainReadResult empty = keychain_->read("svc", "empty");
  EXPECT_EQ(empty.status, kKeychainSuccess);
  EXPECT_TRUE(empty.data.empty());
  EXPECT_EQ(keychain_->read("svc", "binary").data, SecureBytes(binary));
}

// Every write gives the item a new version, even one that writes the same bytes again at once,
// and a removal changes it too; reads and failed calls leave it alone. Readers rely on this to
// keep what they read.
TEST_P(KeychainConformance, GivesTheItemANewVersionAtEveryChange) {
  std::vector<KeychainItemVersion> seen;
  auto expectNew = [&](const char* step) {
    std::optional<KeychainItemVersion> version = keychain_->version("svc", "item");
    ASSERT_TRUE(version) << step;
    EXPECT_EQ(std::ranges::count(seen, *version), 0) << step;
    seen.push_back(*version);
  };
  expectNew("absent");
  ASSERT_EQ(keychain_->add("svc", "item", bytesOf("same")), kKeychainSuccess);
  expectNew("added");
  keychain_->read("svc", "item");
  EXPECT_EQ(keychain_->add("svc", "item", bytesOf("same")), kKeychainDuplicateItem);
  EXPECT_EQ(keychain_->version("svc", "item"), seen.back());
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(keychain_->update("svc", "item", bytesOf("same")), kKeychainSuccess);
    expectNew("updated");
  }
  ASSERT_EQ(keychain_->remove("svc", "item"), kKeychainSuccess);
  EXPECT_NE(keychain_->version("svc", "item"), seen.back());
  EXPECT_NE(keychain_->version("svc", "other"), std::nullopt);
}

// Racing threads: exactly one add wins each round, and the item holds the winner's value.
TEST_P(KeychainConformance, OneOfManyThreadsAddingTheSameItemWins) {
  constexpr int kThreads = 6, kRounds = 25;
  for (int round = 0; round < kRounds; ++round) {
    const std::string account = "race-" + std::to_string(round);
    std::atomic<int> winners{0}, duplicates{0}, winner{-1};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
      threads.emplace_back([&, t] {
        KeychainStatus status = keychain_->add("svc", account, bytesOf(std::to_string(t)));
        if (status == kKeychainSuccess) {
          ++winners;
          winner = t;
        } else if (status == kKeychainDuplicateItem) {
          ++duplicates;
        }
      });
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(winners, 1) << "round " << round;
    ASSERT_EQ(duplicates, kThreads - 1) << "round " << round;
    EXPECT_EQ(keychain_->read("svc", account).data,
              SecureBytes(bytesOf(std::to_string(winner.load()))));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Backends, KeychainConformance,
    ::testing::Values(
        Backend{"InMemory", [](const auto&) { return std::make_unique<InMemoryKeychain>(); }},
        Backend{"File", [](const auto& folder) { return std::make_unique<FileKeychain>(folder); }}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace quorvane

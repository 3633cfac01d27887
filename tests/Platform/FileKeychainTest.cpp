// What only the file keychain has: its files, their format, and processes racing on one folder.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "Platform/FileKeychain.h"
#include "Platform/KeychainItemFile.h"
#include "support/ChildProcess.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

mode_t permissions(const fs::path& path) {
  struct stat info {};
  EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

class FileKeychainTest : public ::testing::Test {
 protected:
  testing::TemporaryDirectory directory_;
  fs::path folder_ = directory_.path() / "data" / "quorvane" / "keychain";
  FileKeychain keychain_{folder_};
};

TEST_F(FileKeychainTest, MakesAPrivateFolderAndPrivateFilesWhateverTheUmask) {
  const mode_t saved = umask(0);
  const KeychainStatus status = keychain_.add("svc", "acct", bytesOf("secret"));
  umask(saved);
  ASSERT_EQ(status, kKeychainSuccess);
  EXPECT_EQ(permissions(folder_), 0700u);
  EXPECT_EQ(permissions(keychain_.itemPath("svc", "acct")), 0600u);

  ASSERT_EQ(chmod(folder_.c_str(), 0755), 0);
  ASSERT_EQ(keychain_.update("svc", "acct", bytesOf("other")), kKeychainSuccess);
  EXPECT_EQ(permissions(folder_), 0700u) << "an existing folder is made private again";
  EXPECT_EQ(permissions(keychain_.itemPath("svc", "acct")), 0600u);
}

TEST_F(FileKeychainTest, NoNameLeadsOutOfTheFolder) {
  const std::vector<std::string> accounts = {
      "../../outside", "/etc/passwd", "a/b/c", "..", ".", std::string(1000, '.'), "~", "%2e%2e"};
  for (const std::string& account : accounts)
    ASSERT_EQ(keychain_.add("svc", account, bytesOf(account)), kKeychainSuccess) << account;
  size_t items = 0;
  for (const auto& entry : fs::directory_iterator(folder_)) {
    EXPECT_TRUE(entry.is_regular_file()) << entry.path();
    EXPECT_LE(entry.path().filename().string().size(), 200u);
    if (entry.path().filename() != ".lock") ++items;
  }
  EXPECT_EQ(items, accounts.size());
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.parent_path()), {}), 1)
      << "nothing was written beside the keychain folder";
  EXPECT_EQ(keychain_.itemPath("svc", "plain-Name_1.x").filename(), "svc,plain-Name_1.x.item");
}

TEST_F(FileKeychainTest, ItemsOutliveTheObjectThatWroteThem) {
  ASSERT_EQ(keychain_.add("svc", "acct", bytesOf("kept")), kKeychainSuccess);
  FileKeychain reopened(folder_);
  EXPECT_EQ(reopened.read("svc", "acct").data, SecureBytes(bytesOf("kept")));
}

TEST_F(FileKeychainTest, ADamagedOrMisplacedFileReadsAsDecodeError) {
  ASSERT_EQ(keychain_.add("svc", "a", bytesOf("value of a")), kKeychainSuccess);
  ASSERT_EQ(keychain_.add("svc", "b", bytesOf("value of b")), kKeychainSuccess);
  // a's file copied over b's: the file names a, so it is not b.
  fs::copy_file(keychain_.itemPath("svc", "a"), keychain_.itemPath("svc", "b"),
                fs::copy_options::overwrite_existing);
  EXPECT_EQ(keychain_.read("svc", "b").status, kKeychainDecodeError);
  EXPECT_EQ(keychain_.read("svc", "a").status, kKeychainSuccess);

  testing::writeFile(keychain_.itemPath("svc", "a"), "not an item");
  EXPECT_EQ(keychain_.read("svc", "a").status, kKeychainDecodeError);
  // A damaged item can still be replaced and removed.
  EXPECT_EQ(keychain_.update("svc", "a", bytesOf("repaired")), kKeychainSuccess);
  EXPECT_EQ(keychain_.read("svc", "a").data, SecureBytes(bytesOf("repaired")));
}

TEST_F(FileKeychainTest, RefusesNamesAndDataOverTheLimits) {
  const std::string longName(KeychainItemFile::kNameLimit + 1, 'n');
  const Bytes tooMuch(KeychainItemFile::kDataLimit + 1);
  EXPECT_EQ(keychain_.add(longName, "acct", bytesOf("x")), kKeychainParameterError);
  EXPECT_EQ(keychain_.add("svc", longName, bytesOf("x")), kKeychainParameterError);
  EXPECT_EQ(keychain_.read("svc", longName).status, kKeychainParameterError);
  EXPECT_EQ(keychain_.add("svc", "acct", tooMuch), kKeychainParameterError);
  EXPECT_EQ(keychain_.add("svc", "acct", Bytes(KeychainItemFile::kDataLimit)), kKeychainSuccess);
}

TEST_F(FileKeychainTest, DeletesTemporaryFilesOfDeadWriters) {
  ASSERT_EQ(keychain_.add("svc", "first", bytesOf("1")), kKeychainSuccess);
  const fs::path stale = folder_ / ".svc,second.item.tmp-0011223344556677";
  testing::writeFile(stale, "half a secret");
  ASSERT_EQ(keychain_.add("svc", "second", bytesOf("2")), kKeychainSuccess);
  EXPECT_FALSE(fs::exists(stale));
  EXPECT_EQ(keychain_.read("svc", "first").data, SecureBytes(bytesOf("1")));
}

// Two processes add the same item at the same moment, round after round. Each round must end with
// one success, one kKeychainDuplicateItem, and the winner's value stored.
TEST_F(FileKeychainTest, TwoProcessesAddingTheSameItemLeaveOneItemAndOneValue) {
  constexpr int kRounds = 150;
  int oneWinner = 0, firstWon = 0;
  for (int round = 0; round < kRounds; ++round) {
    const std::string account = "race-" + std::to_string(round);
    testing::StartGate gate;
    pid_t children[2];
    for (int c = 0; c < 2; ++c)
      children[c] = testing::forkChild([&, c] {
        FileKeychain own(folder_);
        gate.wait();
        KeychainStatus status = own.add("svc", account, bytesOf("child " + std::to_string(c)));
        return status == kKeychainSuccess ? 0 : status == kKeychainDuplicateItem ? 1 : 2;
      });
    gate.open();
    const int codes[2] = {testing::waitChild(children[0]), testing::waitChild(children[1])};
    ASSERT_TRUE((codes[0] == 0 && codes[1] == 1) || (codes[0] == 1 && codes[1] == 0))
        << "round " << round << ": exit codes " << codes[0] << ", " << codes[1];
    const int winner = codes[0] == 0 ? 0 : 1;
    ++oneWinner;
    firstWon += winner == 0;
    ASSERT_EQ(keychain_.read("svc", account).data,
              SecureBytes(bytesOf("child " + std::to_string(winner))));
  }
  std::cout << "two-process add race: " << kRounds << " rounds, " << oneWinner
            << " with exactly one winner; first child won " << firstWon << ", second "
            << kRounds - firstWon << "\n";
  RecordProperty("rounds", kRounds);
  RecordProperty("firstChildWins", firstWon);
}

// The item file format: lengths are checked before copying, nothing may follow the data.
class KeychainItemFileTest : public ::testing::Test {
 protected:
  const KeychainItemFile item_{"svc", "acct", SecureBytes(bytesOf("data"))};
  const Bytes encoded_ = [this] {
    const SecureBytes encoded = item_.encode();
    return Bytes(encoded.view().begin(), encoded.view().end());
  }();
};

TEST_F(KeychainItemFileTest, RoundTripsAndRejectsEveryPrefix) {
  EXPECT_EQ(KeychainItemFile::decode(encoded_), item_);
  for (size_t length = 0; length < encoded_.size(); ++length)
    EXPECT_THROW(KeychainItemFile::decode(ByteView(encoded_).first(length)), KeychainItemError)
        << "prefix of " << length;
}

struct DamageCase {
  std::string name;
  std::function<void(Bytes&)> damage;
  KeychainItemError expected;
};

class DamagedKeychainItem : public KeychainItemFileTest,
                            public ::testing::WithParamInterface<DamageCase> {};

TEST_P(DamagedKeychainItem, IsRejectedWithItsError) {
  Bytes damaged = encoded_;
  GetParam().damage(damaged);
  try {
    KeychainItemFile::decode(damaged);
    ADD_FAILURE() << "decoded";
  } catch (const KeychainItemError& error) {
    EXPECT_EQ(error, GetParam().expected);
  }
}

INSTANTIATE_TEST_SUITE_P(
    KeychainItemFile, DamagedKeychainItem,
    ::testing::Values(
        DamageCase{"Magic", [](Bytes& b) { b[0] = 'X'; }, KeychainItemError::badMagic()},
        DamageCase{"Version", [](Bytes& b) { b[8] = 2; }, KeychainItemError::unsupportedVersion(2)},
        DamageCase{"ServiceLength", [](Bytes& b) { b[9] = 0x7F; },
                   KeychainItemError::lengthTooLarge(0x7F000003)},
        DamageCase{"DataLength", [](Bytes& b) { b[b.size() - 8] = 0x01; },
                   KeychainItemError::lengthTooLarge(0x01000004)},
        DamageCase{"AccountLengthPastTheEnd", [](Bytes& b) { b[19] = 0x40; },
                   KeychainItemError::truncated()},
        DamageCase{"TrailingByte", [](Bytes& b) { b.push_back(0); },
                   KeychainItemError::trailingBytes(1)}),
    [](const ::testing::TestParamInfo<DamageCase>& tested) { return tested.param.name; });

}  // namespace
}  // namespace quorvane

#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "ActivityModel/ActivityTestSupport.h"
#include "ActivityStore/ActivityStore.h"
#include "ActivityStore/MemoryChainAnchor.h"
#include "support/TestSupport.h"

namespace quorvane {

inline void PrintTo(const ChainProblem& problem, std::ostream* out) { *out << problem.message(); }

namespace activitytest {

inline SecureBytes testKey(uint8_t fill) { return SecureBytes(Bytes(32, fill)); }

// A log file in a fresh directory, with a memory anchor keyed with testKey(1).
class StoreTest : public ::testing::Test {
 protected:
  std::filesystem::path path() const { return directory_.path() / "activity.sqlite"; }

  std::unique_ptr<ActivityStore> openStore() {
    return ActivityStore::open(path(), anchor_, anchor_->chainKey());
  }

  // Appends loginEntry(1) to loginEntry(count): rows 1 to count of a new log.
  static void fill(ActivityStore& store, int count) {
    for (int i = 1; i <= count; ++i) store.append(loginEntry(i));
  }

  // Runs SQL on the log with the sqlite3 program, as someone editing the file outside would.
  void shell(const std::string& sql) const {
    testing::CommandResult result = testing::runCommand({"sqlite3", path().string(), sql});
    ASSERT_EQ(result.exitCode, 0) << sql;
  }

  std::string shellQuery(const std::string& sql) const {
    return testing::runCommand({"sqlite3", path().string(), sql}).output;
  }

  testing::TemporaryDirectory directory_;
  std::shared_ptr<MemoryChainAnchor> anchor_ = std::make_shared<MemoryChainAnchor>(testKey(1));
};

}  // namespace activitytest
}  // namespace quorvane

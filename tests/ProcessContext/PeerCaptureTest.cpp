#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include "ProcessContext/ProcessChain.h"
#include "ProcessContext/ProcessContextError.h"
#include "ProcessContext/ProcessRecord.h"
#include "ProcessTestSupport.h"

namespace quorvane {
namespace {

using testing::Child;
using testing::Listener;
using testing::programPath;

// A connection accepted by the test, closed when it goes out of scope (which lets a waiting
// ssh-add finish).
class Connection {
 public:
  explicit Connection(Listener& listener) : descriptor_(listener.accept()) {}
  ~Connection() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  int get() const { return descriptor_; }

 private:
  int descriptor_;
};

ProcessContextError captureError(int connection) {
  try {
    capture(connection, getuid());
  } catch (const ProcessContextError& error) {
    return error;
  }
  ADD_FAILURE() << "capture succeeded";
  return ProcessContextError::peerGone();
}

// Each level enters its own folder and starts the next level, which is not the last command, so
// that sh cannot replace itself with it; level 0 becomes ssh-add, which connects and waits.
const std::string kNest =
    "cd \"$QV_LEVELS/$1\" || exit 9; if [ \"$1\" -gt 0 ]; then sh -c \"$0\" \"$0\" $(($1 - 1)); "
    "else exec ssh-add -l; fi; exit $?";

TEST(Capture, WalksTwentyNestedShellsUpToSixteenEntries) {
  Listener listener;
  std::filesystem::path levels = listener.directory() / "levels";
  for (int level = 0; level <= 20; ++level)
    std::filesystem::create_directories(levels / std::to_string(level));
  Child top({"sh", "-c", kNest, kNest, "20"},
            {{"QV_LEVELS", levels.string()}, {"SSH_AUTH_SOCK", listener.path().string()}},
            listener.directory());

  Connection connection(listener);
  ASSERT_GE(connection.get(), 0);
  PeerOrigin origin = capture(connection.get(), getuid());
  ASSERT_EQ(origin.chain.size(), kMaximumChainLength);
  EXPECT_EQ(origin.peerPID, origin.chain[0].pid);
  EXPECT_EQ(origin.peerUID, getuid());

  const ProcessInfoEntry& peer = origin.chain[0];
  EXPECT_EQ(peer.path, programPath("ssh-add"));
  EXPECT_EQ(peer.name, "ssh-add");
  EXPECT_EQ(peer.arguments, (std::vector<std::string>{"ssh-add", "-l"}));
  EXPECT_EQ(peer.workingDirectory, (levels / "0").string());
  std::string shell = programPath("sh");
  for (size_t level = 1; level < origin.chain.size(); ++level) {
    const ProcessInfoEntry& entry = origin.chain[level];
    SCOPED_TRACE("level " + std::to_string(level));
    EXPECT_EQ(entry.path, shell);
    EXPECT_EQ(entry.name, std::filesystem::path(shell).filename());
    EXPECT_EQ(entry.arguments,
              (std::vector<std::string>{"sh", "-c", kNest, kNest, std::to_string(level)}));
    EXPECT_EQ(entry.workingDirectory, (levels / std::to_string(level)).string());
    // A shell runs whatever it is given: never a verified program.
    EXPECT_EQ(entry.signatureValid, false);
    EXPECT_EQ(entry.signingIdentifier, std::nullopt);
    EXPECT_EQ(entry.teamIdentifier, std::nullopt);
    EXPECT_EQ(entry.appBundlePath, std::nullopt);
  }
  // Each entry is the parent of the one before it (all are waiting while the connection is open).
  for (size_t level = 0; level + 1 < origin.chain.size(); ++level) {
    std::ifstream stat("/proc/" + std::to_string(origin.chain[level].pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    EXPECT_EQ(parseProcessStat(text).parentPID, origin.chain[level + 1].pid);
  }
  std::optional<uint64_t> startTime = processStartTime(origin.peerPID);
  ASSERT_TRUE(startTime);
  EXPECT_EQ(origin.peerPIDVersion, pidVersion(*startTime));

  // Through a cache the second walk takes the ancestors from memory; it must describe the same
  // chain.
  AncestorCache cache;
  uint64_t peerStartTime = 0;
  EXPECT_EQ(capture(connection.get(), getuid(), &peerStartTime, &cache), origin);
  EXPECT_EQ(peerStartTime, *startTime);
  EXPECT_EQ(capture(connection.get(), getuid(), nullptr, &cache), origin);
}

// A peer seen again brings its remembered ancestry: this test process, one of the ancestors,
// changes its folder in between, and only a capture without the cache sees that at once.
TEST(Capture, TakesTheAncestryOfAPeerSeenRecentlyFromTheCache) {
  Listener listener;
  std::filesystem::path levels = listener.directory() / "levels";
  for (int level = 0; level <= 2; ++level)
    std::filesystem::create_directories(levels / std::to_string(level));
  Child top({"sh", "-c", kNest, kNest, "2"},
            {{"QV_LEVELS", levels.string()}, {"SSH_AUTH_SOCK", listener.path().string()}},
            listener.directory());
  Connection connection(listener);
  ASSERT_GE(connection.get(), 0);

  AncestorCache cache;
  const PeerOrigin first = capture(connection.get(), getuid(), nullptr, &cache);
  ASSERT_LT(first.chain.size(), kMaximumChainLength) << "a cut walk is not remembered";
  const auto self =
      std::find_if(first.chain.begin(), first.chain.end(),
                   [](const ProcessInfoEntry& entry) { return entry.pid == getpid(); });
  ASSERT_NE(self, first.chain.end());
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(levels);
  const PeerOrigin cached = capture(connection.get(), getuid(), nullptr, &cache);
  const PeerOrigin fresh = capture(connection.get(), getuid());
  std::filesystem::current_path(before);

  EXPECT_EQ(cached, first);
  EXPECT_EQ(fresh.chain[static_cast<size_t>(self - first.chain.begin())].workingDirectory,
            levels.string());
}

TEST(AncestorCache, ReusesOnlyTheSameRunningProgramWhileFresh) {
  AncestorCache cache;
  const auto now = std::chrono::steady_clock::now();
  const AncestorCache::Key key{4242, 1000, 8, 77};
  AncestorCache::Described described;
  described.entry.pid = 4242;
  described.entry.path = "/usr/bin/make";
  described.ancestors.resize(2);
  cache.store(key, described, now);

  EXPECT_EQ(cache.find(key, now + AncestorCache::kFreshness - std::chrono::milliseconds(1)),
            described);
  const AncestorCache::Key others[] = {{4242, 1001, 8, 77},  // the pid given to a new process
                                       {4242, 1000, 8, 78},  // the process ran another program
                                       {4242, 1000, 9, 77},
                                       {4243, 1000, 8, 77}};
  for (const auto& other : others) EXPECT_EQ(cache.find(other, now), std::nullopt);
  EXPECT_EQ(cache.find(key, now + AncestorCache::kFreshness), std::nullopt);
  EXPECT_EQ(cache.find(key, now), std::nullopt) << "an expired description is dropped";
}

struct SigningCase {
  std::string name;
  bool copyToTemporaryFolder;
  bool deleteBeforeCapture;
  std::optional<bool> signatureValid;  // appleSigned is the same
  bool hasIdentifierAndTeam;
};

void PrintTo(const SigningCase& c, std::ostream* out) { *out << c.name; }

class CaptureSigning : public ::testing::TestWithParam<SigningCase> {};

TEST_P(CaptureSigning, ReportsWhoCouldHavePlacedTheProgram) {
  const SigningCase& c = GetParam();
  Listener listener;
  std::filesystem::path program = programPath("ssh-add");
  if (c.copyToTemporaryFolder) {
    struct statvfs volume {};
    if (statvfs(listener.directory().c_str(), &volume) == 0 && (volume.f_flag & ST_NOEXEC))
      GTEST_SKIP() << "the temporary folder does not allow running programs";
    std::filesystem::path copy = listener.directory() / "ssh-add";
    std::filesystem::copy_file(program, copy);
    program = copy;
  }
  Child peer({"ssh-add", "-l"}, {{"SSH_AUTH_SOCK", listener.path().string()}}, listener.directory(),
             program.string());
  Connection connection(listener);
  ASSERT_GE(connection.get(), 0);
  if (c.deleteBeforeCapture) std::filesystem::remove(program);
  PeerOrigin origin = capture(connection.get(), getuid());

  const ProcessInfoEntry& entry = origin.chain.at(0);
  EXPECT_EQ(entry.path, program.string());
  EXPECT_EQ(entry.name, "ssh-add");
  EXPECT_EQ(entry.signatureValid, c.signatureValid);
  EXPECT_EQ(entry.appleSigned, c.signatureValid);
  EXPECT_EQ(entry.signingIdentifier,
            c.hasIdentifierAndTeam ? std::optional(program.string()) : std::nullopt);
  EXPECT_EQ(entry.teamIdentifier, c.hasIdentifierAndTeam ? std::optional("system") : std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CaptureSigning,
    ::testing::Values(SigningCase{"SystemProgram", false, false, true, true},
                      SigningCase{"CopyInTemporaryFolder", true, false, false, false},
                      SigningCase{"DeletedProgram", true, true, std::nullopt, false}));

// A user made for one test and removed afterwards, whatever the outcome.
class ThrowAwayUser {
 public:
  ThrowAwayUser() {
    std::random_device random;
    name_ = "qvtest" + std::to_string(getpid()) + "x" + std::to_string(random() % 100000);
    created_ = testing::runCommand({"useradd", "--system", "--no-create-home", "--shell",
                                    "/usr/sbin/nologin", name_})
                   .exitCode == 0;
  }
  ~ThrowAwayUser() {
    if (created_) testing::runCommand({"userdel", name_});
  }
  ThrowAwayUser(const ThrowAwayUser&) = delete;
  ThrowAwayUser& operator=(const ThrowAwayUser&) = delete;

  const passwd* entry() const { return created_ ? getpwnam(name_.c_str()) : nullptr; }

 private:
  std::string name_;
  bool created_ = false;
};

TEST(Capture, RefusesAnotherUsersProcess) {
  if (geteuid() != 0)
    GTEST_SKIP() << "skipped: creating a user (useradd) and switching to it needs root";
  ThrowAwayUser user;
  const passwd* account = user.entry();
  ASSERT_NE(account, nullptr) << "useradd failed";
  uid_t uid = account->pw_uid;
  gid_t gid = account->pw_gid;
  Listener listener;
  std::filesystem::permissions(listener.directory(), std::filesystem::perms(0755));
  std::filesystem::permissions(listener.path(), std::filesystem::perms(0777));

  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    alarm(20);  // never outlives a stuck test
    if (setgroups(0, nullptr) != 0 || setgid(gid) != 0 || setuid(uid) != 0) _exit(2);
    int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, listener.path().c_str(), sizeof address.sun_path - 1);
    if (connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) _exit(3);
    char byte;
    (void)!read(descriptor, &byte, 1);  // until the test hangs up
    _exit(0);
  }
  Child child(pid);
  {
    Connection connection(listener);
    ASSERT_GE(connection.get(), 0);
    EXPECT_EQ(captureError(connection.get()), ProcessContextError::foreignUser(uid));
  }
  EXPECT_EQ(child.wait(), 0);
}

TEST(Capture, PeerThatExitedIsGone) {
  Listener listener;
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, listener.path().c_str(), sizeof address.sun_path - 1);
    _exit(connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 ? 0 : 1);
  }
  Child child(pid);
  Connection connection(listener);
  ASSERT_GE(connection.get(), 0);
  ASSERT_EQ(child.wait(), 0);  // exited and reaped: the pid names nothing now
  EXPECT_EQ(captureError(connection.get()), ProcessContextError::peerGone());
}

TEST(Capture, DescriptorThatIsNoSocketIsGone) {
  int pipeEnds[2];
  ASSERT_EQ(pipe(pipeEnds), 0);
  EXPECT_EQ(captureError(pipeEnds[0]), ProcessContextError::peerGone());
  close(pipeEnds[0]);
  close(pipeEnds[1]);
}

TEST(Chain, IsEmptyBelowPidTwoAndForMissingProcesses) {
  EXPECT_TRUE(chain(-3).empty());
  EXPECT_TRUE(chain(0).empty());
  EXPECT_TRUE(chain(1).empty());
  EXPECT_TRUE(chain(std::numeric_limits<pid_t>::max()).empty());
  ProcessInfoEntry missing = entry(std::numeric_limits<pid_t>::max());
  EXPECT_EQ(missing.path, "?");
  EXPECT_EQ(missing.name, "?");
  EXPECT_TRUE(missing.arguments.empty());
  EXPECT_EQ(missing.signatureValid, std::nullopt);
}

TEST(Chain, FindsTheParentOfAProcessWhoseNameHoldsParentheses) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    alarm(20);
    prctl(PR_SET_NAME, "a) (b c", 0, 0, 0);
    close(ready[0]);
    (void)!write(ready[1], "x", 1);
    pause();
    _exit(0);
  }
  Child child(pid);
  close(ready[1]);
  char byte;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  close(ready[0]);

  std::vector<ProcessInfoEntry> entries = chain(pid);
  ASSERT_GE(entries.size(), 2u);
  EXPECT_EQ(entries[0].pid, pid);
  EXPECT_EQ(entries[1].pid, getpid());
  EXPECT_EQ(entries[1].path, std::filesystem::canonical("/proc/self/exe"));

  std::optional<uint64_t> startTime = processStartTime(pid);
  ASSERT_TRUE(startTime);
  EXPECT_NE(entry(pid, *startTime).signatureValid, std::nullopt);
  // Another instance's start time: the facts are not taken from whatever now has the pid.
  EXPECT_EQ(entry(pid, *startTime + 1).signatureValid, std::nullopt);
}

}  // namespace
}  // namespace quorvane

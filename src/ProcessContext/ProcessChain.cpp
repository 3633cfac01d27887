#include "ProcessContext/ProcessChain.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <string_view>

#include "Base/SecureBytes.h"
#include "Platform/FileDescriptor.h"
#include "ProcessContext/CodeSigning.h"
#include "ProcessContext/ProcessContextError.h"
#include "ProcessContext/ProcessRecord.h"
#include "ProcessContext/ProgramName.h"
#include "ProcessContext/Redaction.h"
#include "ProcessContext/UTF8Text.h"

// Linux 6.5 hands out a pidfd of a socket's peer; older headers lack the name.
#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77
#endif

namespace quorvane {

namespace {

constexpr std::string_view kUnknownPath = "?";
constexpr std::string_view kDeletedSuffix = " (deleted)";

// The peer's pidfd, or -1 when the kernel cannot give one.
int peerPidfd(int socket) {
  int descriptor = -1;
  socklen_t length = sizeof descriptor;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERPIDFD, &descriptor, &length) != 0) return -1;
  return descriptor;
}

// Describes the process behind `directory`, whose record is `stat` and whose running executable
// is `running`; `withSigning` false leaves the code-signing facts absent.
ProcessInfoEntry describe(const ProcessDirectory& directory, const ProcessStat& stat,
                          const std::optional<struct stat>& running, bool withSigning) {
  ProcessInfoEntry entry;
  entry.pid = directory.pid();
  std::optional<std::string> executable = directory.readLink("exe");
  // An executable deleted since the process started is reported as "PATH (deleted)"; show the
  // path it was started from.
  if (executable && running && running->st_nlink == 0 && executable->ends_with(kDeletedSuffix))
    executable->resize(executable->size() - kDeletedSuffix.size());
  if (executable) {
    entry.path = repairUTF8(*executable);
    entry.name = entry.path.substr(entry.path.rfind('/') + 1);
  } else {
    entry.path = kUnknownPath;
    entry.name = stat.command.empty() ? std::string(kUnknownPath) : repairUTF8(stat.command);
  }

  if (auto area = directory.readFile("cmdline", kArgumentAreaLimit)) {
    ArgumentArea arguments = splitArgumentArea(*area, kMaximumKeptArguments);
    entry.arguments = redactArguments(arguments.leading, arguments.count);
    // What redaction took out must not stay behind in freed memory.
    secureWipe(area->data(), area->size());
    for (std::string& argument : arguments.leading) secureWipe(argument.data(), argument.size());
  }
  if (executable) entry.name = programName(entry.path, entry.arguments);
  if (auto directoryPath = directory.readLink("cwd"))
    entry.workingDirectory = repairUTF8(*directoryPath);

  if (withSigning && running && executable) {
    SigningFacts facts = signingFacts(*running, *executable);
    entry.signingIdentifier = facts.signingIdentifier
                                  ? std::optional(repairUTF8(*facts.signingIdentifier))
                                  : std::nullopt;
    entry.teamIdentifier = facts.teamIdentifier;
    entry.signatureValid = facts.signatureValid;
    entry.appleSigned = facts.appleSigned;
  }
  return entry;
}

// Names the process behind `directory` in an AncestorCache; nothing when its executable cannot
// be seen.
std::optional<AncestorCache::Key> cacheKey(const ProcessDirectory& directory,
                                           const ProcessStat& stat,
                                           const std::optional<struct stat>& running) {
  if (!running) return std::nullopt;
  return AncestorCache::Key{directory.pid(), stat.startTime, running->st_dev, running->st_ino};
}

// The processes of a walk that may be remembered: chain[first + i] is named by keys[i].
struct Walked {
  size_t first = 0;
  std::vector<std::optional<AncestorCache::Key>> keys;
  // False when the chain's length limit cut the walk: the ancestries seen are then incomplete.
  bool complete = true;
};

// Stores every process of the walk with the ancestry above it.
void remember(AncestorCache& cache, const Walked& walked,
              const std::vector<ProcessInfoEntry>& chain,
              std::chrono::steady_clock::time_point now) {
  if (!walked.complete) return;
  for (size_t i = 0; i < walked.keys.size(); ++i) {
    if (!walked.keys[i]) continue;
    const size_t at = walked.first + i;
    cache.store(*walked.keys[i],
                {chain[at], std::vector<ProcessInfoEntry>(chain.begin() + static_cast<long>(at) + 1,
                                                          chain.end())},
                now);
  }
}

// Appends `known` to the chain as far as its length limit allows; false when it had to cut.
bool appendKnown(std::vector<ProcessInfoEntry>& chain, const std::vector<ProcessInfoEntry>& known) {
  for (const ProcessInfoEntry& entry : known) {
    if (chain.size() >= kMaximumChainLength) return false;
    chain.push_back(entry);
  }
  return true;
}

// Appends the ancestors starting at `parentPID`, whose child started at `childStartTime`. With a
// cache, an ancestor found there brings its ancestry along and ends the walk, and the ancestors
// described here are added to `walked`.
void appendAncestors(std::vector<ProcessInfoEntry>& chain, pid_t parentPID, uint64_t childStartTime,
                     AncestorCache* cache, Walked& walked,
                     std::chrono::steady_clock::time_point now) {
  while (parentPID >= 2) {
    if (chain.size() >= kMaximumChainLength) {
      walked.complete = false;
      return;
    }
    std::optional<ProcessDirectory> directory = ProcessDirectory::open(parentPID);
    if (!directory) return;
    std::optional<ProcessStat> stat = directory->stat();
    // A parent cannot be younger than its child: the parent exited and its pid was reused.
    if (!stat || stat->startTime > childStartTime) return;
    std::optional<struct stat> running = directory->statTarget("exe");
    std::optional<AncestorCache::Key> key = cacheKey(*directory, *stat, running);
    if (cache && key) {
      if (std::optional<AncestorCache::Described> known = cache->find(*key, now)) {
        chain.push_back(std::move(known->entry));
        walked.complete = appendKnown(chain, known->ancestors);
        return;
      }
    }
    chain.push_back(describe(*directory, *stat, running, true));
    walked.keys.push_back(key);
    parentPID = stat->parentPID;
    childStartTime = stat->startTime;
  }
}

// The ancestors of a process, without a cache.
void appendAncestors(std::vector<ProcessInfoEntry>& chain, pid_t parentPID,
                     uint64_t childStartTime) {
  Walked ignored;
  appendAncestors(chain, parentPID, childStartTime, nullptr, ignored, {});
}

}  // namespace

PeerOrigin capture(int socket, uid_t expectedUID, uint64_t* peerStartTime,
                   AncestorCache* ancestors) {
  struct ucred credentials {};
  socklen_t length = sizeof credentials;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 ||
      length != sizeof credentials || credentials.pid < 1)
    throw ProcessContextError::peerGone();
  if (credentials.uid != expectedUID) throw ProcessContextError::foreignUser(credentials.uid);

  FileDescriptor pidfd(peerPidfd(socket));
  std::optional<ProcessDirectory> directory = ProcessDirectory::open(credentials.pid);
  if (!directory) throw ProcessContextError::peerGone();
  // The peer is still alive after its directory was opened, so the directory is the peer's and not
  // that of a later process with the same pid.
  if (pidfd.get() >= 0 && syscall(SYS_pidfd_send_signal, pidfd.get(), 0, nullptr, 0) != 0)
    throw ProcessContextError::peerGone();
  std::optional<ProcessStat> stat = directory->stat();
  if (!stat) throw ProcessContextError::peerGone();

  PeerOrigin origin;
  origin.peerPID = credentials.pid;
  origin.peerPIDVersion = pidVersion(stat->startTime);
  origin.peerUID = credentials.uid;
  std::optional<struct stat> running = directory->statTarget("exe");
  origin.chain.push_back(describe(*directory, *stat, running, true));
  // The peer is described afresh every time; what is above it may be known.
  std::optional<AncestorCache::Key> key = cacheKey(*directory, *stat, running);
  const auto now = std::chrono::steady_clock::now();
  std::optional<AncestorCache::Described> known;
  if (ancestors && key) known = ancestors->find(*key, now);
  if (known) {
    appendKnown(origin.chain, known->ancestors);
  } else {
    Walked walked{.first = 0, .keys = {key}};
    appendAncestors(origin.chain, stat->parentPID, stat->startTime, ancestors, walked, now);
    if (ancestors) remember(*ancestors, walked, origin.chain, now);
  }

  // Without a pidfd, the pid may have been given to another process during the walk. With one,
  // the directory was the live peer's when it was opened, and reads through it fail once the peer
  // is gone.
  if (pidfd.get() < 0 && processStartTime(credentials.pid) != stat->startTime)
    throw ProcessContextError::peerGone();
  if (peerStartTime) *peerStartTime = stat->startTime;
  return origin;
}

std::vector<ProcessInfoEntry> chain(pid_t pid) {
  std::vector<ProcessInfoEntry> entries;
  if (pid < 2) return entries;
  std::optional<ProcessDirectory> directory = ProcessDirectory::open(pid);
  if (!directory) return entries;
  std::optional<ProcessStat> stat = directory->stat();
  if (!stat) return entries;
  entries.push_back(describe(*directory, *stat, directory->statTarget("exe"), true));
  appendAncestors(entries, stat->parentPID, stat->startTime);
  return entries;
}

ProcessInfoEntry entry(pid_t pid, std::optional<uint64_t> startTime) {
  std::optional<ProcessDirectory> directory = ProcessDirectory::open(pid);
  std::optional<ProcessStat> stat;
  if (directory) stat = directory->stat();
  if (!directory || !stat) {
    ProcessInfoEntry unknown;
    unknown.pid = pid;
    unknown.path = unknown.name = kUnknownPath;
    return unknown;
  }
  bool sameInstance = !startTime || *startTime == stat->startTime;
  return describe(*directory, *stat, directory->statTarget("exe"), sameInstance);
}

}  // namespace quorvane

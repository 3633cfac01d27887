#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane {

// What /proc/PID/stat says of a process that this library uses.
struct ProcessStat {
  pid_t pid = 0;
  std::string command;  // the kernel's short name (comm); may hold spaces and parentheses
  char state = '?';
  pid_t parentPID = 0;     // 0 when the parent is outside this pid namespace
  uint64_t startTime = 0;  // clock ticks after boot

  friend bool operator==(const ProcessStat&, const ProcessStat&) = default;
};

// Parses the text of /proc/PID/stat: "PID (COMMAND) STATE PPID ..." with the start time as field
// 22. The command is whatever the process named itself, so it runs to the LAST ')' of the text.
// Text of any other shape is ProcessContextError::peerGone (the record cannot be read).
ProcessStat parseProcessStat(std::string_view text);

// A command line as the kernel keeps it (/proc/PID/cmdline): arguments each ended by a zero byte
// (the last one may lack it after a process rewrote its title). At most `keep` arguments are
// returned; `count` is the number of all of them.
struct ArgumentArea {
  std::vector<std::string> leading;
  size_t count = 0;
};
ArgumentArea splitArgumentArea(std::string_view area, size_t keep);

// The start time of process `pid` (clock ticks after boot, /proc/PID/stat field 22). Together with
// the pid it names one process instance: a pid that is reused gets a later start time. Nothing
// when there is no such process or its record cannot be read.
std::optional<uint64_t> processStartTime(pid_t pid);

// A start time folded to the 32-bit pid version that PeerOrigin carries.
int32_t pidVersion(uint64_t startTime);

// An open /proc/PID directory. Every read through it concerns the process instance it was opened
// for, or fails once that process is gone, even when its pid has been given to another process.
class ProcessDirectory {
 public:
  // Nothing when there is no process `pid` (or /proc cannot be read).
  static std::optional<ProcessDirectory> open(pid_t pid);
  ~ProcessDirectory();
  ProcessDirectory(ProcessDirectory&& other) noexcept;
  ProcessDirectory& operator=(ProcessDirectory&&) = delete;
  ProcessDirectory(const ProcessDirectory&) = delete;
  ProcessDirectory& operator=(const ProcessDirectory&) = delete;

  pid_t pid() const { return pid_; }
  // The parsed stat record; nothing when it cannot be read or does not parse.
  std::optional<ProcessStat> stat() const;
  // A file of the directory, up to `limit` bytes; nothing when it cannot be read.
  std::optional<std::string> readFile(const char* name, size_t limit) const;
  // The target of a link of the directory ("exe", "cwd"); nothing when it cannot be read.
  std::optional<std::string> readLink(const char* name) const;
  // stat(2) of what a link of the directory leads to (the running executable for "exe").
  std::optional<struct stat> statTarget(const char* name) const;

 private:
  ProcessDirectory(pid_t pid, int descriptor) : pid_(pid), descriptor_(descriptor) {}
  pid_t pid_;
  int descriptor_;
};

}  // namespace quorvane

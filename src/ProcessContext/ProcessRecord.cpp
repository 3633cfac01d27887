#include "ProcessContext/ProcessRecord.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <limits>

#include "Base/SecureBytes.h"
#include "ProcessContext/ProcessContextError.h"

namespace quorvane {

namespace {

// A stat record is one line of about 300 bytes; the command name is at most 64 bytes.
constexpr size_t kStatLimit = 4096;
// The kernel reports link targets of at most one page; a longer answer would have been cut.
constexpr size_t kLinkLimit = 4096;

template <typename Number>
std::optional<Number> decimal(std::string_view text) {
  Number value{};
  if (text.empty() || text.front() == '-' || text.front() == '+') return std::nullopt;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// Reads from `descriptor` until the end or `limit` bytes, then closes it. What is read may hold
// secrets (a command line does before redaction), so no copy is left behind: the read buffer and
// every buffer outgrown on the way are wiped.
std::optional<std::string> readAll(int descriptor, size_t limit) {
  if (descriptor < 0) return std::nullopt;
  std::string contents;
  std::array<char, 4096> buffer;
  bool failed = false;
  while (contents.size() < limit) {
    ssize_t count =
        read(descriptor, buffer.data(), std::min(buffer.size(), limit - contents.size()));
    if (count < 0) {
      if (errno == EINTR) continue;
      failed = true;
      break;
    }
    if (count == 0) break;
    if (contents.size() + static_cast<size_t>(count) > contents.capacity()) {
      std::string larger;
      larger.reserve(std::min(limit, 2 * contents.capacity() + buffer.size()));
      larger = contents;
      secureWipe(contents.data(), contents.size());
      contents.swap(larger);
    }
    contents.append(buffer.data(), static_cast<size_t>(count));
  }
  secureWipe(buffer.data(), buffer.size());
  close(descriptor);
  if (failed) {
    secureWipe(contents.data(), contents.size());
    return std::nullopt;
  }
  return contents;
}

std::string procPath(pid_t pid, const char* name = nullptr) {
  std::string path = "/proc/" + std::to_string(pid);
  if (name) path += std::string("/") + name;
  return path;
}

// The stat record of the process's first thread, relative to its /proc directory: the same pid,
// command, state, parent and start time as the process's own record, which the kernel makes by
// adding up the times of every thread, slowly for a peer with a thousand threads.
std::string leaderStatPath(pid_t pid) { return "task/" + std::to_string(pid) + "/stat"; }

}  // namespace

ProcessStat parseProcessStat(std::string_view text) {
  size_t open = text.find(" (");
  size_t close = text.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open + 2)
    throw ProcessContextError::peerGone();
  ProcessStat stat;
  auto pid = decimal<pid_t>(text.substr(0, open));
  if (!pid || *pid < 1) throw ProcessContextError::peerGone();
  stat.pid = *pid;
  stat.command = std::string(text.substr(open + 2, close - open - 2));

  std::string_view rest = text.substr(close + 1);
  if (!rest.empty() && rest.back() == '\n') rest.remove_suffix(1);
  // Fields 3 and onwards, each after one space: [0] state, [1] parent pid, [19] start time.
  std::array<std::string_view, 20> fields;
  size_t found = 0;
  while (found < fields.size()) {
    if (rest.empty() || rest.front() != ' ') throw ProcessContextError::peerGone();
    rest.remove_prefix(1);
    size_t end = std::min(rest.find(' '), rest.size());
    fields[found++] = rest.substr(0, end);
    rest.remove_prefix(end);
  }
  if (fields[0].size() != 1) throw ProcessContextError::peerGone();
  stat.state = fields[0][0];
  auto parent = decimal<pid_t>(fields[1]);
  auto startTime = decimal<uint64_t>(fields[19]);
  if (!parent || !startTime) throw ProcessContextError::peerGone();
  stat.parentPID = *parent;
  stat.startTime = *startTime;
  return stat;
}

ArgumentArea splitArgumentArea(std::string_view area, size_t keep) {
  ArgumentArea result;
  result.leading.reserve(std::min(keep, area.size()));
  size_t position = 0;
  while (position < area.size()) {
    size_t end = std::min(area.find('\0', position), area.size());
    if (result.count < keep) result.leading.emplace_back(area.substr(position, end - position));
    ++result.count;
    position = end + 1;
  }
  return result;
}

std::optional<uint64_t> processStartTime(pid_t pid) {
  if (pid < 1) return std::nullopt;
  auto text = readAll(
      ::open(procPath(pid, leaderStatPath(pid).c_str()).c_str(), O_RDONLY | O_CLOEXEC), kStatLimit);
  if (!text) return std::nullopt;
  try {
    return parseProcessStat(*text).startTime;
  } catch (const ProcessContextError&) {
    return std::nullopt;
  }
}

int32_t pidVersion(uint64_t startTime) {
  return static_cast<int32_t>(static_cast<uint32_t>(startTime ^ (startTime >> 32)));
}

std::optional<ProcessDirectory> ProcessDirectory::open(pid_t pid) {
  if (pid < 1) return std::nullopt;
  int descriptor = ::open(procPath(pid).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return std::nullopt;
  return ProcessDirectory(pid, descriptor);
}

ProcessDirectory::~ProcessDirectory() {
  if (descriptor_ >= 0) close(descriptor_);
}

ProcessDirectory::ProcessDirectory(ProcessDirectory&& other) noexcept
    : pid_(other.pid_), descriptor_(other.descriptor_) {
  other.descriptor_ = -1;
}

std::optional<ProcessStat> ProcessDirectory::stat() const {
  // The kernel makes the whole record for the first read when the buffer holds it, so one read
  // is enough and a second one to see the end is saved; a record that fills the buffer is not one.
  int descriptor = openat(descriptor_, leaderStatPath(pid_).c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return std::nullopt;
  std::array<char, kStatLimit> buffer;
  ssize_t count;
  do {
    count = read(descriptor, buffer.data(), buffer.size());
  } while (count < 0 && errno == EINTR);
  close(descriptor);
  if (count <= 0 || static_cast<size_t>(count) >= buffer.size()) return std::nullopt;
  try {
    return parseProcessStat(std::string(buffer.data(), static_cast<size_t>(count)));
  } catch (const ProcessContextError&) {
    return std::nullopt;
  }
}

std::optional<std::string> ProcessDirectory::readFile(const char* name, size_t limit) const {
  return readAll(openat(descriptor_, name, O_RDONLY | O_CLOEXEC), limit);
}

std::optional<std::string> ProcessDirectory::readLink(const char* name) const {
  std::array<char, kLinkLimit> buffer;
  ssize_t length = readlinkat(descriptor_, name, buffer.data(), buffer.size());
  if (length <= 0 || static_cast<size_t>(length) >= buffer.size()) return std::nullopt;
  return std::string(buffer.data(), static_cast<size_t>(length));
}

std::optional<struct stat> ProcessDirectory::statTarget(const char* name) const {
  struct stat status {};
  if (fstatat(descriptor_, name, &status, 0) != 0) return std::nullopt;
  return status;
}

}  // namespace quorvane

#pragma once

#include <sys/types.h>

#include <filesystem>

#include "Platform/FileDescriptor.h"

namespace quorvane {

// The longest socket path the platform accepts (sun_path less its terminating zero).
inline constexpr size_t kMaxSocketPathLength = 107;

// A listening Unix stream socket at a path. Opening makes the missing folders (0700) and never
// changes the mode of a folder it did not make; refuses a folder that others can write to unless
// it is sticky; replaces a stale socket file that nobody answers on; refuses to start when another
// process answers there; and leaves the socket file 0600. When opening fails, it removes what it
// made (folders, socket file) and nothing else.
class UnixListener {
 public:
  // Throws DaemonError.
  static UnixListener open(const std::filesystem::path& path);

  int fd() const { return socket_.get(); }
  const std::filesystem::path& path() const { return path_; }

  // Whether the path still names this listener's socket file (someone may have deleted or
  // replaced it).
  bool stillInPlace() const;
  // Binds a new socket at the path and closes the old one. Throws DaemonError.
  void recreate();
  // Removes the socket file if it is still ours.
  void removeFile() const;

 private:
  UnixListener(std::filesystem::path path, FileDescriptor socket);

  std::filesystem::path path_;
  FileDescriptor socket_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

// Connects to the Unix socket at `path`; an invalid descriptor when nothing answers.
FileDescriptor connectUnix(const std::filesystem::path& path);

}  // namespace quorvane

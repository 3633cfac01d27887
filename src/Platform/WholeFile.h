#pragma once

#include <cstddef>
#include <filesystem>

#include "Base/SecureBytes.h"

namespace quorvane {

// The outcome of reading a whole file.
struct WholeFile {
  enum class Status {
    ok,        // `contents` holds the file
    notFound,  // no file at the path (or a folder on the way is missing)
    tooLarge,  // more than the caller's limit
    failed,    // any other failure, including a path that is not a regular file; see `error`
  };
  Status status = Status::failed;
  int error = 0;  // errno for `failed`
  // Kept in a wiping buffer because some callers read secrets with this.
  SecureBytes contents;
};

// Reads the regular file at `path` if it holds at most `limit` bytes. Never allocates more than
// `limit` + 1 bytes, even when the file grows while it is read. Does not throw for I/O failures.
// REQUIRES: limit < SIZE_MAX.
WholeFile readWholeFile(const std::filesystem::path& path, size_t limit);

}  // namespace quorvane

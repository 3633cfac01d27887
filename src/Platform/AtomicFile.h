#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string_view>

#include "Base/Bytes.h"

namespace quorvane {

// Replaces the file at `path` with `contents` so that every reader, and the disk after a crash,
// sees either the old file or the whole new one:
//   1. create a temporary file beside the target (".<name>.tmp-<random>", O_EXCL, `mode`
//      applied exactly, whatever the umask),
//   2. write everything and fsync it,
//   3. rename it over the target,
//   4. fsync the folder, so the rename itself is durable.
// The folder must exist. Throws std::system_error carrying errno. When a step up to the rename
// fails, the target is untouched and the temporary file is removed; when only step 4 fails, the
// new file is in place but a power loss could still undo the rename.
void writeFileAtomically(const std::filesystem::path& path, ByteView contents, mode_t mode);

// Creates `folder` and any missing parents; folders made here get exactly `mode`. Existing
// folders are left as they are. Throws std::system_error carrying errno.
void createFolders(const std::filesystem::path& folder, mode_t mode);

// Whether a file name is one of writeFileAtomically's temporary files. One left behind means a
// writer died between steps 1 and 3; a store whose writers take a common lock may delete them.
bool isAtomicWriteTemporary(std::string_view fileName);

// The steps of writeFileAtomically, for the fault seam below.
enum class AtomicWriteStep { createTemporary, write, syncFile, rename, syncFolder };

// Test seam: the next writeFileAtomically in this process that reaches `step` (with `target` as
// its path, when `target` is not empty) fails there with `errorNumber`, as if the system call had
// failed. One shot; not for production code.
void injectAtomicWriteFault(AtomicWriteStep step, int errorNumber,
                            const std::filesystem::path& target = {});
// Removes a fault that has not fired yet.
void clearAtomicWriteFault();

}  // namespace quorvane

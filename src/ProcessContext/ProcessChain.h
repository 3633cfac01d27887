#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "ProcessContext/AncestorCache.h"
#include "ProcessContext/PeerOrigin.h"
#include "ProcessContext/ProcessInfoEntry.h"

namespace quorvane {

// A chain holds the peer and at most this many entries in all.
inline constexpr size_t kMaximumChainLength = 16;
// At most this much of a command line is read (the kernel allows 6 MiB at exec).
inline constexpr size_t kArgumentAreaLimit = 8 * 1024 * 1024;

// Who is at the other end of the connected Unix stream socket `socket`. The kernel's peer
// credentials give the pid and user; a peer of another user than `expectedUID` is
// ProcessContextError::foreignUser and nothing more of it is read. Then the peer and its ancestors
// are described (see `chain`). ProcessContextError::peerGone when the credentials cannot be read,
// the pid is below 1, or the peer's process record cannot be read or changes while it is read
// (the peer exited, or its pid was given to another process). Blocking system calls only; no
// state but `ancestors`; safe on any thread. `peerStartTime`, when given, receives the peer's
// start time (field 22 of its stat record), which with the pid names the process instance. With
// `ancestors`, ancestors described recently are taken from there (see AncestorCache).
PeerOrigin capture(int socket, uid_t expectedUID, uint64_t* peerStartTime = nullptr,
                   AncestorCache* ancestors = nullptr);

// The entries of process `pid` and its ancestors, nearest first: at most kMaximumChainLength, never
// pid 0 or 1 (the kernel and init), ending early where a record cannot be read or where a parent
// pid has been reused (a parent started after its child). Empty for a pid below 2 or a process
// that does not exist.
std::vector<ProcessInfoEntry> chain(pid_t pid);

// The entry of one process. Failed lookups leave their fields absent ("?" for the path, nothing in
// the arguments). With `startTime` (see processStartTime), the code-signing facts are read only if
// the process at `pid` is still that instance.
ProcessInfoEntry entry(pid_t pid, std::optional<uint64_t> startTime = std::nullopt);

}  // namespace quorvane

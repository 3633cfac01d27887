#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

#include "Base/JSONReader.h"
#include "ProcessContext/ProcessInfoEntry.h"

namespace quorvane {

// The process at the other end of an agent connection and its ancestry.
struct PeerOrigin {
  int32_t peerPID = 0;
  // With peerPID, names one process instance even when pids are reused (on Linux the folded start
  // time of the process, see pidVersion).
  int32_t peerPIDVersion = 0;
  // The peer's effective user identifier.
  uint32_t peerUID = 0;
  // The peer first, then its parent, grandparent and so on; at most kMaximumChainLength entries.
  std::vector<ProcessInfoEntry> chain;

  friend bool operator==(const PeerOrigin&, const PeerOrigin&) = default;
};

// JSON form: an object with "peerPID", "peerPIDVersion", "peerUID" and "chain", all required;
// numbers that do not fit their field are dataCorrupted.
JSON toJSON(const PeerOrigin& origin);
PeerOrigin decodePeerOrigin(const JSONReader& reader);

}  // namespace quorvane

#pragma once

#include <cstdint>
#include <optional>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane {

// One end of the hash chain: the head is the newest row's id and hash, the start the oldest row's
// id and prev.
struct ChainEnd {
  int64_t id = 0;
  Bytes hash;

  friend bool operator==(const ChainEnd&, const ChainEnd&) = default;
};

// Keeps, outside the database, the chain key and the two ends of the chain, so that rows removed
// from either end are noticed. The store reads the ends when it appends and verifies and records
// them after every append and purge. Implementations are safe to call from many threads; they
// throw ActivityStoreError when their storage fails.
class ChainAnchor {
 public:
  virtual ~ChainAnchor() = default;

  // The key that the chain's hashes are computed with, or nothing for an unkeyed chain.
  virtual std::optional<SecureBytes> chainKey() = 0;

  virtual std::optional<ChainEnd> head() = 0;
  virtual std::optional<ChainEnd> start() = 0;
  // Nothing forgets the end.
  virtual void setHead(const std::optional<ChainEnd>& head) = 0;
  virtual void setStart(const std::optional<ChainEnd>& start) = 0;
};

}  // namespace quorvane

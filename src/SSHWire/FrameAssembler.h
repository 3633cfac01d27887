#pragma once

#include <optional>

#include "Base/Bytes.h"

namespace quorvane {

// Collects what a client sends, in whatever pieces the socket delivers, and cuts it into agent
// message bodies (a uint32 length, then that many bytes). Bytes of later frames that arrive early
// stay queued in order.
class FrameAssembler {
 public:
  void append(ByteView bytes);

  enum class Status {
    incomplete,  // no whole frame yet
    ready,       // a whole frame is queued (what `next` returns)
    // The queued bytes start with a length no frame may have (0, or above the wire limit):
    // nothing more can be read from this client, and its connection closes without an answer.
    invalid,
  };
  Status status() const;

  // The first whole frame's body, removed from the queue; nothing until one has arrived.
  std::optional<Bytes> next();

  bool empty() const { return queued_.empty(); }

 private:
  // The body length the queued bytes start with; nothing before four bytes have arrived. Throws
  // WireError for a length no frame may have.
  std::optional<uint32_t> declaredLength() const;

  Bytes queued_;
};

}  // namespace quorvane

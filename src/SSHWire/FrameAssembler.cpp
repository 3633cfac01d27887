#include "SSHWire/FrameAssembler.h"

#include "SSHWire/Framing.h"
#include "SSHWire/WireError.h"

namespace quorvane {
namespace {

constexpr size_t kPrefixLength = 4;
// A queue that once held a large frame gives its memory back when it empties: an idle connection
// costs a few hundred bytes.
constexpr size_t kRetainedCapacity = 4096;

}  // namespace

void FrameAssembler::append(ByteView bytes) {
  queued_.insert(queued_.end(), bytes.begin(), bytes.end());
}

std::optional<uint32_t> FrameAssembler::declaredLength() const {
  if (queued_.size() < kPrefixLength) return std::nullopt;
  return Framing::readLength(ByteView(queued_.data(), kPrefixLength));
}

FrameAssembler::Status FrameAssembler::status() const {
  try {
    const std::optional<uint32_t> length = declaredLength();
    return length && queued_.size() - kPrefixLength >= *length ? Status::ready : Status::incomplete;
  } catch (const WireError&) {
    return Status::invalid;
  }
}

std::optional<Bytes> FrameAssembler::next() {
  if (status() != Status::ready) return std::nullopt;
  const auto end = queued_.begin() + static_cast<ptrdiff_t>(kPrefixLength + *declaredLength());
  Bytes body(queued_.begin() + kPrefixLength, end);
  queued_.erase(queued_.begin(), end);
  if (queued_.empty() && queued_.capacity() > kRetainedCapacity) Bytes().swap(queued_);
  return body;
}

}  // namespace quorvane

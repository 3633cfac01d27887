#pragma once

#include <cstdint>
#include <string>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class WireErrorKind { lengthTooLarge, trailingBytes, invalid, truncated };

// What a wire error carries: the length of lengthTooLarge or the count of trailingBytes, and the
// reason of invalid; zero and empty for the other kinds.
struct WireErrorPayload {
  uint64_t amount = 0;
  std::string reason;
  friend bool operator==(const WireErrorPayload&, const WireErrorPayload&) = default;
};

// The one error of every decoder in SSHWire. Each kind carries only its own payload:
//   lengthTooLarge(length)  a length prefix over the limit; the length as read
//   trailingBytes(count)    a complete structure followed by `count` more bytes
//   invalid(reason)         well framed but wrong content; `reason` is a short fixed text
//   truncated               fewer bytes left than the next field needs
class WireError : public KindedError<WireError, WireErrorKind, WireErrorPayload> {
 public:
  static constexpr EnumNames<Kind, 4> kKindNames{"WireError",
                                                 {{{Kind::lengthTooLarge, "lengthTooLarge"},
                                                   {Kind::trailingBytes, "trailingBytes"},
                                                   {Kind::invalid, "invalid"},
                                                   {Kind::truncated, "truncated"}}}};

  static WireError lengthTooLarge(uint64_t length);
  static WireError trailingBytes(uint64_t count);
  static WireError invalid(std::string reason);
  static WireError truncated();

  uint64_t amount() const { return payload().amount; }
  const std::string& reason() const { return payload().reason; }

 private:
  WireError(Kind kind, WireErrorPayload payload);
};

}  // namespace quorvane

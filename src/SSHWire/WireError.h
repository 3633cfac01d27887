#pragma once

#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string>

namespace quorvane {

// The one error of every decoder in SSHWire. Each kind carries only its own payload:
//   lengthTooLarge(length)  a length prefix over the limit; the length as read
//   trailingBytes(count)    a complete structure followed by `count` more bytes
//   invalid(reason)         well framed but wrong content; `reason` is a short fixed text
//   truncated               fewer bytes left than the next field needs
class WireError : public std::runtime_error {
 public:
  enum class Kind { lengthTooLarge, trailingBytes, invalid, truncated };

  static WireError lengthTooLarge(uint64_t length);
  static WireError trailingBytes(uint64_t count);
  static WireError invalid(std::string reason);
  static WireError truncated();

  Kind kind() const { return kind_; }
  // The length of lengthTooLarge or the count of trailingBytes; 0 for the other kinds.
  uint64_t amount() const { return amount_; }
  // The reason of invalid; empty for the other kinds.
  const std::string& reason() const { return reason_; }

  friend bool operator==(const WireError& a, const WireError& b) {
    return a.kind_ == b.kind_ && a.amount_ == b.amount_ && a.reason_ == b.reason_;
  }
  friend std::ostream& operator<<(std::ostream& out, const WireError& error) {
    return out << error.what();
  }

 private:
  WireError(Kind kind, uint64_t amount, std::string reason);
  Kind kind_;
  uint64_t amount_;
  std::string reason_;
};

}  // namespace quorvane

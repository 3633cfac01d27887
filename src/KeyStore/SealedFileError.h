#pragma once

#include <ostream>
#include <stdexcept>

namespace quorvane {

// Why a sealed file could not be read. No kind carries a payload.
//   missing    the file was never written (absent and no generation recorded)
//   tampered   the file was removed, replaced by an older copy, moved from another purpose, or
//              changed: its seal does not hold
//   malformed  not a sealed file, or its value is not of the expected type
class SealedFileError : public std::runtime_error {
 public:
  enum class Kind { missing, tampered, malformed };

  static SealedFileError missing();
  static SealedFileError tampered();
  static SealedFileError malformed();

  Kind kind() const { return kind_; }

  friend bool operator==(const SealedFileError& a, const SealedFileError& b) {
    return a.kind_ == b.kind_;
  }
  friend std::ostream& operator<<(std::ostream& out, const SealedFileError& error) {
    return out << error.what();
  }

 private:
  explicit SealedFileError(Kind kind);
  Kind kind_;
};

}  // namespace quorvane

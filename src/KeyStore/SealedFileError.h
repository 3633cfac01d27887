#pragma once

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class SealedFileErrorKind { missing, tampered, malformed };

// Why a sealed file could not be read. No kind carries a payload.
//   missing    the file was never written (absent and no generation recorded)
//   tampered   the file was removed, replaced by an older copy, moved from another purpose, or
//              changed: its seal does not hold
//   malformed  not a sealed file, or its value is not of the expected type
class SealedFileError : public KindedError<SealedFileError, SealedFileErrorKind> {
 public:
  static constexpr EnumNames<Kind, 3> kKindNames{
      "SealedFileError",
      {{{Kind::missing, "missing"}, {Kind::tampered, "tampered"}, {Kind::malformed, "malformed"}}}};

  static SealedFileError missing();
  static SealedFileError tampered();
  static SealedFileError malformed();

 private:
  explicit SealedFileError(Kind kind);
};

}  // namespace quorvane

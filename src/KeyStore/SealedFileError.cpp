#include "KeyStore/SealedFileError.h"

namespace quorvane {

namespace {

const char* describe(SealedFileError::Kind kind) {
  switch (kind) {
    case SealedFileError::Kind::missing: return "sealed file missing";
    case SealedFileError::Kind::tampered: return "sealed file tampered with";
    case SealedFileError::Kind::malformed: return "sealed file malformed";
  }
  return "sealed file error";
}

}  // namespace

SealedFileError::SealedFileError(Kind kind) : KindedError(kind, {}, describe(kind)) {}

SealedFileError SealedFileError::missing() { return SealedFileError(Kind::missing); }
SealedFileError SealedFileError::tampered() { return SealedFileError(Kind::tampered); }
SealedFileError SealedFileError::malformed() { return SealedFileError(Kind::malformed); }

}  // namespace quorvane

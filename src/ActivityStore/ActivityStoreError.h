#pragma once

#include <cstdint>
#include <string>

#include "Base/EnumNames.h"
#include "Base/Error.h"
#include "Platform/Keychain.h"

namespace quorvane {

enum class ActivityStoreErrorKind { sqlite, anchorUnavailable, anchorCorrupted };

// The SQLite result code of sqlite or the keychain status of anchorUnavailable (0 otherwise), and
// SQLite's message of sqlite (empty otherwise).
struct ActivityStoreErrorPayload {
  int32_t code = 0;
  std::string message;
  friend bool operator==(const ActivityStoreErrorPayload&,
                         const ActivityStoreErrorPayload&) = default;
};

// The one error of the activity store. Each kind carries only its own payload:
//   sqlite(code, message)     a SQLite call failed: its result code and sqlite3_errmsg, or a word
//                             naming the failed step when there is no connection ("open")
//   anchorUnavailable(status) the keychain refused to read or write the chain anchor
//   anchorCorrupted           a chain anchor item holds bytes that are not an anchor
class ActivityStoreError
    : public KindedError<ActivityStoreError, ActivityStoreErrorKind, ActivityStoreErrorPayload> {
 public:
  static constexpr EnumNames<Kind, 3> kKindNames{"ActivityStoreError",
                                                 {{{Kind::sqlite, "sqlite"},
                                                   {Kind::anchorUnavailable, "anchorUnavailable"},
                                                   {Kind::anchorCorrupted, "anchorCorrupted"}}}};

  static ActivityStoreError sqlite(int32_t code, std::string message);
  static ActivityStoreError anchorUnavailable(KeychainStatus status);
  static ActivityStoreError anchorCorrupted();

  int32_t code() const { return payload().code; }
  const std::string& message() const { return payload().message; }

 private:
  using KindedError::KindedError;
};

}  // namespace quorvane

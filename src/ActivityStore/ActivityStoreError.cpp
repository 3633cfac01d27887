#include "ActivityStore/ActivityStoreError.h"

#include <utility>

namespace quorvane {

ActivityStoreError ActivityStoreError::sqlite(int32_t code, std::string message) {
  std::string what = "SQLite error " + std::to_string(code) + ": " + message;
  return ActivityStoreError(Kind::sqlite, {code, std::move(message)}, what);
}

ActivityStoreError ActivityStoreError::anchorUnavailable(KeychainStatus status) {
  return ActivityStoreError(Kind::anchorUnavailable, {status, ""},
                            "chain anchor unavailable: keychain status " + std::to_string(status));
}

ActivityStoreError ActivityStoreError::anchorCorrupted() {
  return ActivityStoreError(Kind::anchorCorrupted, {}, "chain anchor item is corrupted");
}

}  // namespace quorvane

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "Platform/Keychain.h"

namespace quorvane {

// The one error of the activity store. Each kind carries only its own payload:
//   sqlite(code, message)     a SQLite call failed: its result code and sqlite3_errmsg, or a word
//                             naming the failed step when there is no connection ("open")
//   anchorUnavailable(status) the keychain refused to read or write the chain anchor
//   anchorCorrupted           a chain anchor item holds bytes that are not an anchor
class ActivityStoreError : public std::runtime_error {
 public:
  enum class Kind { sqlite, anchorUnavailable, anchorCorrupted };

  static ActivityStoreError sqlite(int32_t code, std::string message);
  static ActivityStoreError anchorUnavailable(KeychainStatus status);
  static ActivityStoreError anchorCorrupted();

  Kind kind() const { return kind_; }
  // The SQLite result code of sqlite, the keychain status of anchorUnavailable; 0 otherwise.
  int32_t code() const { return code_; }
  // SQLite's message of sqlite; empty otherwise.
  const std::string& message() const { return message_; }

 private:
  ActivityStoreError(Kind kind, int32_t code, std::string message, const std::string& what);
  Kind kind_;
  int32_t code_;
  std::string message_;
};

}  // namespace quorvane

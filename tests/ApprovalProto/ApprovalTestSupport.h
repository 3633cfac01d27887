#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "ApprovalProto/QAPFailure.h"
#include "support/TestSupport.h"

namespace quorvane::testing {

// Runs `action` and returns the kind of the QAPFailure it throws; fails the calling test when it
// throws none (and then returns a kind no case expects).
inline QAPFailure::Kind failureOf(const std::function<void()>& action) {
  return errorKindOf<QAPFailure>(action);
}

}  // namespace quorvane::testing

namespace quorvane {
inline void PrintTo(QAPFailure::Kind kind, std::ostream* out) {
  *out << QAPFailure::kKindNames.name(kind);
}
}  // namespace quorvane

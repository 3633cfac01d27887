#include "ApprovalProto/QAPFailure.h"

#include <string>

namespace quorvane {

QAPFailure::QAPFailure(Kind kind)
    : KindedError(kind, {}, "approval protocol: " + std::string(kKindNames.name(kind))) {}

}  // namespace quorvane

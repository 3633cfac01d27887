#include "ApproverSession/ApproverError.h"

#include <utility>

namespace quorvane {
namespace {

std::string messageOf(ApproverErrorKind kind, const std::string& detail) {
  using Kind = ApproverErrorKind;
  switch (kind) {
    case Kind::notPaired:
      return "No computer is paired with this one. Pair one with quorvane approver pair CODE.";
    case Kind::noSuchRequest:
      return "No request " + detail + " is waiting. quorvane approver pending lists them.";
    case Kind::ambiguousRequest:
      return "The id " + detail + " fits several requests; give more of it.";
    case Kind::settledElsewhere:
      return "Request " + detail + " was already settled elsewhere; nothing was sent.";
    case Kind::requestExpired: return "Request " + detail + " has expired; nothing was sent.";
    case Kind::alreadyAnswered:
      return "Request " + detail + " was already answered from this computer; nothing was sent.";
    case Kind::scopeNotOffered:
      return "Request " + detail +
             " can't be approved for five minutes, only once; nothing was sent.";
    case Kind::computerGone:
      return "The computer that sent request " + detail +
             " is no longer paired with this one; nothing was sent.";
    case Kind::noSuchComputer:
      return "No paired computer is named " + detail + ". quorvane approver list shows them.";
    case Kind::ambiguousComputer:
      return "Several paired computers are named " + detail +
             "; name one by its fingerprint (quorvane approver list).";
  }
  return "approver: " + detail;
}

}  // namespace

ApproverError::ApproverError(Kind kind, std::string detail)
    : KindedError(kind, detail, messageOf(kind, detail)) {}

}  // namespace quorvane

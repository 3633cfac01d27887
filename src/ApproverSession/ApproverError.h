#pragma once

#include <string>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class ApproverErrorKind {
  notPaired,          // no computer is paired with this side (or it has no approval keys)
  noSuchRequest,      // no request has that id
  ambiguousRequest,   // the id given fits several requests
  settledElsewhere,   // the request was settled on the asking computer or another device
  requestExpired,     // the request's deadline has passed
  alreadyAnswered,    // this side answered the request before
  scopeNotOffered,    // five minutes asked for, but the request offered only once
  computerGone,       // the computer that asked is no longer paired
  noSuchComputer,     // no paired computer has that name
  ambiguousComputer,  // several paired computers have that name
};

// The refusals of the approving side. Each message is a whole sentence for the user, and says
// whether anything was sent; `detail` is the request id or computer name it is about.
class ApproverError : public KindedError<ApproverError, ApproverErrorKind, std::string> {
 public:
  static constexpr EnumNames<Kind, 10> kKindNames{
      "ApproverError",
      {{{Kind::notPaired, "notPaired"},
        {Kind::noSuchRequest, "noSuchRequest"},
        {Kind::ambiguousRequest, "ambiguousRequest"},
        {Kind::settledElsewhere, "settledElsewhere"},
        {Kind::requestExpired, "requestExpired"},
        {Kind::alreadyAnswered, "alreadyAnswered"},
        {Kind::scopeNotOffered, "scopeNotOffered"},
        {Kind::computerGone, "computerGone"},
        {Kind::noSuchComputer, "noSuchComputer"},
        {Kind::ambiguousComputer, "ambiguousComputer"}}}};

  ApproverError(Kind kind, std::string detail);

  const std::string& detail() const { return payload(); }
};

}  // namespace quorvane

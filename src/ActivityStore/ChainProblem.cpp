#include "ActivityStore/ChainProblem.h"

namespace quorvane {

std::string ChainProblem::message() const {
  std::string id = std::to_string(entryID);
  switch (kind) {
    case Kind::modified:
      return "The activity log was changed outside Quorvane (entry " + id +
             "). Entries from then on may not be genuine.";
    case Kind::truncated:
      return "Entries were removed from the end of the activity log (expected up to entry " + id +
             ").";
    case Kind::truncatedStart:
      return "Entries were removed from the start of the activity log outside Quorvane (expected "
             "from entry " +
             id + ").";
  }
  return "";
}

}  // namespace quorvane

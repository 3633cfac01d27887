#include "Policy/Decision.h"

#include <array>
#include <string>

namespace quorvane {

namespace {

constexpr std::array kAllDecisions = {Decision::allow, Decision::askLocal, Decision::askRemote,
                                      Decision::deny};

}  // namespace

int strictness(Decision decision) {
  switch (decision) {
    case Decision::allow: return 0;
    case Decision::askRemote: return 1;
    case Decision::askLocal: return 2;
    case Decision::deny: return 3;
  }
  return 3;
}

bool isStricter(Decision a, Decision b) { return strictness(a) > strictness(b); }

std::string_view rawValue(Decision decision) {
  switch (decision) {
    case Decision::allow: return "allow";
    case Decision::askLocal: return "askLocal";
    case Decision::askRemote: return "askRemote";
    case Decision::deny: return "deny";
  }
  return "deny";
}

JSON toJSON(Decision decision) { return std::string(rawValue(decision)); }

Decision decodeDecision(const JSONReader& reader) {
  std::string text = reader.string();
  for (Decision decision : kAllDecisions)
    if (rawValue(decision) == text) return decision;
  reader.fail("Cannot initialize Decision from invalid String value " + text);
}

}  // namespace quorvane

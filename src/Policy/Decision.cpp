#include "Policy/Decision.h"

#include <string>

#include "Base/EnumNames.h"

namespace quorvane {

namespace {

constexpr EnumNames<Decision, 4> kDecisionNames{"Decision",
                                                {{{Decision::allow, "allow"},
                                                  {Decision::askLocal, "askLocal"},
                                                  {Decision::askRemote, "askRemote"},
                                                  {Decision::deny, "deny"}}}};

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

std::string_view rawValue(Decision decision) { return kDecisionNames.name(decision); }

JSON toJSON(Decision decision) { return std::string(rawValue(decision)); }

Decision decodeDecision(const JSONReader& reader) { return kDecisionNames.decode(reader); }

}  // namespace quorvane

// Decodes arbitrary text as JSON, then as one rule and as a list of rules. Only DecodingError may
// come out of decoding; every rule that decodes must survive being written and read again
// unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <vector>

#include "Policy/Rule.h"

namespace {

using namespace quorvane;

// Any exception here, DecodingError included, is a finding.
void checkRoundTrip(const Rule& rule) {
  JSON reread = parseJSON(toJSON(rule).dump());
  if (!(decodeRule(JSONReader(reread)) == rule)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  JSON document;
  try {
    document = parseJSON(std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const DecodingError&) {
    return 0;
  }

  std::optional<Rule> rule;
  try {
    rule = decodeRule(JSONReader(document));
  } catch (const DecodingError&) {
  }
  if (rule) checkRoundTrip(*rule);

  std::vector<Rule> rules;
  try {
    rules = decodeRules(JSONReader(document));
  } catch (const DecodingError&) {
  }
  for (const Rule& each : rules) checkRoundTrip(each);
  return 0;
}

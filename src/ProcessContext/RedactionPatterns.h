#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ProcessContext/RedactionPattern.h"

namespace quorvane {

// The five substitutions of `redact`, in order, in the forms `redact` runs: they give the same text
// as the patterns as written but take linear time on any input.
const std::vector<RedactionPattern>& redactionPatterns();

// The same substitutions translated from ICU one to one, kept as the reference that tests and the
// fuzzer hold the fast forms to. Some inputs take quadratic time with these.
const std::vector<RedactionPattern>& literalRedactionPatterns();

// Applies the substitutions in order to well-formed UTF-8 text; kRedactedText when one of them
// exhausts its match budget.
std::string applyRedactionPatterns(std::string_view text,
                                   const std::vector<RedactionPattern>& patterns);

}  // namespace quorvane

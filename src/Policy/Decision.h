#pragma once

#include <string_view>

#include "Base/JSONReader.h"

namespace quorvane {

// What may happen to one signing request: sign at once, ask on this machine, ask a paired device,
// or refuse. Declared in the order of the raw values; this is not the order of strictness, which
// only `strictness` gives.
enum class Decision { allow, askLocal, askRemote, deny };

// The rank of a decision by strictness: allow 0, askRemote 1, askLocal 2, deny 3. Asking on this
// machine is deliberately stricter than asking a paired device. Every comparison of strictness
// goes through this function, never through the enumeration's values.
int strictness(Decision decision);

// Whether `a` is strictly stricter than `b`.
bool isStricter(Decision a, Decision b);

// The raw value: "allow", "askLocal", "askRemote" or "deny".
std::string_view rawValue(Decision decision);

// JSON form: the raw value as a string. Decoding any other string is dataCorrupted.
JSON toJSON(Decision decision);
Decision decodeDecision(const JSONReader& reader);

}  // namespace quorvane

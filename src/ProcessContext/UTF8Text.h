#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Base/UTF8.h"

namespace quorvane {

// Text read from the system (paths, command lines) is bytes; what this library hands out is
// well-formed UTF-8, so that it can be shown, matched with Unicode patterns and written as JSON.

// The bytes as well-formed UTF-8: every ill-formed sequence is replaced by U+FFFD, one per maximal
// subpart (the substitution Unicode recommends, and the one Swift and browsers make).
std::string repairUTF8(std::string_view bytes);

// The number of code points of well-formed UTF-8 text.
size_t codePointCount(std::string_view text);

// The first `count` code points of well-formed UTF-8 text (all of it when it is shorter); never
// ends inside a sequence.
std::string_view codePointPrefix(std::string_view text, size_t count);

}  // namespace quorvane

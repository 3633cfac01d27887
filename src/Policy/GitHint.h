#pragma once

#include <string_view>

#include "Base/JSONReader.h"

namespace quorvane {

// The kind of Git transfer that the process chain of a request shows.
enum class GitHint { fetch, push };

// The raw value: "fetch" or "push".
std::string_view rawValue(GitHint hint);

// JSON form: the raw value as a string. Decoding any other string is dataCorrupted.
JSON toJSON(GitHint hint);
GitHint decodeGitHint(const JSONReader& reader);

}  // namespace quorvane

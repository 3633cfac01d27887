#include "Policy/GitHint.h"

#include <string>

#include "Base/EnumNames.h"

namespace quorvane {
namespace {

constexpr EnumNames<GitHint, 2> kGitHintNames{
    "GitHint", {{{GitHint::fetch, "fetch"}, {GitHint::push, "push"}}}};

}  // namespace

std::string_view rawValue(GitHint hint) { return kGitHintNames.name(hint); }

JSON toJSON(GitHint hint) { return std::string(rawValue(hint)); }

GitHint decodeGitHint(const JSONReader& reader) { return kGitHintNames.decode(reader); }

}  // namespace quorvane

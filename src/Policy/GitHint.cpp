#include "Policy/GitHint.h"

#include <string>

namespace quorvane {

std::string_view rawValue(GitHint hint) {
  switch (hint) {
    case GitHint::fetch: return "fetch";
    case GitHint::push: return "push";
  }
  return "push";
}

JSON toJSON(GitHint hint) { return std::string(rawValue(hint)); }

GitHint decodeGitHint(const JSONReader& reader) {
  std::string text = reader.string();
  for (GitHint hint : {GitHint::fetch, GitHint::push})
    if (rawValue(hint) == text) return hint;
  reader.fail("Cannot initialize GitHint from invalid String value " + text);
}

}  // namespace quorvane

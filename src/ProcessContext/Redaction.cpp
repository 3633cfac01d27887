#include "ProcessContext/Redaction.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <algorithm>

#include "Base/SecureBytes.h"
#include "ProcessContext/RedactionPatterns.h"
#include "ProcessContext/UTF8Text.h"

namespace quorvane {

// The patterns are defined in ICU's dialect (as Foundation's regular expressions read them):
//   1. (?i)([a-z][a-z0-9+.-]*://)[^/@\s]+@                                  -> $1‹redacted›@
//   2. (?i)((?:--?)?[a-z0-9_-]*(?:token|password|passwd|secret|api[_-]?key|auth)[a-z0-9_-]*=)\S+
//                                                                           -> $1‹redacted›
//   3. (?i)(authorization:\s*(?:bearer|basic|token)\s+)\S+                  -> $1‹redacted›
//   4. \b(?:gh[pousr]_[A-Za-z0-9]{20,}|github_pat_[A-Za-z0-9_]{20,}|glpat-[A-Za-z0-9_-]{20,}|
//        xox[abprs]-[A-Za-z0-9-]{10,}|sk-[A-Za-z0-9_-]{20,}|AKIA[0-9A-Z]{16}|
//        cf[ua]t_[A-Za-z0-9_-]{20,})\b                                      -> ‹redacted›
//   5. [A-Za-z0-9+_-]{40,}={0,2}                                            -> ‹redacted›
// PCRE2 reads three things differently, translated here so that the same text matches:
//   - ICU's \s is \p{White_Space} (it includes U+0085; PCRE2's \s does not, and has no
//     Unicode meaning without PCRE2_UCP); \S is its complement.
//   - ICU compares literal strings under (?i) with full case folding, so "paßword" and "PAẞWD"
//     spell password and passwd. Of the keywords only "ss" has a one-character folding partner
//     (ß, ẞ); the other multi-character foldings that give ASCII (ﬀ ﬁ ﬂ ﬃ ﬄ ﬅ ﬆ) spell no
//     keyword. Single characters fold simply in both (K and ſ match k and s; İ and ı match
//     nothing).
//   - ICU's \b is its own (see isICUWordBoundary); the callout (?C1) computes it.
// Then patterns 1 and 2 are rewritten so that they start only where a run of their leading class
// starts: a match inside a run would imply one at the run's start, which is found first, so the
// matches are the same; without this, a long run backtracks at every offset (quadratic time).
// Runs never straddle the point where a search resumes (the previous match ended at '@' or before
// white space). Possessive repeats are used only before a character their class cannot hold.

namespace {

std::vector<RedactionPattern> makePatterns(bool literal) {
  std::vector<RedactionPattern> patterns;
  const std::string redacted(kRedactedText);
  if (literal) {
    patterns.emplace_back(R"((?i)([a-z][a-z0-9+.-]*://)[^/@\p{White_Space}]+@)", 0, true,
                          redacted + "@");
    patterns.emplace_back(
        R"((?i)((?:--?)?[a-z0-9_-]*(?:token|pa(?:ss|\x{DF})word|pa(?:ss|\x{DF})wd|secret|)"
        R"(api[_-]?key|auth)[a-z0-9_-]*=)\P{White_Space}+)",
        0, true, redacted);
  } else {
    // 1: a scheme starts at the first letter of its run of scheme characters.
    patterns.emplace_back(
        R"((?i)(?<![a-z0-9+.-])[0-9+.-]*+\K([a-z][a-z0-9+.-]*+://)[^/@\p{White_Space}]++@)", 0,
        true, redacted + "@");
    // 2: the name is the whole run of name characters before '='; it holds an ASCII keyword, or
    // (the one way a keyword leaves the class) password/passwd spelt with ß.
    patterns.emplace_back(
        R"((?i)(?<![a-z0-9_-])(?|((?=[a-z0-9_-]*?(?:token|password|passwd|secret|api[_-]?key|auth)))"
        R"([a-z0-9_-]*+=)|([a-z0-9_-]*pa\x{DF}(?:word|wd)[a-z0-9_-]*+=))\P{White_Space}++)",
        0, true, redacted);
  }
  patterns.emplace_back(
      R"((?i)(authorization:\p{White_Space}*(?:bearer|basic|token)\p{White_Space}+)\P{White_Space}+)",
      0, true, redacted);
  // The callouts must see every backtracking step, so nothing may be made possessive.
  patterns.emplace_back(
      R"((?C1)(?:gh[pousr]_[A-Za-z0-9]{20,}|github_pat_[A-Za-z0-9_]{20,}|glpat-[A-Za-z0-9_-]{20,}|)"
      R"(xox[abprs]-[A-Za-z0-9-]{10,}|sk-[A-Za-z0-9_-]{20,}|AKIA[0-9A-Z]{16}|)"
      R"(cf[ua]t_[A-Za-z0-9_-]{20,})(?C1))",
      PCRE2_NO_AUTO_POSSESS, false, redacted);
  patterns.emplace_back(R"([A-Za-z0-9+_-]{40,}={0,2})", 0, false, redacted);
  return patterns;
}

bool isSecretFlag(std::string_view argument) {
  return std::find(kSecretFlags.begin(), kSecretFlags.end(), argument) != kSecretFlags.end();
}

std::string shortened(std::string text) {
  if (codePointCount(text) <= kMaximumArgumentCharacters) return text;
  std::string cut(codePointPrefix(text, kMaximumArgumentCharacters));
  cut += kEllipsis;
  return cut;
}

}  // namespace

const std::vector<RedactionPattern>& redactionPatterns() {
  static const std::vector<RedactionPattern> patterns = makePatterns(false);
  return patterns;
}

const std::vector<RedactionPattern>& literalRedactionPatterns() {
  static const std::vector<RedactionPattern> patterns = makePatterns(true);
  return patterns;
}

std::string applyRedactionPatterns(std::string_view text,
                                   const std::vector<RedactionPattern>& patterns) {
  // Each stage still holds what later stages take out; none is left behind unwiped.
  std::string current(text);
  for (const RedactionPattern& pattern : patterns) {
    std::optional<std::string> replaced = pattern.replaceAll(current);
    secureWipe(current.data(), current.size());
    if (!replaced) return std::string(kRedactedText);
    current = std::move(*replaced);
  }
  return current;
}

std::string redact(std::string_view text) {
  std::string repaired = repairUTF8(text);
  std::string redacted = applyRedactionPatterns(repaired, redactionPatterns());
  secureWipe(repaired.data(), repaired.size());
  return redacted;
}

std::vector<std::string> redactArguments(const std::vector<std::string>& arguments) {
  return redactArguments(arguments, arguments.size());
}

std::vector<std::string> redactArguments(const std::vector<std::string>& leadingArguments,
                                         size_t totalCount) {
  size_t kept = std::min({leadingArguments.size(), totalCount, kMaximumKeptArguments});
  std::vector<std::string> result;
  result.reserve(kept + 1);
  bool nextIsSecret = false;
  for (size_t i = 0; i < kept; ++i) {
    const std::string& argument = leadingArguments[i];
    if (nextIsSecret) {
      result.emplace_back(kRedactedText);
      nextIsSecret = false;
    } else if (isSecretFlag(argument)) {
      result.push_back(argument);
      nextIsSecret = true;
    } else {
      result.push_back(shortened(redact(argument)));
    }
  }
  if (totalCount > kept)
    result.push_back(std::string(kEllipsis) + " (+" + std::to_string(totalCount - kept) + ")");
  return result;
}

}  // namespace quorvane

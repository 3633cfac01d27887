#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane {

// One substitution of the redaction: a PCRE2 pattern (UTF-8 mode) and what replaces each match.
// The redaction's patterns are defined in ICU's dialect; the PCRE2 sources in Redaction.cpp are
// written so that they match exactly what ICU matches (see there). The callout "(?C1)" stands for
// ICU's simple word boundary `\b`, which PCRE2 has no equivalent for.
class RedactionPattern {
 public:
  // Compiles `source`; a source that does not compile is a programmer error. `options` are PCRE2
  // compile options added to PCRE2_UTF.
  RedactionPattern(std::string_view source, uint32_t options, bool keepsFirstGroup,
                   std::string_view replacement);
  ~RedactionPattern();
  RedactionPattern(RedactionPattern&&) noexcept;
  RedactionPattern& operator=(RedactionPattern&&) noexcept;

  // Replaces every match, left to right, by the first group (when kept) followed by the
  // replacement text. `text` must be well-formed UTF-8. Nothing when the pattern ran out of its
  // match budget: the caller then cannot know what the text holds.
  std::optional<std::string> replaceAll(std::string_view text) const;

 private:
  struct Compiled;
  std::unique_ptr<Compiled> compiled_;
  bool keepsFirstGroup_;
  std::string replacement_;
};

}  // namespace quorvane

#include "ProcessContext/RedactionPattern.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include "Base/Check.h"

namespace quorvane {

namespace {

struct CodeDeleter {
  void operator()(pcre2_code* code) const { pcre2_code_free(code); }
};
struct MatchDataDeleter {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};
struct MatchContextDeleter {
  void operator()(pcre2_match_context* context) const { pcre2_match_context_free(context); }
};
using CodePtr = std::unique_ptr<pcre2_code, CodeDeleter>;
using MatchDataPtr = std::unique_ptr<pcre2_match_data, MatchDataDeleter>;
using MatchContextPtr = std::unique_ptr<pcre2_match_context, MatchContextDeleter>;

PCRE2_SPTR bytesOf(std::string_view text) { return reinterpret_cast<PCRE2_SPTR>(text.data()); }

CodePtr compile(std::string_view source, uint32_t options) {
  int error = 0;
  PCRE2_SIZE offset = 0;
  CodePtr code(
      pcre2_compile(bytesOf(source), source.size(), PCRE2_UTF | options, &error, &offset, nullptr));
  QUORVANE_CHECK(code != nullptr, "a redaction pattern does not compile");
  // JIT is an optimisation only; without it (an unsupported CPU) the interpreter runs.
  pcre2_jit_compile(code.get(), PCRE2_JIT_COMPLETE);
  return code;
}

enum class CharacterClass { extender, word, other };

// ICU's sets for `\b`: characters that never stand at a boundary (they belong to the character
// before them), and its `\w`. One anchored match classifies the character at an offset.
CharacterClass classify(std::string_view text, size_t offset) {
  static const CodePtr classifier = compile(
      "([\\p{Grapheme_Extend}\\p{Cf}])|[\\p{Alphabetic}\\p{M}\\p{Nd}\\p{Pc}\\x{200C}\\x{200D}]",
      PCRE2_ANCHORED);
  MatchDataPtr match(pcre2_match_data_create(2, nullptr));
  QUORVANE_CHECK(match != nullptr, "out of memory");
  int result = pcre2_match(classifier.get(), bytesOf(text), text.size(), offset, PCRE2_NO_UTF_CHECK,
                           match.get(), nullptr);
  if (result < 0) return CharacterClass::other;
  PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(match.get());
  return result >= 2 && ovector[2] != PCRE2_UNSET ? CharacterClass::extender : CharacterClass::word;
}

// Whether ICU's simple word boundary `\b` (without UREGEX_UWORD) holds at byte offset `position`
// of well-formed UTF-8 `text`: the character at the position is not a grapheme extender or format
// character, and exactly one of it and the nearest character before it that is neither belongs to
// ICU's \w, [\p{Alphabetic}\p{M}\p{Nd}\p{Pc}\x{200C}\x{200D}]. The end of the text counts as
// a character outside \w.
bool isICUWordBoundary(std::string_view text, size_t position);

size_t previousCodePoint(std::string_view text, size_t position) {
  do {
    --position;
  } while (position > 0 && (static_cast<uint8_t>(text[position]) & 0xC0) == 0x80);
  return position;
}

// Callout 1 vetoes the current path unless ICU's `\b` holds at the current position.
int wordBoundaryCallout(pcre2_callout_block* block, void*) {
  std::string_view text(reinterpret_cast<const char*>(block->subject), block->subject_length);
  if (block->callout_number != 1) return 0;
  return isICUWordBoundary(text, block->current_position) ? 0 : 1;
}

// Generous for text of any length: the patterns are written to run in linear time, so the budget
// is reached only by a pattern fault, never by ordinary input.
constexpr uint32_t kMatchLimit = 10'000'000;

// Shared by all threads: PCRE2 only reads a match context while matching.
pcre2_match_context* matchContext() {
  static const MatchContextPtr context = [] {
    MatchContextPtr created(pcre2_match_context_create(nullptr));
    QUORVANE_CHECK(created != nullptr, "out of memory");
    pcre2_set_callout(created.get(), wordBoundaryCallout, nullptr);
    pcre2_set_match_limit(created.get(), kMatchLimit);
    return created;
  }();
  return context.get();
}

}  // namespace

struct RedactionPattern::Compiled {
  CodePtr code;
};

namespace {

bool isICUWordBoundary(std::string_view text, size_t position) {
  bool currentIsWord = false;
  if (position < text.size()) {
    CharacterClass current = classify(text, position);
    if (current == CharacterClass::extender) return false;
    currentIsWord = current == CharacterClass::word;
  }
  bool previousIsWord = false;
  while (position > 0) {
    position = previousCodePoint(text, position);
    CharacterClass previous = classify(text, position);
    if (previous != CharacterClass::extender) {
      previousIsWord = previous == CharacterClass::word;
      break;
    }
  }
  return currentIsWord != previousIsWord;
}

}  // namespace

RedactionPattern::RedactionPattern(std::string_view source, uint32_t options, bool keepsFirstGroup,
                                   std::string_view replacement)
    : compiled_(new Compiled{compile(source, options)}),
      keepsFirstGroup_(keepsFirstGroup),
      replacement_(replacement) {}

RedactionPattern::~RedactionPattern() = default;
RedactionPattern::RedactionPattern(RedactionPattern&&) noexcept = default;
RedactionPattern& RedactionPattern::operator=(RedactionPattern&&) noexcept = default;

std::optional<std::string> RedactionPattern::replaceAll(std::string_view text) const {
  MatchDataPtr match(pcre2_match_data_create_from_pattern(compiled_->code.get(), nullptr));
  QUORVANE_CHECK(match != nullptr, "out of memory");
  std::string result;
  // Room for the worst case (every match grows at most threefold), so that no partial copy of the
  // text is left in a buffer outgrown on the way.
  result.reserve(3 * text.size() + 16);
  size_t copied = 0;  // text before this offset is in `result` already
  size_t offset = 0;  // where the next search starts
  while (offset <= text.size()) {
    int status = pcre2_match(compiled_->code.get(), bytesOf(text), text.size(), offset,
                             PCRE2_NO_UTF_CHECK, match.get(), matchContext());
    if (status == PCRE2_ERROR_NOMATCH) break;
    if (status < 0) return std::nullopt;
    const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(match.get());
    QUORVANE_CHECK(ovector[1] > ovector[0], "a redaction pattern matched empty text");
    result.append(text.substr(copied, ovector[0] - copied));
    if (keepsFirstGroup_ && status >= 2 && ovector[2] != PCRE2_UNSET)
      result.append(text.substr(ovector[2], ovector[3] - ovector[2]));
    result.append(replacement_);
    copied = offset = ovector[1];
  }
  result.append(text.substr(copied));
  return result;
}

}  // namespace quorvane

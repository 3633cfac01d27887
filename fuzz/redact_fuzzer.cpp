// Redacts arbitrary bytes as one text and, split at newlines, as an argument list. Whatever comes
// in, the result is well-formed UTF-8; the fast patterns give the same text as the patterns as
// written; an argument list keeps at most 24 arguments of at most 200 characters and the ellipsis,
// plus one element counting the arguments left out.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "ProcessContext/Redaction.h"
#include "ProcessContext/RedactionPatterns.h"
#include "ProcessContext/UTF8Text.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);

  std::string text = redact(bytes);
  require(isValidUTF8(text));
  require(text == applyRedactionPatterns(repairUTF8(bytes), literalRedactionPatterns()));

  std::vector<std::string> arguments;
  for (size_t start = 0; start <= bytes.size();) {
    size_t end = std::min(bytes.find('\n', start), bytes.size());
    arguments.emplace_back(bytes.substr(start, end - start));
    start = end + 1;
  }
  std::vector<std::string> result = redactArguments(arguments);
  size_t kept = std::min(arguments.size(), kMaximumKeptArguments);
  require(result.size() == kept + (arguments.size() > kept ? 1 : 0));
  for (size_t i = 0; i < kept; ++i) {
    require(isValidUTF8(result[i]));
    require(codePointCount(result[i]) <= kMaximumArgumentCharacters + 1);
  }
  if (arguments.size() > kept)
    require(result.back() ==
            std::string(kEllipsis) + " (+" + std::to_string(arguments.size() - kept) + ")");
  return 0;
}

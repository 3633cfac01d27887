// Decodes arbitrary text as the Git undo record. Only DecodingError may come out; every record
// that decodes must survive being written and read again unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "ConfigKit/GitConfigBefore.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  if (size > GitConfigBefore::kMaxFileSize) return 0;
  GitConfigBefore before;
  try {
    before = GitConfigBefore::fromJSON(std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const DecodingError&) {
    return 0;
  }
  if (!(GitConfigBefore::fromJSON(before.toJSON().dump()) == before)) std::abort();
  return 0;
}

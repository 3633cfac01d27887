// Parses arbitrary bytes as a /proc/PID/stat record, as a command-line area and as the JSON of a
// peer origin. A stat record either parses, with its command found between the parentheses, or is
// peerGone; the command-line split counts every argument; a decoded origin encodes and decodes
// back to itself.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Base/JSONReader.h"
#include "ProcessContext/PeerOrigin.h"
#include "ProcessContext/ProcessContextError.h"
#include "ProcessContext/ProcessRecord.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  std::string_view text(reinterpret_cast<const char*>(data), size);

  try {
    ProcessStat stat = parseProcessStat(text);
    require(stat.pid >= 1 && stat.parentPID >= 0);
    require(text.find(" (" + stat.command + ") ") != std::string_view::npos);
  } catch (const ProcessContextError& error) {
    require(error.kind() == ProcessContextError::Kind::peerGone);
  }

  ArgumentArea area = splitArgumentArea(text, 24);
  size_t terminators = 0;
  for (char c : text) terminators += c == '\0';
  require(area.count == terminators + (!text.empty() && text.back() != '\0' ? 1 : 0));
  require(area.leading.size() == std::min<size_t>(area.count, 24));

  try {
    JSON document = parseJSON(text);
    PeerOrigin origin = decodePeerOrigin(JSONReader(document));
    JSON again = parseJSON(toJSON(origin).dump());
    require(decodePeerOrigin(JSONReader(again)) == origin);
  } catch (const DecodingError&) {
  }
  return 0;
}

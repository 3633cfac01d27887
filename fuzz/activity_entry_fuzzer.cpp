// Decodes arbitrary text as one activity entry. Only DecodingError may come out of decoding;
// every entry that decodes must survive being written and read again unchanged, write the same
// text the second time, and export to CSV and JSON.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string_view>

#include "ActivityModel/ActivityEntry.h"
#include "ActivityModel/ActivityExport.h"

using namespace quorvane;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::optional<ActivityEntry> entry;
  try {
    entry = decodeActivityEntryText(std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const DecodingError&) {
    return 0;
  }
  // Any exception from here on is a finding.
  std::string text = encodeActivityEntryText(*entry);
  ActivityEntry reread = decodeActivityEntryText(text);
  if (!(reread == *entry) || encodeActivityEntryText(reread) != text) std::abort();

  for (ActivityExportFormat format : {ActivityExportFormat::csv, ActivityExportFormat::json}) {
    std::ostringstream out;
    ActivityExportWriter writer(out, format);
    writer.write(*entry);
    writer.finish();
  }
  return 0;
}

// Decodes arbitrary text as a list of key records: only records or DecodingError may come out,
// and records that decode must survive being written and read again unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "KeyStore/KeyRecord.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  try {
    const JSON document = parseJSON(std::string_view(reinterpret_cast<const char*>(data), size));
    const std::vector<KeyRecord> records = decodeKeyRecords(JSONReader(document));
    const JSON written = parseJSON(toJSON(records).dump());
    if (decodeKeyRecords(JSONReader(written)) != records) std::abort();
  } catch (const DecodingError&) {
  }
  return 0;
}

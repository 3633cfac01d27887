#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "ActivityModel/ActivityEntry.h"

namespace quorvane {

enum class ActivityExportFormat { csv, json };

// Writes entries to a stream one at a time, so that a log of any length is exported without being
// held in memory.
//
// CSV (RFC 4180): a header row with the sixteen field names in field order, then one row per
// entry; lines end in CRLF; a field holding a comma, a double quote, CR or LF is enclosed in double
// quotes with its quotes doubled. Dates are ISO 8601, Booleans "true"/"false", an absent optional
// field is an empty field, and the two lists (forwardedVia, chain) are written as JSON arrays so
// that no separator can be confused with a value.
//
// JSON: one array of entry objects (the log's own entry form), one entry per line.
//
// The writer never checks the stream; the caller looks at it after `finish`.
class ActivityExportWriter {
 public:
  // Writes the CSV header at once.
  ActivityExportWriter(std::ostream& out, ActivityExportFormat format);
  ActivityExportWriter(const ActivityExportWriter&) = delete;
  ActivityExportWriter& operator=(const ActivityExportWriter&) = delete;

  void write(const ActivityEntry& entry);
  // Ends the document (closes the JSON array). REQUIRES: called once, after the last write.
  void finish();

  int64_t count() const { return count_; }

 private:
  std::ostream& out_;
  ActivityExportFormat format_;
  int64_t count_ = 0;
  bool finished_ = false;
};

// One CSV field, quoted when RFC 4180 requires it.
std::string csvField(std::string_view value);

}  // namespace quorvane

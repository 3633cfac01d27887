#include "ActivityModel/ActivityExport.h"

#include "Base/Check.h"

namespace quorvane {

namespace {

constexpr const char* kColumns[] = {
    "date",         "keyFingerprint", "keyName", "purpose", "host",
    "hostVerified", "forwardedVia",   "app",     "chain",   "workingDirectory",
    "decision",     "decidedBy",      "outcome", "note",    "hostKeyFingerprint",
    "appIdentifier"};

std::string optionalText(const std::optional<std::string>& value) { return value.value_or(""); }

void writeCSVRow(std::ostream& out, std::initializer_list<std::string_view> fields) {
  bool first = true;
  for (std::string_view field : fields) {
    if (!first) out << ',';
    first = false;
    out << csvField(field);
  }
  out << "\r\n";
}

}  // namespace

std::string csvField(std::string_view value) {
  if (value.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(value);
  std::string quoted = "\"";
  for (char c : value) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  quoted += '"';
  return quoted;
}

ActivityExportWriter::ActivityExportWriter(std::ostream& out, ActivityExportFormat format)
    : out_(out), format_(format) {
  if (format_ != ActivityExportFormat::csv) return;
  bool first = true;
  for (const char* column : kColumns) {
    if (!first) out_ << ',';
    first = false;
    out_ << column;
  }
  out_ << "\r\n";
}

void ActivityExportWriter::write(const ActivityEntry& entry) {
  QUORVANE_CHECK(!finished_, "nothing may be written after finish");
  switch (format_) {
    case ActivityExportFormat::csv:
      writeCSVRow(
          out_, {entry.date.iso8601(), optionalText(entry.keyFingerprint),
                 optionalText(entry.keyName), entry.purpose, optionalText(entry.host),
                 entry.hostVerified ? "true" : "false", dumpLogJSON(JSON(entry.forwardedVia)),
                 entry.app, dumpLogJSON(JSON(entry.chain)), optionalText(entry.workingDirectory),
                 entry.decision, entry.decidedBy, rawValue(entry.outcome), optionalText(entry.note),
                 optionalText(entry.hostKeyFingerprint), optionalText(entry.appIdentifier)});
      break;
    case ActivityExportFormat::json:
      out_ << (count_ == 0 ? "[\n" : ",\n") << encodeActivityEntryText(entry);
      break;
  }
  ++count_;
}

void ActivityExportWriter::finish() {
  QUORVANE_CHECK(!finished_, "finish is called once");
  finished_ = true;
  if (format_ == ActivityExportFormat::json) out_ << (count_ == 0 ? "[]\n" : "\n]\n");
}

}  // namespace quorvane

#include "ActivityModel/ActivityEntry.h"

#include "Base/EnumNames.h"

namespace quorvane {

namespace {

using Outcome = ActivityEntry::Outcome;

constexpr EnumNames<Outcome, 6> kOutcomeNames{"Outcome",
                                              {{{Outcome::signed_, "signed"},
                                                {Outcome::denied, "denied"},
                                                {Outcome::expired, "expired"},
                                                {Outcome::failed, "failed"},
                                                {Outcome::rejected, "rejected"},
                                                {Outcome::purged, "purged"}}}};

Outcome decodeOutcome(const JSONReader& reader) { return kOutcomeNames.decode(reader); }

void putOptional(JSON& object, const char* key, const std::optional<std::string>& value) {
  if (value) object[key] = *value;
}

std::optional<std::string> optionalString(const JSONReader& reader, std::string_view key) {
  auto value = reader.optional(key);
  if (!value) return std::nullopt;
  return value->string();
}

}  // namespace

std::string_view rawValue(ActivityEntry::Outcome outcome) { return kOutcomeNames.name(outcome); }

JSON toJSON(const ActivityEntry& entry) {
  JSON object = {{"date", encodeDate(entry.date, DateEncoding::iso8601)},
                 {"purpose", entry.purpose},
                 {"hostVerified", entry.hostVerified},
                 {"forwardedVia", entry.forwardedVia},
                 {"app", entry.app},
                 {"chain", entry.chain},
                 {"decision", entry.decision},
                 {"decidedBy", entry.decidedBy},
                 {"outcome", std::string(rawValue(entry.outcome))}};
  putOptional(object, "keyFingerprint", entry.keyFingerprint);
  putOptional(object, "keyName", entry.keyName);
  putOptional(object, "host", entry.host);
  putOptional(object, "workingDirectory", entry.workingDirectory);
  putOptional(object, "note", entry.note);
  putOptional(object, "hostKeyFingerprint", entry.hostKeyFingerprint);
  putOptional(object, "appIdentifier", entry.appIdentifier);
  return object;
}

ActivityEntry decodeActivityEntry(const JSONReader& reader) {
  ActivityEntry entry;
  entry.date = reader.required("date").date(DateEncoding::iso8601);
  entry.keyFingerprint = optionalString(reader, "keyFingerprint");
  entry.keyName = optionalString(reader, "keyName");
  entry.purpose = reader.required("purpose").string();
  entry.host = optionalString(reader, "host");
  entry.hostVerified = reader.required("hostVerified").boolean();
  entry.forwardedVia = reader.required("forwardedVia").strings();
  entry.app = reader.required("app").string();
  entry.chain = reader.required("chain").strings();
  entry.workingDirectory = optionalString(reader, "workingDirectory");
  entry.decision = reader.required("decision").string();
  entry.decidedBy = reader.required("decidedBy").string();
  entry.outcome = decodeOutcome(reader.required("outcome"));
  entry.note = optionalString(reader, "note");
  entry.hostKeyFingerprint = optionalString(reader, "hostKeyFingerprint");
  entry.appIdentifier = optionalString(reader, "appIdentifier");
  return entry;
}

std::string dumpLogJSON(const JSON& value) {
  return value.dump(-1, ' ', false, JSON::error_handler_t::replace);
}

std::string encodeActivityEntryText(const ActivityEntry& entry) {
  return dumpLogJSON(toJSON(entry));
}

ActivityEntry decodeActivityEntryText(std::string_view text) {
  JSON document = parseJSON(text);
  return decodeActivityEntry(JSONReader(document));
}

}  // namespace quorvane

#include "ConfigKit/GitConfigBefore.h"

#include <algorithm>
#include <set>

namespace quorvane {

const GitConfigRecord* GitConfigBefore::find(std::string_view scope) const {
  for (const GitConfigRecord& record : records)
    if (record.scope == scope) return &record;
  return nullptr;
}

void GitConfigBefore::remember(const GitConfigRecord& earlier) {
  auto existing = std::find_if(records.begin(), records.end(),
                               [&](const GitConfigRecord& r) { return r.scope == earlier.scope; });
  if (existing == records.end()) {
    records.push_back(earlier);
    return;
  }
  for (const GitSavedSetting& setting : earlier.settings) {
    auto known = std::find_if(existing->settings.begin(), existing->settings.end(),
                              [&](const GitSavedSetting& s) { return s.key == setting.key; });
    if (known == existing->settings.end()) existing->settings.push_back(setting);
  }
}

void GitConfigBefore::forget(std::string_view scope) {
  std::erase_if(records, [&](const GitConfigRecord& record) { return record.scope == scope; });
}

JSON GitConfigBefore::toJSON() const {
  JSON list = JSON::array();
  for (const GitConfigRecord& record : records) {
    JSON settings = JSON::array();
    for (const GitSavedSetting& setting : record.settings)
      settings.push_back({{"key", setting.key}, {"values", setting.values}});
    list.push_back({{"savedAt", encodeDate(record.savedAt, DateEncoding::iso8601)},
                    {"scope", record.scope},
                    {"settings", settings}});
  }
  return {{"records", list}};
}

GitConfigBefore GitConfigBefore::fromJSON(std::string_view text) {
  const JSON json = parseJSON(text);
  JSONReader root(json);
  GitConfigBefore before;
  std::set<std::string> scopes;
  for (const JSONReader& element : root.required("records").array()) {
    GitConfigRecord record;
    JSONReader scope = element.required("scope");
    record.scope = scope.string();
    if (record.scope != GitConfigRecord::kGlobalScope &&
        (record.scope.empty() || record.scope.front() != '/'))
      scope.fail("neither \"global\" nor an absolute path");
    if (!scopes.insert(record.scope).second) scope.fail("a second record for this scope");
    record.savedAt = element.required("savedAt").date(DateEncoding::iso8601);
    std::set<std::string> keys;
    for (const JSONReader& entry : element.required("settings").array()) {
      GitSavedSetting setting;
      JSONReader key = entry.required("key");
      setting.key = key.string();
      if (setting.key.empty()) key.fail("an empty key");
      if (!keys.insert(setting.key).second) key.fail("a second entry for this key");
      setting.values = entry.required("values").strings();
      record.settings.push_back(std::move(setting));
    }
    before.records.push_back(std::move(record));
  }
  return before;
}

}  // namespace quorvane

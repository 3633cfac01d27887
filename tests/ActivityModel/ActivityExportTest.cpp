#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "ActivityModel/ActivityExport.h"
#include "ActivityTestSupport.h"

namespace quorvane {
namespace {

using activitytest::loginEntry;

std::string exported(ActivityExportFormat format, const std::vector<ActivityEntry>& entries) {
  std::ostringstream out;
  ActivityExportWriter writer(out, format);
  for (const ActivityEntry& entry : entries) writer.write(entry);
  writer.finish();
  return out.str();
}

const char kHeader[] =
    "date,keyFingerprint,keyName,purpose,host,hostVerified,forwardedVia,app,chain,"
    "workingDirectory,decision,decidedBy,outcome,note,hostKeyFingerprint,appIdentifier\r\n";

// RFC 4180 section 2, rules 5 to 7.
TEST(CSVField, QuotesOnlyWhatRFC4180Requires) {
  const std::pair<const char*, const char*> kCases[] = {
      {"plain text", "plain text"},
      {"", ""},
      {"a,b", "\"a,b\""},
      {"say \"hi\"", "\"say \"\"hi\"\"\""},
      {"two\nlines", "\"two\nlines\""},
      {"carriage\rreturn", "\"carriage\rreturn\""},
      {"'single' ; tab\t", "'single' ; tab\t"},
  };
  for (const auto& [value, field] : kCases) EXPECT_EQ(csvField(value), field) << value;
}

TEST(ActivityExport, CSVHasHeaderAndOneRowPerEntry) {
  ActivityEntry entry = loginEntry(1);
  entry.keyName = "Work, \"main\"";
  entry.note = "line one\nline two";
  entry.forwardedVia = {"jump"};
  EXPECT_EQ(exported(ActivityExportFormat::csv, {}), kHeader);
  EXPECT_EQ(exported(ActivityExportFormat::csv, {entry, loginEntry(2)}),
            std::string(kHeader) +
                "2026-11-21T09:06:00Z,SHA256:key-one,\"Work, \"\"main\"\"\",login,"
                "host-1.example.com,true,\"[\"\"jump\"\"]\",app-1,"
                "\"[\"\"/usr/bin/ssh\"\",\"\"/usr/bin/git\"\",\"\"/usr/bin/zsh\"\"]\","
                "/home/me/src,askLocal,user on this computer,signed,\"line one\nline two\","
                "SHA256:host-key,\r\n"
                "2026-11-21T09:07:00Z,SHA256:key-one,Work key,login,host-2.example.com,true,[],"
                "app-2,\"[\"\"/usr/bin/ssh\"\",\"\"/usr/bin/git\"\",\"\"/usr/bin/zsh\"\"]\","
                "/home/me/src,askLocal,user on this computer,signed,,SHA256:host-key,\r\n");
}

TEST(ActivityExport, JSONIsAnArrayOfEntries) {
  EXPECT_EQ(exported(ActivityExportFormat::json, {}), "[]\n");
  std::vector<ActivityEntry> entries = {loginEntry(1), loginEntry(2), loginEntry(3)};
  entries[1].keyFingerprint.reset();
  JSON document = parseJSON(exported(ActivityExportFormat::json, entries));
  ASSERT_TRUE(document.is_array());
  std::vector<ActivityEntry> read;
  for (const JSONReader& element : JSONReader(document).array())
    read.push_back(decodeActivityEntry(element));
  EXPECT_EQ(read, entries);
}

}  // namespace
}  // namespace quorvane

#include <filesystem>
#include <fstream>
#include <iostream>

#include "Platform/Clock.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"

namespace quorvane::cli {
namespace {

struct LogOptions {
  std::string search, since, format = "csv", output, before;
  size_t limit = 50;
  bool json = false, yes = false;
};
LogOptions options;

Date parseDate(const std::string& text, const char* option) {
  // A day alone means its start, in UTC.
  auto date = Date::parseISO8601(text.size() == 10 ? text + "T00:00:00Z" : text);
  if (!date)
    throw CommandFailure(std::string(option) + " takes an ISO 8601 date, e.g. 2026-11-01 or " +
                         "2026-11-01T09:30:00Z");
  return *date;
}

void show() {
  ActivityQuery query{options.search, std::nullopt, std::nullopt, options.limit};
  if (!options.since.empty()) query.from = parseDate(options.since, "--since");
  auto entries = SupportState::open().openActivityLog()->entries(query);
  if (options.json) {
    JSON array = JSON::array();
    for (const ActivityEntry& entry : entries) array.push_back(toJSON(entry));
    return printJSON(array);
  }
  if (entries.empty()) std::cout << "No entries.\n";
  for (const ActivityEntry& entry : entries) {
    std::cout << entry.date.iso8601() << "  " << rawValue(entry.outcome) << "  " << entry.purpose
              << "  " << entry.app;
    if (entry.keyName) std::cout << "  key “" << *entry.keyName << "”";
    if (entry.host) std::cout << "  " << *entry.host << (entry.hostVerified ? "" : " (unverified)");
    if (!entry.decidedBy.empty()) std::cout << "  by " << entry.decidedBy;
    if (entry.note) std::cout << "  (" << *entry.note << ")";
    std::cout << "\n";
  }
}

void verify() {
  auto problem = SupportState::open().openActivityLog()->verify();
  if (options.json) {
    JSON result = {{"intact", !problem}};
    if (problem) result["problem"] = problem->message();
    printJSON(result);
  } else {
    std::cout << (problem ? problem->message() : "The activity log is intact.") << "\n";
  }
  if (problem) throw CommandFailure("the activity log failed verification");
}

void exportLog() {
  auto log = SupportState::open().openActivityLog();
  const auto format =
      options.format == "json" ? ActivityExportFormat::json : ActivityExportFormat::csv;
  ActivityStore::ScanCount count;
  if (options.output.empty()) {
    count = log->exportEntries(std::cout, format);
  } else {
    std::ofstream file(options.output, std::ios::binary | std::ios::trunc);
    if (!file) throw CommandFailure("cannot write " + options.output);
    // The log says which programs used which keys where: readable by the user alone, set before
    // anything is written.
    std::filesystem::permissions(
        options.output, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    count = log->exportEntries(file, format);
    file.flush();
    if (!file) throw CommandFailure("writing " + options.output + " failed");
    std::cerr << "Exported " << counted(count.entries, "entry", "entries") << " to "
              << options.output << ".\n";
  }
  if (count.skipped > 0) std::cerr << count.skipped << " damaged rows were left out.\n";
}

void purge() {
  const Date before = parseDate(options.before, "--before");
  confirmChange("Delete every log entry before " + before.iso8601() + "? This cannot be undone.",
                options.yes, "purge the log", "nothing deleted");
  int64_t deleted = SupportState::open().openActivityLog()->purge(before, SystemClock().now());
  std::cout << "Deleted " << counted(deleted, "entry", "entries") << ".\n";
}

}  // namespace

void addLogCommands(CLI::App& app) {
  CLI::App* log =
      app.add_subcommand("log", "the activity log: every signature request and its end");
  log->add_option("--search", options.search, "only entries that contain this text");
  log->add_option("--since", options.since, "only entries from this date on (ISO 8601)");
  log->add_option("--limit", options.limit, "at most this many entries, newest first (default 50)");
  addJSONFlag(log, options.json);
  log->callback([log] {
    if (log->get_subcommands().empty()) show();
  });

  log->add_subcommand("verify", "check that no entry was edited or removed outside Quorvane")
      ->callback(verify);

  CLI::App* exportCommand = log->add_subcommand("export", "write the whole log as CSV or JSON");
  exportCommand->add_option("--format", options.format, "csv (default) or json")
      ->check(CLI::IsMember({"csv", "json"}));
  exportCommand->add_option("--output", options.output, "file to write (default: standard output)");
  exportCommand->callback(exportLog);

  CLI::App* purgeCommand = log->add_subcommand("purge", "delete old entries; the purge is logged");
  purgeCommand->add_option("--before", options.before, "delete entries before this date")
      ->required();
  purgeCommand->add_flag("--yes", options.yes, "do not ask for confirmation");
  purgeCommand->callback(purge);
}

}  // namespace quorvane::cli

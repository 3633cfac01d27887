#pragma once

#include <ostream>
#include <string>

#include "ActivityModel/ActivityEntry.h"

namespace quorvane {

inline void PrintTo(const ActivityEntry& entry, std::ostream* out) {
  *out << encodeActivityEntryText(entry);
}

namespace activitytest {

// 2026-11-21T09:05:00Z
inline constexpr double kBase = 1795251900;

// A login entry as the agent writes it; `i` varies the date, the app and the host.
inline ActivityEntry loginEntry(int i) {
  ActivityEntry entry;
  entry.date = Date{kBase + 60.0 * i};
  entry.keyFingerprint = "SHA256:key-one";
  entry.keyName = "Work key";
  entry.purpose = "login";
  entry.host = "host-" + std::to_string(i % 3) + ".example.com";
  entry.hostVerified = true;
  entry.app = "app-" + std::to_string(i);
  entry.chain = {"/usr/bin/ssh", "/usr/bin/git", "/usr/bin/zsh"};
  entry.workingDirectory = "/home/me/src";
  entry.decision = "askLocal";
  entry.decidedBy = "user on this computer";
  entry.outcome = ActivityEntry::Outcome::signed_;
  entry.hostKeyFingerprint = "SHA256:host-key";
  return entry;
}

}  // namespace activitytest
}  // namespace quorvane

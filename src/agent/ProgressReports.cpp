#include "agent/ProgressReports.h"

namespace quorvane {

std::string waitingLine(const ApprovalRequest& request) {
  std::string line = "waiting for your decision: " + request.reason;
  if (request.hostDisplay) line += " on " + *request.hostDisplay;
  return line + " (answer with: quorvane watch)";
}

std::string outcomeLine(const ActivityEntry& entry) {
  std::string line = std::string(rawValue(entry.outcome)) + ": " + entry.app;
  if (entry.keyName) line += " with key “" + *entry.keyName + "”";
  line += ", " + entry.purpose;
  if (entry.host) line += " on " + *entry.host;
  if (!entry.decidedBy.empty()) line += "; decided by " + entry.decidedBy;
  if (entry.note) line += " (" + *entry.note + ")";
  return line;
}

}  // namespace quorvane

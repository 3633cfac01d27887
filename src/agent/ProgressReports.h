#pragma once

#include <functional>
#include <memory>
#include <string>

#include "ActivityModel/ActivityLog.h"
#include "AgentEngine/Approval.h"

namespace quorvane {

// Where the agent's own lines go (its standard error, in the foreground).
using ReportLine = std::function<void(const std::string&)>;

// The line that tells a request is waiting for the user, and how to answer it.
std::string waitingLine(const ApprovalRequest& request);
// The line that tells how a request ended: outcome, program, key, action, host, who decided.
std::string outcomeLine(const ActivityEntry& entry);

// An approver that says, before it waits, that a request waits: otherwise ssh or git sit silent
// until the user happens to look.
class ReportingApprover : public Approver {
 public:
  ReportingApprover(std::shared_ptr<Approver> inner, ReportLine report)
      : inner_(std::move(inner)), report_(std::move(report)) {}

  ApprovalResult requestApproval(const ApprovalRequest& request, std::stop_token stop) override {
    report_(waitingLine(request));
    return inner_->requestApproval(request, stop);
  }

 private:
  std::shared_ptr<Approver> inner_;
  ReportLine report_;
};

// A log that says how each request ended once its entry is written.
class ReportingActivityLog : public ActivityLog {
 public:
  ReportingActivityLog(std::shared_ptr<ActivityLog> inner, ReportLine report)
      : inner_(std::move(inner)), report_(std::move(report)) {}

  void append(const ActivityEntry& entry) override {
    inner_->append(entry);
    report_(outcomeLine(entry));
  }
  std::vector<ActivityEntry> entries(const ActivityQuery& query) override {
    return inner_->entries(query);
  }

 private:
  std::shared_ptr<ActivityLog> inner_;
  ReportLine report_;
};

}  // namespace quorvane

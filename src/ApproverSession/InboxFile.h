#pragma once

#include <functional>
#include <string_view>

#include "AgentState/SupportState.h"
#include "ApproverSession/ApproverInbox.h"

namespace quorvane {

// The approving side's inbox on disk: the sealed file "approver-inbox.json" (purpose
// "approver-inbox") in the support folder. Every reader and writer holds an exclusive lock on
// "approver-inbox.lock" beside it for the whole read-change-write, so that two runs at once (a
// watch and an answer) never write over each other's change. The lock is never held across a
// relay call.
inline constexpr std::string_view kApproverInboxFile = "approver-inbox.json";
inline constexpr std::string_view kApproverInboxPurpose = "approver-inbox";
inline constexpr std::string_view kApproverInboxLockFile = "approver-inbox.lock";

// The inbox as stored; an empty one when the file is missing. A file that fails its seal or does
// not decode is started afresh (it holds nothing that the relay and the other computer cannot
// give again; a replayed answer is refused there). Throws std::system_error when the lock file
// cannot be opened, or the sealing key's error.
ApproverInbox readInbox(const SupportState& support);

// Reads the inbox, lets `change` modify it and writes it back when it changed, all under the lock.
// What `change` throws passes through and nothing is written. Throws what readInbox and
// SealedFile::write throw.
void updateInbox(const SupportState& support, const std::function<void(ApproverInbox&)>& change);

}  // namespace quorvane

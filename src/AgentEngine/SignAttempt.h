#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ActivityModel/ActivityEntry.h"
#include "AgentEngine/Approval.h"
#include "AgentEngine/HostNameStatus.h"
#include "AgentEngine/SignInput.h"
#include "KeyStore/KeyRecord.h"
#include "Policy/RequestPurpose.h"

namespace quorvane {

// One sign request on its way through the agent: what it asks of which key, for which host, and
// the activity entry that records it. Each step of the sign path adds what it learns; the agent
// writes the entry once, when the request ends, whatever the outcome.
struct SignAttempt {
  SignAttempt(const SignInput& input, Date now);

  // Ends the request without a signature; `note` says why, in the log only (the client is told
  // nothing). Returns nothing, so that a step can `return attempt.refuse(...)`.
  std::nullopt_t refuse(std::string note,
                        ActivityEntry::Outcome outcome = ActivityEntry::Outcome::rejected);
  // Ends the request as the policy or the user decided it, without a signature.
  std::nullopt_t deny(std::string decidedBy);

  // Names the key in the entry.
  void setKey(KeyRecord key);
  // Describes a login: its user, host, the host key that the session proved and the hops it was
  // forwarded through.
  void setLogin(const std::string& user, HostNameStatus name,
                std::optional<std::string> provedHostKey, std::vector<std::string> via,
                bool hostVerified);
  // Describes an SSH signature (Git commits and the like) in `signatureNamespace`.
  void setSignature(const std::string& signatureNamespace);

  // The host name the user would recognise, when there is one.
  std::optional<std::string> shownName() const;

  const SignInput& input;
  const Date now;
  ActivityEntry entry;
  std::optional<KeyRecord> key;
  std::string keyFingerprint;
  RequestPurpose purpose = RequestPurpose::other();
  HostNameStatus hostName;
  std::optional<std::string> hostFingerprint;
  // The user's confirmation that this signature goes ahead with, when there is one: the
  // approval's, or that of the window that allowed it.
  std::shared_ptr<const AuthContext> context;
};

}  // namespace quorvane

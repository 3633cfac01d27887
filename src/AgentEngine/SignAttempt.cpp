#include "AgentEngine/SignAttempt.h"

#include "AgentEngine/HostNaming.h"

namespace quorvane {

SignAttempt::SignAttempt(const SignInput& signInput, Date when) : input(signInput), now(when) {
  entry.date = now;
  entry.purpose = "other";
  entry.outcome = ActivityEntry::Outcome::rejected;
  entry.app = input.origin.appName;
  entry.chain = input.origin.chainPaths;
  entry.workingDirectory = input.origin.workingDirectory;
  entry.appIdentifier = input.origin.appIdentifier;
}

std::nullopt_t SignAttempt::refuse(std::string note, ActivityEntry::Outcome outcome) {
  entry.note = std::move(note);
  entry.outcome = outcome;
  return std::nullopt;
}

std::nullopt_t SignAttempt::deny(std::string decidedBy) {
  entry.decidedBy = std::move(decidedBy);
  entry.outcome = ActivityEntry::Outcome::denied;
  return std::nullopt;
}

void SignAttempt::setKey(KeyRecord record) {
  keyFingerprint = fingerprint(record.publicKeyBlob);
  entry.keyFingerprint = keyFingerprint;
  entry.keyName = record.name;
  key = std::move(record);
}

void SignAttempt::setLogin(const std::string& user, HostNameStatus name,
                           std::optional<std::string> provedHostKey, std::vector<std::string> via,
                           bool hostVerified) {
  hostName = std::move(name);
  hostFingerprint = std::move(provedHostKey);
  purpose = RequestPurpose::login(hostFingerprint, user, via);
  entry.purpose = "login";
  // The login's user name has no field of its own: it goes with the host, "user@host".
  entry.host =
      user + "@" + hostNameOf(hostName).value_or(hostFingerprint.value_or("unverified host"));
  entry.hostVerified = hostVerified;
  entry.hostKeyFingerprint = hostFingerprint;
  entry.forwardedVia = std::move(via);
}

void SignAttempt::setSignature(const std::string& signatureNamespace) {
  entry.purpose = "sign:" + signatureNamespace;
  purpose = RequestPurpose::signature(signatureNamespace);
}

std::optional<std::string> SignAttempt::shownName() const { return hostNameOf(hostName); }

}  // namespace quorvane

#include "AgentEngine/HostNaming.h"

namespace quorvane {

HostNameStatus resolveHostName(const SSHPublicKey* provedHostKey,
                               const std::optional<std::string>& claimedHost,
                               HostNameResolver* resolver) {
  if (provedHostKey != nullptr && resolver != nullptr) {
    if (claimedHost) {
      switch (resolver->check(*claimedHost, provedHostKey->blob)) {
        case HostNameMatch::recorded: return {HostNameStatus::Confirmed{*claimedHost}};
        case HostNameMatch::otherKeyOnly: return {HostNameStatus::Conflict{*claimedHost}};
        case HostNameMatch::notRecorded: return {HostNameStatus::Claimed{*claimedHost}};
      }
    }
    auto names = resolver->names(provedHostKey->blob);
    if (!names.empty()) return {HostNameStatus::Confirmed{names.front()}};
  }
  if (claimedHost) return {HostNameStatus::Claimed{*claimedHost}};
  return {};
}

std::optional<std::string> hostNameOf(const HostNameStatus& status) {
  if (auto* s = std::get_if<HostNameStatus::Confirmed>(&status.value)) return s->name;
  if (auto* s = std::get_if<HostNameStatus::Claimed>(&status.value)) return s->name;
  if (auto* s = std::get_if<HostNameStatus::Conflict>(&status.value)) return s->name;
  return std::nullopt;
}

}  // namespace quorvane

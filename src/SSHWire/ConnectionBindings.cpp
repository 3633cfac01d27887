#include "SSHWire/ConnectionBindings.h"

#include <algorithm>

namespace quorvane {

namespace {

const char* describe(ConnectionBindings::BindError::Kind kind) {
  switch (kind) {
    case ConnectionBindings::BindError::Kind::invalidSignature: return "invalid host signature";
    case ConnectionBindings::BindError::Kind::tooMany: return "too many session bindings";
    case ConnectionBindings::BindError::Kind::alreadyBoundForAuth:
      return "connection already bound for authentication";
    case ConnectionBindings::BindError::Kind::conflictingKey:
      return "session already bound to another host key";
  }
  return "session binding refused";
}

}  // namespace

ConnectionBindings::BindError::BindError(Kind kind) : KindedError(kind, {}, describe(kind)) {}

void ConnectionBindings::record(const SessionBind& bind) {
  using Kind = BindError::Kind;
  if (!bind.signatureValid) throw BindError(Kind::invalidSignature);
  for (const SessionBind& existing : binds) {
    if (existing.sessionID != bind.sessionID) continue;
    if (existing.hostKey.blob == bind.hostKey.blob) return;  // a repeated bind is harmless
    throw BindError(Kind::conflictingKey);
  }
  if (std::any_of(binds.begin(), binds.end(), [](const SessionBind& b) { return !b.isForwarding; }))
    throw BindError(Kind::alreadyBoundForAuth);
  if (binds.size() >= kMaxBindings) throw BindError(Kind::tooMany);
  binds.push_back(bind);
}

ConnectionBindings::HostVerdict ConnectionBindings::verdict(
    const SignPurpose::UserAuth& auth) const {
  if (binds.empty()) return {HostVerdict::Unbound{}};
  const SessionBind& last = binds.back();
  if (last.sessionID != auth.sessionID || last.isForwarding) return {HostVerdict::Mismatch{}};
  bool earlierAllForwarding = std::all_of(binds.begin(), binds.end() - 1,
                                          [](const SessionBind& b) { return b.isForwarding; });
  if (!earlierAllForwarding) return {HostVerdict::Mismatch{}};

  if (!auth.hostKeyBlob) {
    // A plain "publickey" login names no host, so only a lone binding leaves it merely unproven.
    return binds.size() == 1 ? HostVerdict{HostVerdict::Unbound{}}
                             : HostVerdict{HostVerdict::Mismatch{}};
  }
  if (*auth.hostKeyBlob != last.hostKey.blob) return {HostVerdict::Mismatch{}};
  HostVerdict::Verified verified{last.hostKey, {}};
  for (auto it = binds.begin(); it != binds.end() - 1; ++it) verified.via.push_back(it->hostKey);
  return {std::move(verified)};
}

}  // namespace quorvane

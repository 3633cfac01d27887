#pragma once

#include <variant>
#include <vector>

#include "Base/EnumNames.h"
#include "Base/Error.h"
#include "SSHWire/SSHPublicKey.h"
#include "SSHWire/SessionBind.h"
#include "SSHWire/SignPurpose.h"

namespace quorvane {

// The session bindings one client connection has reported, in arrival order, and the verdict on a
// login's host that follows from them.
struct ConnectionBindings {
  static constexpr size_t kMaxBindings = 16;

  enum class BindErrorKind { invalidSignature, tooMany, alreadyBoundForAuth, conflictingKey };

  // Why a binding was refused; the bindings are unchanged.
  class BindError : public KindedError<BindError, BindErrorKind> {
   public:
    static constexpr EnumNames<Kind, 4> kKindNames{
        "BindError",
        {{{Kind::invalidSignature, "invalidSignature"},
          {Kind::tooMany, "tooMany"},
          {Kind::alreadyBoundForAuth, "alreadyBoundForAuth"},
          {Kind::conflictingKey, "conflictingKey"}}}};

    explicit BindError(Kind kind);
  };

  struct HostVerdict {
    // The login is for the bound session: `destination` is its host, reached through the hosts
    // in `via` (the forwarding hops, oldest first).
    struct Verified {
      SSHPublicKey destination;
      std::vector<SSHPublicKey> via;
      friend bool operator==(const Verified&, const Verified&) = default;
    };
    // No usable host proof: no bindings, or a plain "publickey" login on one binding.
    struct Unbound {
      friend bool operator==(const Unbound&, const Unbound&) = default;
    };
    // The login does not belong to what the connection bound.
    struct Mismatch {
      friend bool operator==(const Mismatch&, const Mismatch&) = default;
    };

    std::variant<Verified, Unbound, Mismatch> value;
    friend bool operator==(const HostVerdict&, const HostVerdict&) = default;
  };

  std::vector<SessionBind> binds;

  // Records a binding. A repeat of an existing binding (same session identifier and host key) is
  // accepted and changes nothing. Throws BindError: invalidSignature, conflictingKey (same session
  // identifier, other host key), alreadyBoundForAuth (the connection already holds a binding for
  // its own login), tooMany (kMaxBindings held).
  void record(const SessionBind& bind);

  // Whether a login's data fits the bindings, and to which host.
  HostVerdict verdict(const SignPurpose::UserAuth& auth) const;

  friend bool operator==(const ConnectionBindings&, const ConnectionBindings&) = default;
};

}  // namespace quorvane

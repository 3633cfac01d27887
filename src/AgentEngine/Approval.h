#pragma once

#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <variant>

#include "AgentEngine/HostNameStatus.h"
#include "Base/Bytes.h"
#include "Base/Date.h"
#include "Base/JSONReader.h"
#include "Base/SecureBytes.h"
#include "Base/UUID.h"
#include "KeyStore/KeyRecord.h"
#include "Policy/Decision.h"
#include "Policy/RequestOrigin.h"
#include "Policy/RequestPurpose.h"

namespace quorvane {

// How long an approval request waits for an answer.
inline constexpr double kApprovalRequestSeconds = 60;

// A confirmation by the user on this machine, which the signatures of one approval window may
// reuse instead of asking again.
struct AuthContext {
  std::string reason;  // what the user confirmed
  Date confirmedAt;
  // A presence verification (PAM) proved the user was there; false when the user turned
  // verification off and the frontend's answer stood alone.
  bool verified = false;
  // The PIN of the hardware key `pinKey`, checked when the user gave it with this confirmation;
  // it lives as long as the context (the approval, or its window) and is wiped with it.
  std::shared_ptr<const SecureBytes> pin = nullptr;
  UUID pinKey = {};
};

// What is handed to an approver: one signature waiting for a human's answer.
struct ApprovalRequest {
  UUID id;
  KeyRecord key;
  RequestPurpose purpose;
  RequestOrigin origin;
  std::optional<std::string> hostDisplay;
  HostNameStatus hostName;
  std::optional<std::string> hostKeyFingerprint;
  Decision decision = Decision::askLocal;  // askLocal or askRemote
  bool windowAllowed = false;
  Bytes dataHash;  // SHA-256 of the exact bytes to be signed
  Date expiresAt;
  // The sentence shown with the request (program, action, key).
  std::string reason;

  friend bool operator==(const ApprovalRequest&, const ApprovalRequest&) = default;
};

// What an approval covers: this one request, or requests like it for a window of time.
struct ApprovalScope {
  std::optional<double> windowSeconds;  // absent: once
  static ApprovalScope once() { return {}; }
  static ApprovalScope window(double seconds) { return {seconds}; }
  friend bool operator==(const ApprovalScope&, const ApprovalScope&) = default;
};

// An approver's answer.
struct ApprovalResult {
  struct Approved {
    ApprovalScope scope;
    std::shared_ptr<const AuthContext> context;
    std::string by;
    bool fingerprintShown = false;
  };
  struct Denied {
    bool block = false;
    std::string by;
  };
  struct Expired {};
  struct Cancelled {};

  std::variant<Approved, Denied, Expired, Cancelled> value = Cancelled{};
};

// Asks a human. Blocks the calling thread until an answer, the request's expiry (Expired), or a
// stop of `stop` (Cancelled).
class Approver {
 public:
  virtual ~Approver() = default;
  virtual ApprovalResult requestApproval(const ApprovalRequest& request, std::stop_token stop) = 0;
};

// JSON form of a request for frontends: the field names as keys; "key" holds the record's "id",
// "name", "algorithm" and "fingerprint"; "hostName" is {"confirmed"|"claimed"|"conflict": name}
// or {"unknown": {}}; "dataHash" is base64; dates are ISO 8601.
JSON toJSON(const ApprovalRequest& request);

}  // namespace quorvane

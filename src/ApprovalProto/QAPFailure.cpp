#include "ApprovalProto/QAPFailure.h"

namespace quorvane {

const char* name(QAPFailure::Kind kind) {
  switch (kind) {
    case QAPFailure::Kind::malformed: return "malformed";
    case QAPFailure::Kind::decryptionFailed: return "decryptionFailed";
    case QAPFailure::Kind::badSignature: return "badSignature";
    case QAPFailure::Kind::unknownDevice: return "unknownDevice";
    case QAPFailure::Kind::notAllowedForKey: return "notAllowedForKey";
    case QAPFailure::Kind::unknownRequest: return "unknownRequest";
    case QAPFailure::Kind::alreadyAnswered: return "alreadyAnswered";
    case QAPFailure::Kind::hashMismatch: return "hashMismatch";
    case QAPFailure::Kind::expired: return "expired";
    case QAPFailure::Kind::clockSkew: return "clockSkew";
    case QAPFailure::Kind::scopeNotOffered: return "scopeNotOffered";
    case QAPFailure::Kind::wrongMac: return "wrongMac";
    case QAPFailure::Kind::unsupportedVersion: return "unsupportedVersion";
  }
  return "unknown";
}

QAPFailure::QAPFailure(Kind kind)
    : std::runtime_error(std::string("approval protocol: ") + name(kind)), kind_(kind) {}

}  // namespace quorvane

#include "SSHWire/SessionBind.h"

#include "SSHWire/SignatureVerification.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"

namespace quorvane {

SessionBind SessionBind::parse(ByteView contents) {
  WireReader reader(contents);
  ByteView hostKeyBlob = reader.readStringView();
  Bytes sessionID = reader.readString();
  ByteView signature = reader.readStringView();
  if (reader.isAtEnd()) throw WireError::truncated();
  bool isForwarding = reader.readBool();
  reader.expectEnd();
  if (sessionID.size() < kMinSessionIDLength || sessionID.size() > kMaxSessionIDLength)
    throw WireError::invalid("session id length");

  SessionBind bind{SSHPublicKey::parse(hostKeyBlob), std::move(sessionID), isForwarding, false};
  bind.signatureValid = verify(signature, bind.sessionID, bind.hostKey);
  return bind;
}

}  // namespace quorvane

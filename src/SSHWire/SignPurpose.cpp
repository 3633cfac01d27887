#include "SSHWire/SignPurpose.h"

#include <algorithm>
#include <string_view>

#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"

namespace quorvane {

namespace {

constexpr std::string_view kSSHSigMagic = "SSHSIG";
constexpr uint8_t kUserAuthRequest = 50;  // SSH_MSG_USERAUTH_REQUEST
constexpr std::string_view kConnectionService = "ssh-connection";
constexpr std::string_view kPublicKeyMethod = "publickey";
constexpr std::string_view kHostBoundMethod = "publickey-hostbound-v00@openssh.com";

bool startsWithMagic(ByteView data) {
  return data.size() >= kSSHSigMagic.size() &&
         std::equal(kSSHSigMagic.begin(), kSSHSigMagic.end(), data.begin());
}

std::optional<SignPurpose::SSHSig> parseSSHSig(ByteView data) {
  WireReader reader(data.subspan(kSSHSigMagic.size()));
  SignPurpose::SSHSig sig;
  sig.namespace_ = reader.readUTF8String();
  reader.readStringView();  // reserved
  sig.hashAlgorithm = reader.readUTF8String();
  sig.hash = reader.readString();
  if (!reader.isAtEnd()) return std::nullopt;
  if (sig.hashAlgorithm != "sha256" && sig.hashAlgorithm != "sha512") return std::nullopt;
  return sig;
}

std::optional<SignPurpose::UserAuth> parseUserAuth(ByteView data, ByteView keyBlob) {
  WireReader reader(data);
  SignPurpose::UserAuth auth;
  auth.sessionID = reader.readString();
  if (auth.sessionID.empty()) return std::nullopt;
  if (reader.readByte() != kUserAuthRequest) return std::nullopt;
  auth.user = reader.readUTF8String();
  if (reader.readUTF8String() != kConnectionService) return std::nullopt;
  auth.method = reader.readUTF8String();
  bool hostBound = auth.method == kHostBoundMethod;
  if (!hostBound && auth.method != kPublicKeyMethod) return std::nullopt;
  if (!reader.readBool()) return std::nullopt;  // a signature must follow
  auth.algorithm = reader.readUTF8String();
  auth.keyBlob = reader.readString();
  if (!std::equal(auth.keyBlob.begin(), auth.keyBlob.end(), keyBlob.begin(), keyBlob.end()))
    return std::nullopt;
  if (hostBound) auth.hostKeyBlob = reader.readString();
  if (!reader.isAtEnd()) return std::nullopt;
  return auth;
}

}  // namespace

SignPurpose SignPurpose::classify(ByteView data, ByteView keyBlob) {
  try {
    if (startsWithMagic(data)) {
      if (auto sig = parseSSHSig(data)) return {std::move(*sig)};
      return {Other{}};
    }
    if (auto auth = parseUserAuth(data, keyBlob)) return {std::move(*auth)};
  } catch (const WireError&) {
    // Data that does not decode is simply not one of the two known forms.
  }
  return {Other{}};
}

}  // namespace quorvane

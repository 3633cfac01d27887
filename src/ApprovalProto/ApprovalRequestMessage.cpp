#include "ApprovalProto/ApprovalRequestMessage.h"

#include "ApprovalProto/MessageCoding.h"

namespace quorvane {
namespace {

using namespace qapcoding;

enum class PurposeTag : uint8_t { login = 0, signature = 1, other = 2 };

std::optional<std::string> readOptionalText(WireReader& reader) {
  std::string text = reader.readUTF8String();
  if (text.empty()) return std::nullopt;
  return text;
}

void writePurpose(WireWriter& writer, const ApprovalPurpose& purpose) {
  if (const auto* login = std::get_if<ApprovalPurpose::Login>(&purpose.value)) {
    writer.writeByte(static_cast<uint8_t>(PurposeTag::login));
    writer.writeString(login->hostKeyFingerprint.value_or(""));
    writer.writeString(login->hostName.value_or(""));
    writer.writeByte(static_cast<uint8_t>(login->nameState));
    writer.writeString(login->user);
    writer.writeByte(login->forwarded ? 1 : 0);
  } else if (const auto* signature = std::get_if<ApprovalPurpose::Signature>(&purpose.value)) {
    writer.writeByte(static_cast<uint8_t>(PurposeTag::signature));
    writer.writeString(signature->namespace_);
  } else {
    writer.writeByte(static_cast<uint8_t>(PurposeTag::other));
  }
}

ApprovalPurpose readPurpose(WireReader& reader) {
  switch (readEnumeration(reader, PurposeTag::other)) {
    case PurposeTag::login: {
      ApprovalPurpose::Login login;
      login.hostKeyFingerprint = readOptionalText(reader);
      login.hostName = readOptionalText(reader);
      login.nameState = readEnumeration(reader, HostNameState::unknown);
      login.user = reader.readUTF8String();
      login.forwarded = readFlag(reader);
      return {std::move(login)};
    }
    case PurposeTag::signature: return ApprovalPurpose::signature(reader.readUTF8String());
    case PurposeTag::other: break;
  }
  return ApprovalPurpose::other();
}

}  // namespace

Bytes ApprovalRequestMessage::encode() const {
  WireWriter writer;
  writer.writeUInt32(kMessageVersion);
  writer.writeString(requestID);
  writer.writeString(macID);
  writer.writeUInt64(createdAt);
  writer.writeUInt64(expiresAt);
  writer.writeString(keyFingerprint);
  writer.writeString(keyName);
  writePurpose(writer, purpose);
  writer.writeString(appName);
  writer.writeByte(appVerified ? 1 : 0);
  writeStrings(writer, chain);
  writer.writeString(workingDirectory);
  writer.writeString(hint);
  writer.writeString(dataHash);
  writeCount(writer, scopes.size());
  for (qap::ApprovalScope scope : scopes) writer.writeByte(static_cast<uint8_t>(scope));
  return std::move(writer).take();
}

ApprovalRequestMessage ApprovalRequestMessage::decode(ByteView bytes) {
  return decodeMessage(bytes, [](WireReader& reader) {
    ApprovalRequestMessage message;
    message.requestID = reader.readString();
    message.macID = reader.readString();
    message.createdAt = reader.readUInt64();
    message.expiresAt = reader.readUInt64();
    message.keyFingerprint = reader.readUTF8String();
    message.keyName = reader.readUTF8String();
    message.purpose = readPurpose(reader);
    message.appName = reader.readUTF8String();
    message.appVerified = readFlag(reader);
    message.chain = readStrings(reader);
    message.workingDirectory = reader.readUTF8String();
    message.hint = reader.readUTF8String();
    message.dataHash = reader.readString();
    const uint32_t scopeCount = readCount(reader, 1);
    message.scopes.reserve(scopeCount);
    for (uint32_t i = 0; i < scopeCount; ++i)
      message.scopes.push_back(readEnumeration(reader, qap::ApprovalScope::fiveMinutes));
    return message;
  });
}

}  // namespace quorvane

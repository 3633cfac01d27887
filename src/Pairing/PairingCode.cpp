#include "Pairing/PairingCode.h"

#include "ApprovalProto/MessageCoding.h"
#include "ApprovalProto/QAPFailure.h"
#include "Base/Base64.h"
#include "Base/Check.h"
#include "Pairing/PairingError.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {
namespace {

constexpr std::string_view kHTTPSScheme = "https://";

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Standard base64 from base64url: only the URL-safe alphabet is accepted, so a text that still
// holds "=", "+" or "/" is not a code. The standard decoder then checks lengths and spare bits.
std::optional<std::string> standardAlphabet(std::string_view urlSafe) {
  std::string text(urlSafe);
  for (char& c : text) {
    if (c == '-')
      c = '+';
    else if (c == '_')
      c = '/';
    else if (c == '+' || c == '/' || c == '=')
      return std::nullopt;
  }
  return text;
}

}  // namespace

SecureBytes pairingCodeText(const PairingCode& code) {
  QUORVANE_CHECK(code.key.size() == kPairingKeySize, "a pairing key is 32 bytes");
  QUORVANE_CHECK(code.relayURL.starts_with(kHTTPSScheme), "a pairing relay is reached over https");
  WireWriter writer;
  writer.writeUInt32(qapcoding::kMessageVersion);
  writer.writeString(code.relayURL);
  writer.writeString(code.boxID);
  writer.writeString(code.boxSecret.view());
  writer.writeString(code.key.view());
  Bytes payload = std::move(writer).take();
  std::string encoded = base64Encode(payload, Base64Padding::unpadded);
  secureWipe(payload);
  SecureBytes text;
  text.append(kPairingCodePrefix);
  for (char c : encoded) text.push_back(static_cast<uint8_t>(c == '+' ? '-' : c == '/' ? '_' : c));
  secureWipe(encoded.data(), encoded.size());
  return text;
}

PairingCode parsePairingCode(std::string_view text) {
  text = trimmed(text);
  if (!text.starts_with(kPairingCodePrefix)) throw PairingError(PairingError::Kind::notACode);
  std::optional<std::string> standard = standardAlphabet(text.substr(kPairingCodePrefix.size()));
  std::optional<Bytes> payload;
  if (standard) {
    payload = base64Decode(*standard);
    secureWipe(standard->data(), standard->size());
  }
  if (!payload) throw PairingError(PairingError::Kind::unreadableCode);
  PairingCode code;
  try {
    WireReader reader(*payload);
    if (reader.readUInt32() != qapcoding::kMessageVersion) {
      secureWipe(*payload);
      throw QAPFailure(QAPFailure::Kind::unsupportedVersion);
    }
    code.relayURL = reader.readUTF8String();
    code.boxID = reader.readUTF8String();
    code.boxSecret = SecureBytes(reader.readStringView());
    code.key = SecureBytes(reader.readStringView());
    reader.expectEnd();
  } catch (const WireError&) {
    secureWipe(*payload);
    throw PairingError(PairingError::Kind::unreadableCode);
  }
  secureWipe(*payload);
  if (code.key.size() != kPairingKeySize || !code.relayURL.starts_with(kHTTPSScheme) ||
      code.boxID.empty() || code.boxSecret.empty())
    throw PairingError(PairingError::Kind::unreadableCode);
  return code;
}

}  // namespace quorvane

#include "support/SSHSig.h"

#include <gtest/gtest.h>

#include <sstream>

#include "Base/Base64.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"

namespace quorvane::testing {

namespace {

constexpr const char* kBegin = "-----BEGIN SSH SIGNATURE-----";
constexpr const char* kEnd = "-----END SSH SIGNATURE-----";
constexpr std::string_view kMagic = "SSHSIG";

}  // namespace

SSHSigFile parseArmoredSSHSig(const std::string& armored) {
  std::istringstream lines(armored);
  std::string line, body;
  bool inside = false;
  while (std::getline(lines, line)) {
    if (line == kBegin) {
      inside = true;
    } else if (line == kEnd) {
      inside = false;
    } else if (inside) {
      body += line;
    }
  }
  auto blob = base64Decode(body);
  EXPECT_TRUE(blob.has_value()) << "armored signature is not base64";
  if (!blob) return {};
  WireReader reader(*blob);
  EXPECT_EQ(textOf(reader.readBytes(kMagic.size())), kMagic);
  EXPECT_EQ(reader.readUInt32(), 1u);
  SSHSigFile file;
  file.publicKey = reader.readString();
  file.namespace_ = reader.readUTF8String();
  reader.readString();  // reserved
  file.hashAlgorithm = reader.readUTF8String();
  file.signature = reader.readString();
  EXPECT_TRUE(reader.isAtEnd());
  return file;
}

std::string armorSSHSig(const SSHSigFile& file) {
  WireWriter writer;
  writer.writeRaw(bytesOf(kMagic));
  writer.writeUInt32(1);
  writer.writeString(file.publicKey);
  writer.writeString(file.namespace_);
  writer.writeString(std::string_view());
  writer.writeString(file.hashAlgorithm);
  writer.writeString(file.signature);
  std::string body = base64Encode(writer.data());
  std::string armored = std::string(kBegin) + "\n";
  for (size_t i = 0; i < body.size(); i += 70) armored += body.substr(i, 70) + "\n";
  return armored + kEnd + "\n";
}

Bytes sshSigSignedData(const std::string& namespace_, const std::string& hashAlgorithm,
                       ByteView messageHash) {
  WireWriter writer;
  writer.writeRaw(bytesOf(kMagic));
  writer.writeString(namespace_);
  writer.writeString(std::string_view());
  writer.writeString(hashAlgorithm);
  writer.writeString(messageHash);
  return std::move(writer).take();
}

}  // namespace quorvane::testing

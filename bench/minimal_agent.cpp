// The floor for agent benchmarks: the least an agent can do to answer with an Ed25519 signature.
// One thread, blocking sockets, one key made at start, no peer checks, no policy, no log: it
// accepts a client, answers its requests (identities and sign, nothing else) until it closes, and
// takes the next. scripts/agent-bench.sh runs it beside Quorvane and OpenSSH's ssh-agent.
//
//   minimal_agent --socket PATH --public-key-out FILE.pub
#include <openssl/evp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "Base/Base64.h"
#include "Platform/FileDescriptor.h"
#include "Platform/SocketIO.h"
#include "SSHWire/AgentMessageType.h"
#include "SSHWire/Framing.h"
#include "SSHWire/SSHPublicKey.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {
namespace {

using KeyHandle = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

struct Key {
  KeyHandle handle{nullptr, EVP_PKEY_free};
  SSHPublicKey publicKey;
};

Key makeKey() {
  Key key;
  key.handle.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
  Bytes raw(32);
  size_t length = raw.size();
  EVP_PKEY_get_raw_public_key(key.handle.get(), raw.data(), &length);
  key.publicKey = SSHPublicKey::ed25519(raw);
  return key;
}

Bytes sign(const Key& key, ByteView data) {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                  EVP_MD_CTX_free);
  Bytes signature(64);
  size_t length = signature.size();
  EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key.handle.get());
  EVP_DigestSign(context.get(), signature.data(), &length, data.data(), data.size());
  WireWriter blob;
  blob.writeString(bytesOf("ssh-ed25519"));
  blob.writeString(signature);
  return std::move(blob).take();
}

Bytes answer(const Key& key, ByteView body) {
  WireWriter out;
  WireReader reader(body);
  const auto type = static_cast<AgentMessageType>(reader.readByte());
  if (type == AgentMessageType::requestIdentities) {
    out.writeByte(static_cast<uint8_t>(AgentMessageType::identitiesAnswer));
    out.writeUInt32(1);
    out.writeString(key.publicKey.blob);
    out.writeString(bytesOf("minimal"));
  } else if (type == AgentMessageType::signRequest &&
             std::ranges::equal(reader.readStringView(), key.publicKey.blob)) {
    out.writeByte(static_cast<uint8_t>(AgentMessageType::signResponse));
    out.writeString(sign(key, reader.readStringView()));
  } else {
    out.writeByte(static_cast<uint8_t>(AgentMessageType::failure));
  }
  return Framing::frame(std::move(out).take());
}

void serve(int client, const Key& key) {
  for (;;) {
    uint8_t prefix[4];
    if (!readExactly(client, prefix, sizeof prefix)) return;
    Bytes body(Framing::readLength(ByteView(prefix, sizeof prefix)));
    if (!readExactly(client, body.data(), body.size())) return;
    if (!writeAll(client, answer(key, body))) return;
  }
}

int run(const std::string& socketPath, const std::string& publicKeyOut) {
  const Key key = makeKey();
  std::ofstream(publicKeyOut) << "ssh-ed25519 " << base64Encode(key.publicKey.blob) << "\n";

  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
  ::unlink(socketPath.c_str());
  FileDescriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener.get(), 4096) != 0) {
    std::perror("minimal_agent: listen");
    return 1;
  }
  for (;;) {
    FileDescriptor client(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!client) continue;
    try {
      serve(client.get(), key);
    } catch (const WireError&) {
      // A malformed request ends its connection, as in any agent.
    }
  }
}

}  // namespace
}  // namespace quorvane

int main(int argc, char** argv) {
  std::string socketPath, publicKeyOut;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string flag = argv[i];
    if (flag == "--socket") socketPath = argv[i + 1];
    if (flag == "--public-key-out") publicKeyOut = argv[i + 1];
  }
  if (socketPath.empty() || publicKeyOut.empty()) {
    std::fprintf(stderr, "usage: minimal_agent --socket PATH --public-key-out FILE.pub\n");
    return 2;
  }
  ::signal(SIGPIPE, SIG_IGN);
  return quorvane::run(socketPath, publicKeyOut);
}

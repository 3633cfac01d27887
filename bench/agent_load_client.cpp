// A load client for SSH agents: N threads, each opening a fresh connection per signature, asking
// for an Ed25519 signature over SSHSIG data and checking every answer. Reports throughput and the
// latency distribution. Works against any agent (Quorvane, OpenSSH's ssh-agent).
//
//   agent_load_client --socket PATH --public-key FILE.pub [--clients 8] [--seconds 10]
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Base/Base64.h"
#include "Platform/FileDescriptor.h"
#include "SSHWire/AgentMessageType.h"
#include "SSHWire/Framing.h"
#include "SSHWire/SSHPublicKey.h"
#include "SSHWire/SignatureVerification.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {
namespace {

struct Options {
  std::string socket;
  std::string publicKeyFile;
  int clients = 8;
  double seconds = 10;
};

Bytes signedData(uint64_t counter) {
  WireWriter writer;
  writer.writeRaw(bytesOf("SSHSIG"));
  writer.writeString(bytesOf("bench"));
  writer.writeString(Bytes{});
  writer.writeString(bytesOf("sha512"));
  Bytes hash(64, 0);
  std::memcpy(hash.data(), &counter, sizeof counter);
  writer.writeString(hash);
  return std::move(writer).take();
}

bool readExactly(int fd, uint8_t* out, size_t count) {
  while (count > 0) {
    ssize_t got = ::read(fd, out, count);
    if (got <= 0) return false;
    out += got;
    count -= static_cast<size_t>(got);
  }
  return true;
}

// One signature request on a fresh connection; the answer's body, or nothing when the connection
// failed.
std::optional<Bytes> requestSignature(const Options& options, const SSHPublicKey& key,
                                      const Bytes& data) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, options.socket.c_str(), sizeof address.sun_path - 1);
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  if (::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    return std::nullopt;
  WireWriter request;
  request.writeByte(static_cast<uint8_t>(AgentMessageType::signRequest));
  request.writeString(key.blob);
  request.writeString(data);
  request.writeUInt32(0);
  const Bytes framed = Framing::frame(std::move(request).take());
  if (::write(socket.get(), framed.data(), framed.size()) != static_cast<ssize_t>(framed.size()))
    return std::nullopt;
  uint8_t prefix[4];
  if (!readExactly(socket.get(), prefix, 4)) return std::nullopt;
  Bytes body(Framing::readLength(ByteView(prefix, 4)));
  if (!readExactly(socket.get(), body.data(), body.size())) return std::nullopt;
  return body;
}

// Whether an answer is a valid signature of `data` by `key`.
bool isValidSignature(const std::optional<Bytes>& answer, const Bytes& data,
                      const SSHPublicKey& key) {
  if (!answer) return false;
  try {
    WireReader reader(*answer);
    if (reader.readByte() != static_cast<uint8_t>(AgentMessageType::signResponse)) return false;
    return verify(reader.readStringView(), data, key);
  } catch (const WireError&) {
    return false;
  }
}

int run(const Options& options) {
  std::ifstream file(options.publicKeyFile);
  std::string type, base64;
  file >> type >> base64;
  auto blob = base64Decode(base64);
  if (!blob) {
    std::fprintf(stderr, "cannot read a public key from %s\n", options.publicKeyFile.c_str());
    return 2;
  }
  const SSHPublicKey key = SSHPublicKey::parse(*blob);

  std::atomic<uint64_t> counter = 0, failures = 0;
  std::mutex mutex;
  std::vector<double> latencies;
  const auto end =
      std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
  std::vector<std::thread> threads;
  for (int i = 0; i < options.clients; ++i) {
    threads.emplace_back([&] {
      std::vector<double> own;
      while (std::chrono::steady_clock::now() < end) {
        // The latency is the agent's: from connecting to the whole answer. The client checks
        // the signature afterwards, outside the measured time.
        const Bytes data = signedData(counter++);
        const auto start = std::chrono::steady_clock::now();
        std::optional<Bytes> answer = requestSignature(options, key, data);
        own.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
        if (!isValidSignature(answer, data, key)) ++failures;
      }
      std::lock_guard lock(mutex);
      latencies.insert(latencies.end(), own.begin(), own.end());
    });
  }
  for (auto& thread : threads) thread.join();
  std::sort(latencies.begin(), latencies.end());
  auto percentile = [&](double p) {
    return latencies.empty() ? 0.0 : latencies[static_cast<size_t>(p * (latencies.size() - 1))];
  };
  std::printf(
      "{\"clients\": %d, \"signatures\": %zu, \"failures\": %llu, \"perSecond\": %.0f, "
      "\"medianMicroseconds\": %.0f, \"p99Microseconds\": %.0f}\n",
      options.clients, latencies.size(), static_cast<unsigned long long>(failures.load()),
      static_cast<double>(latencies.size()) / options.seconds, percentile(0.5), percentile(0.99));
  return failures == 0 ? 0 : 1;
}

}  // namespace
}  // namespace quorvane

int main(int argc, char** argv) {
  quorvane::Options options;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string flag = argv[i];
    if (flag == "--socket")
      options.socket = argv[i + 1];
    else if (flag == "--public-key")
      options.publicKeyFile = argv[i + 1];
    else if (flag == "--clients")
      options.clients = std::stoi(argv[i + 1]);
    else if (flag == "--seconds")
      options.seconds = std::stod(argv[i + 1]);
  }
  if (options.socket.empty() || options.publicKeyFile.empty()) {
    std::fprintf(stderr,
                 "usage: agent_load_client --socket PATH --public-key FILE.pub [--clients N] "
                 "[--seconds S]\n");
    return 2;
  }
  return quorvane::run(options);
}

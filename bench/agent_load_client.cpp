// A load client for SSH agents: N threads, each opening a fresh connection per signature, asking
// for an Ed25519 signature over SSHSIG data and checking every answer. Reports throughput and the
// latency distribution. Works against any agent (Quorvane, OpenSSH's ssh-agent,
// bench/minimal_agent).
//
//   agent_load_client --socket PATH --public-key FILE.pub [--clients 8] [--seconds 10]
//                     [--idle N] [--identities]
//
// --idle N opens N connections first and holds them, sending nothing, for the whole run (programs
// that keep an agent connection open); --identities asks for the identities before each signature
// on the same connection, as ssh does. A request not answered within five seconds is a failure.
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
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
  int idle = 0;
  bool identities = false;
};

constexpr timeval kAnswerTimeout{5, 0};

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

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

// One request on `socket` and the body of its answer; nothing when the connection failed or the
// answer did not come in time.
std::optional<Bytes> exchange(int socket, const Bytes& request) {
  const Bytes framed = Framing::frame(request);
  if (::write(socket, framed.data(), framed.size()) != static_cast<ssize_t>(framed.size()))
    return std::nullopt;
  uint8_t prefix[4];
  if (!readExactly(socket, prefix, 4)) return std::nullopt;
  Bytes body(Framing::readLength(ByteView(prefix, 4)));
  if (!readExactly(socket, body.data(), body.size())) return std::nullopt;
  return body;
}

// One signature request on a fresh connection (after an identities request with --identities);
// the signature answer's body, or nothing when the connection or the identities request failed.
std::optional<Bytes> requestSignature(const Options& options, const SSHPublicKey& key,
                                      const Bytes& data) {
  const sockaddr_un address = addressOf(options.socket);
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &kAnswerTimeout, sizeof kAnswerTimeout);
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &kAnswerTimeout, sizeof kAnswerTimeout);
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return std::nullopt;
  if (options.identities) {
    auto answer =
        exchange(socket.get(), Bytes{static_cast<uint8_t>(AgentMessageType::requestIdentities)});
    if (!answer || answer->empty() ||
        (*answer)[0] != static_cast<uint8_t>(AgentMessageType::identitiesAnswer))
      return std::nullopt;
  }
  WireWriter request;
  request.writeByte(static_cast<uint8_t>(AgentMessageType::signRequest));
  request.writeString(key.blob);
  request.writeString(data);
  request.writeUInt32(0);
  return exchange(socket.get(), std::move(request).take());
}

// Opens `count` connections that send nothing. Each connect may wait for the agent to accept it
// for as long as a request may; after the first that times out, the rest are counted as refused
// rather than stalling the run.
std::vector<FileDescriptor> openIdleConnections(const std::string& path, int count, int* refused) {
  std::vector<FileDescriptor> held;
  const sockaddr_un address = addressOf(path);
  for (int i = 0; i < count; ++i) {
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &kAnswerTimeout, sizeof kAnswerTimeout);
    if (!socket ||
        ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      *refused = count - i;
      break;
    }
    held.push_back(std::move(socket));
  }
  return held;
}

// Idle connections and a thousand client threads need more descriptors than the usual soft limit.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
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
  raiseDescriptorLimit();
  int refusedIdle = 0;
  const std::vector<FileDescriptor> idle =
      openIdleConnections(options.socket, options.idle, &refusedIdle);

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
      "{\"clients\": %d, \"idle\": %zu, \"idleRefused\": %d, \"signatures\": %zu, "
      "\"failures\": %llu, \"perSecond\": %.0f, \"medianMicroseconds\": %.0f, "
      "\"p99Microseconds\": %.0f}\n",
      options.clients, idle.size(), refusedIdle, latencies.size(),
      static_cast<unsigned long long>(failures.load()),
      static_cast<double>(latencies.size()) / options.seconds, percentile(0.5), percentile(0.99));
  return failures == 0 ? 0 : 1;
}

}  // namespace
}  // namespace quorvane

int main(int argc, char** argv) {
  quorvane::Options options;
  for (int i = 1; i < argc; ++i) {
    std::string flag = argv[i];
    if (flag == "--identities") {
      options.identities = true;
      continue;
    }
    if (i + 1 == argc) break;
    ++i;
    if (flag == "--socket")
      options.socket = argv[i];
    else if (flag == "--public-key")
      options.publicKeyFile = argv[i];
    else if (flag == "--clients")
      options.clients = std::stoi(argv[i]);
    else if (flag == "--seconds")
      options.seconds = std::stod(argv[i]);
    else if (flag == "--idle")
      options.idle = std::stoi(argv[i]);
  }
  if (options.socket.empty() || options.publicKeyFile.empty()) {
    std::fprintf(stderr,
                 "usage: agent_load_client --socket PATH --public-key FILE.pub [--clients N] "
                 "[--seconds S] [--idle N] [--identities]\n");
    return 2;
  }
  return quorvane::run(options);
}

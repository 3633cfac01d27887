#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "RelayServer/RelayService.h"

namespace quorvane::relay {

struct HttpServerOptions {
  std::string host = "127.0.0.1";
  uint16_t port = 0;  // 0: a free port
  // Both or neither: TLS with this certificate chain and private key (PEM); plain HTTP without.
  std::optional<std::filesystem::path> tlsCertificate;
  std::optional<std::filesystem::path> tlsKey;
  int threads = 2;
  // Time allowed for a whole request header (and for the idle time between requests).
  double headerTimeoutSeconds = kHeaderReadTimeoutSeconds;
  // Behind a proxy every client has the proxy's address: with this, the per-address limits use the
  // last address of the "X-Forwarded-For" header that the proxy adds (and the peer's address when
  // there is none). Only for a relay that nobody can reach but through the proxy.
  bool trustForwardedFor = false;
  // How often expired mailboxes and messages are removed.
  double expirySweepSeconds = 30;
};

// The relay's HTTP/1.1 server (Boost.Beast over Asio; TLS through Asio's OpenSSL stream). All of
// Beast lives in its implementation file. Reads each request within the limits of RelayLimits.h,
// hands it to the service, holds waiting fetches without a thread each, and writes one log line
// per request to standard error.
class RelayHttpServer {
 public:
  // Binds the listening socket. Throws RelayServerError (listen, tls).
  RelayHttpServer(RelayService& service, WaitingFetches& waiting, const HttpServerOptions& options);
  ~RelayHttpServer();
  RelayHttpServer(const RelayHttpServer&) = delete;
  RelayHttpServer& operator=(const RelayHttpServer&) = delete;

  // The base URL clients use, with the real port: "https://127.0.0.1:43817/".
  std::string url() const;
  // Serves until SIGTERM or SIGINT, then answers the waiting fetches, closes idle connections and
  // returns once every connection has ended (or a few seconds have passed).
  void run();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace quorvane::relay

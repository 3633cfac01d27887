#pragma once

// A small HTTP/1.1 server for tests of HTTP clients (the relay client, pairing): it listens on a
// free loopback port, records every request exactly as it arrived, and answers each with what
// the test's script says, including faults: a delay, a held request that is never answered, a
// hang-up without an answer. Plain HTTP, or HTTPS with a certificate and key the test made.
// One request per connection (the answer says "Connection: close"). Every wait ends when the
// server stops, so a test never hangs on it.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/TestSupport.h"

namespace quorvane::testing {

// One request as the client sent it.
struct RecordedRequest {
  std::string method;
  std::string target;  // the request line's target, with its query ("/v1/mailbox?ephemeral=1")
  std::vector<std::pair<std::string, std::string>> headers;  // names in lower case, in order
  std::string body;

  // The value of the first header called `name` (lower case); nothing when absent.
  std::optional<std::string> header(std::string_view name) const {
    for (const auto& [key, value] : headers)
      if (key == name) return value;
    return std::nullopt;
  }
};

// What the script answers one request with.
struct ScriptedAnswer {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;  // besides Content-Length
  std::string body;
  std::chrono::milliseconds delay{0};  // wait this long before answering
  bool hold = false;                   // never answer; keep the connection until the server stops
  bool hangUp = false;                 // close the connection without answering
};

class ScriptedHTTPServer {
 public:
  using Script = std::function<ScriptedAnswer(const RecordedRequest&)>;
  struct TLSFiles {
    std::filesystem::path certificate;  // PEM, the server's certificate (and chain)
    std::filesystem::path key;          // PEM, its private key
  };

  explicit ScriptedHTTPServer(Script script, std::optional<TLSFiles> tls = std::nullopt)
      : script_(std::move(script)) {
    // TLS writes to a client that has hung up (one that refused the certificate) would otherwise
    // end the test program with SIGPIPE.
    ::signal(SIGPIPE, SIG_IGN);
    if (tls) {
      tls_ = SSL_CTX_new(TLS_server_method());
      if (tls_ == nullptr ||
          SSL_CTX_use_certificate_chain_file(tls_, tls->certificate.c_str()) != 1 ||
          SSL_CTX_use_PrivateKey_file(tls_, tls->key.c_str(), SSL_FILETYPE_PEM) != 1)
        throw std::runtime_error("the test server's certificate or key could not be loaded");
    }
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (listener_ < 0 || ::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(listener_, 64) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
      throw std::runtime_error("the test server could not listen on a loopback port");
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { acceptLoop(); });
  }

  ~ScriptedHTTPServer() {
    stop();
    if (tls_ != nullptr) SSL_CTX_free(tls_);
  }
  ScriptedHTTPServer(const ScriptedHTTPServer&) = delete;
  ScriptedHTTPServer& operator=(const ScriptedHTTPServer&) = delete;

  uint16_t port() const { return port_; }
  // "http://127.0.0.1:PORT/" (or https).
  std::string baseURL() const {
    return std::string(tls_ != nullptr ? "https" : "http") +
           "://127.0.0.1:" + std::to_string(port_) + "/";
  }

  // Every complete request so far, in the order they arrived.
  std::vector<RecordedRequest> requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }

  // Answers nothing more: held and delayed requests are dropped, every thread is joined.
  void stop() {
    {
      std::lock_guard lock(mutex_);
      if (stopping_) return;
      stopping_ = true;
      stoppingAtomic_ = true;
    }
    wake_.notify_all();
    if (acceptor_.joinable()) acceptor_.join();
    std::vector<std::thread> connections;
    {
      std::lock_guard lock(mutex_);
      connections.swap(connections_);
    }
    for (std::thread& connection : connections) connection.join();
    if (listener_ >= 0) ::close(listener_);
    listener_ = -1;
  }

 private:
  // A connection's byte stream, plain or TLS. Reads and writes give up once the server stops.
  class Stream {
   public:
    Stream(int fd, SSL_CTX* tls, const std::atomic<bool>& stopping) : fd_(fd), stopping_(stopping) {
      if (tls != nullptr) {
        ssl_ = SSL_new(tls);
        SSL_set_fd(ssl_, fd_);
      }
    }
    ~Stream() {
      if (ssl_ != nullptr) {
        SSL_shutdown(ssl_);
        SSL_free(ssl_);
      }
      ::close(fd_);
    }

    bool handshake() {
      if (ssl_ == nullptr) return true;
      while (!stopping_) {
        ERR_clear_error();
        int result = SSL_accept(ssl_);
        if (result == 1) return true;
        int error = SSL_get_error(ssl_, result);
        if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE) return false;
        waitReadable();
      }
      return false;
    }

    // Up to `size` bytes; 0 at the end of the stream, an error, or a stop.
    size_t read(char* data, size_t size) {
      while (!stopping_) {
        if (ssl_ != nullptr && SSL_pending(ssl_) == 0 && !waitReadable()) continue;
        if (ssl_ == nullptr && !waitReadable()) continue;
        if (ssl_ == nullptr) {
          ssize_t got = ::recv(fd_, data, size, 0);
          return got > 0 ? static_cast<size_t>(got) : 0;
        }
        ERR_clear_error();
        int got = SSL_read(ssl_, data, static_cast<int>(size));
        if (got > 0) return static_cast<size_t>(got);
        if (SSL_get_error(ssl_, got) != SSL_ERROR_WANT_READ) return 0;
      }
      return 0;
    }

    void write(std::string_view data) {
      if (ssl_ != nullptr) {
        SSL_write(ssl_, data.data(), static_cast<int>(data.size()));
        return;
      }
      while (!data.empty()) {
        ssize_t sent = ::send(fd_, data.data(), data.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;
        data.remove_prefix(static_cast<size_t>(sent));
      }
    }

   private:
    // Whether the socket became readable within 10 ms.
    bool waitReadable() {
      pollfd entry{fd_, POLLIN, 0};
      return ::poll(&entry, 1, 10) > 0;
    }

    int fd_;
    SSL* ssl_ = nullptr;
    const std::atomic<bool>& stopping_;
  };

  void acceptLoop() {
    while (!stopFlag()) {
      pollfd entry{listener_, POLLIN, 0};
      if (::poll(&entry, 1, 10) <= 0) continue;
      int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) continue;
      std::lock_guard lock(mutex_);
      connections_.emplace_back([this, fd] { serve(fd); });
    }
  }

  bool stopFlag() {
    std::lock_guard lock(mutex_);
    return stopping_;
  }

  // Reads one request: the head up to the blank line (at most 64 KiB), then Content-Length bytes
  // of body (at most 64 MiB). Nothing for a connection that ends or sends something else.
  static std::optional<RecordedRequest> readRequest(Stream& stream) {
    std::string data;
    char buffer[16384];
    size_t headEnd;
    while ((headEnd = data.find("\r\n\r\n")) == std::string::npos) {
      if (data.size() > 65536) return std::nullopt;
      size_t got = stream.read(buffer, sizeof buffer);
      if (got == 0) return std::nullopt;
      data.append(buffer, got);
    }
    RecordedRequest request;
    std::string_view head(data.data(), headEnd);
    size_t lineEnd = head.find("\r\n");
    std::string_view requestLine = head.substr(0, lineEnd);
    size_t firstSpace = requestLine.find(' ');
    size_t secondSpace = requestLine.find(' ', firstSpace + 1);
    if (firstSpace == std::string_view::npos || secondSpace == std::string_view::npos)
      return std::nullopt;
    request.method = requestLine.substr(0, firstSpace);
    request.target = requestLine.substr(firstSpace + 1, secondSpace - firstSpace - 1);
    size_t contentLength = 0;
    while (lineEnd != std::string_view::npos && lineEnd < head.size()) {
      size_t start = lineEnd + 2;
      lineEnd = head.find("\r\n", start);
      std::string_view line = head.substr(
          start, lineEnd == std::string_view::npos ? std::string_view::npos : lineEnd - start);
      size_t colon = line.find(':');
      if (colon == std::string_view::npos) continue;
      std::string name(line.substr(0, colon));
      std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
      std::string_view value = line.substr(colon + 1);
      while (!value.empty() && value.front() == ' ') value.remove_prefix(1);
      if (name == "content-length") contentLength = std::stoul(std::string(value));
      request.headers.emplace_back(std::move(name), std::string(value));
    }
    if (contentLength > (64u << 20)) return std::nullopt;
    request.body = data.substr(headEnd + 4);
    while (request.body.size() < contentLength) {
      size_t got =
          stream.read(buffer, std::min(sizeof buffer, contentLength - request.body.size()));
      if (got == 0) return std::nullopt;
      request.body.append(buffer, got);
    }
    return request;
  }

  void serve(int fd) {
    Stream stream(fd, tls_, stoppingAtomic_);
    if (!stream.handshake()) return;
    std::optional<RecordedRequest> request = readRequest(stream);
    if (!request) return;
    {
      std::lock_guard lock(mutex_);
      requests_.push_back(*request);
    }
    ScriptedAnswer answer = script_(*request);
    {
      std::unique_lock lock(mutex_);
      if (answer.hold) wake_.wait(lock, [&] { return stopping_; });
      if (answer.delay.count() > 0) wake_.wait_for(lock, answer.delay, [&] { return stopping_; });
      if (stopping_ || answer.hangUp) return;
    }
    std::string text = "HTTP/1.1 " + std::to_string(answer.status) + " Scripted\r\n";
    for (const auto& [name, value] : answer.headers) text += name + ": " + value + "\r\n";
    text += "Content-Length: " + std::to_string(answer.body.size()) +
            "\r\nConnection: close\r\n\r\n" + answer.body;
    stream.write(text);
  }

  Script script_;
  SSL_CTX* tls_ = nullptr;
  int listener_ = -1;
  uint16_t port_ = 0;
  std::thread acceptor_;
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;                    // guarded by mutex_
  std::atomic<bool> stoppingAtomic_{false};  // the same, for the streams' loops
  std::vector<RecordedRequest> requests_;    // guarded by mutex_
  std::vector<std::thread> connections_;     // guarded by mutex_
};

// An HTTP Date header ("Sun, 06 Nov 1994 08:49:37 GMT") for this moment shifted by `offset`
// seconds; whole seconds, as servers send it.
inline std::string httpDate(double offset = 0) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto moment = static_cast<std::time_t>(
      std::chrono::duration_cast<std::chrono::duration<double>>(now).count() + offset);
  std::tm parts{};
  gmtime_r(&moment, &parts);
  char text[40];
  std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts);
  return text;
}

}  // namespace quorvane::testing

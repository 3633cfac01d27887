#pragma once

#include <openssl/ssl.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace quorvane::testing {

struct HttpResponse {
  int status = 0;
  std::map<std::string, std::string> headers;  // names in lower case
  std::string body;
  std::string header(const std::string& name) const {
    auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
  }
};

// A small HTTP/1.1 client of the tests' own, over a blocking loopback socket, with TLS when a CA
// file is given (the server's certificate must chain to it and name 127.0.0.1). Requests can be
// sent whole or byte by byte, so tests can play slow or misbehaving clients. Every read and write
// gives up after `timeout`.
class HttpConnection {
 public:
  HttpConnection(int port, const std::optional<std::filesystem::path>& caFile,
                 std::chrono::milliseconds timeout = std::chrono::seconds(10),
                 bool handshake = true);
  ~HttpConnection();
  HttpConnection(const HttpConnection&) = delete;
  HttpConnection& operator=(const HttpConnection&) = delete;

  // Writes bytes; false when the connection refused them (closed, reset, timed out).
  bool send(std::string_view bytes);
  // Reads one response; nothing when the connection ended or timed out first.
  std::optional<HttpResponse> readResponse();
  // A whole request with an optional bearer credential; nothing when no response came.
  std::optional<HttpResponse> request(const std::string& method, const std::string& target,
                                      const std::string& credential = "",
                                      const std::string& body = "",
                                      const std::string& extraHeaders = "");
  // Whether the server closes the connection within the time-out (reading and dropping data).
  bool closedByServer();

 private:
  // Reads more bytes into buffer_; false at the end or on a time-out.
  bool readMore();

  int fd_ = -1;
  SSL_CTX* context_ = nullptr;
  SSL* tls_ = nullptr;
  std::string buffer_;
};

// The text of a request with `body` and a Content-Length.
std::string requestText(const std::string& method, const std::string& target,
                        const std::string& credential, const std::string& body,
                        const std::string& extraHeaders = "");

}  // namespace quorvane::testing

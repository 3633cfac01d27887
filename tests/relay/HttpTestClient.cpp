#include "relay/HttpTestClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cctype>
#include <stdexcept>

namespace quorvane::testing {

HttpConnection::HttpConnection(int port, const std::optional<std::filesystem::path>& caFile,
                               std::chrono::milliseconds timeout, bool handshake) {
  fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  timeval limit{static_cast<time_t>(timeout.count() / 1000),
                static_cast<suseconds_t>(timeout.count() % 1000 * 1000)};
  ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  int one = 1;
  ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    throw std::runtime_error("cannot connect to the relay");
  if (!caFile || !handshake) return;
  context_ = SSL_CTX_new(TLS_client_method());
  SSL_CTX_set_verify(context_, SSL_VERIFY_PEER, nullptr);
  if (SSL_CTX_load_verify_locations(context_, caFile->c_str(), nullptr) != 1)
    throw std::runtime_error("cannot load the test CA");
  tls_ = SSL_new(context_);
  X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(tls_), "127.0.0.1");
  SSL_set_fd(tls_, fd_);
  if (SSL_connect(tls_) != 1) throw std::runtime_error("TLS handshake with the relay failed");
}

HttpConnection::~HttpConnection() {
  if (tls_) SSL_free(tls_);
  if (context_) SSL_CTX_free(context_);
  if (fd_ >= 0) ::close(fd_);
}

bool HttpConnection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t written = 0;
    if (tls_) {
      written = SSL_write(tls_, bytes.data(), static_cast<int>(bytes.size()));
    } else {
      written = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

bool HttpConnection::readMore() {
  char chunk[16384];
  ssize_t size = tls_ ? SSL_read(tls_, chunk, sizeof chunk) : ::recv(fd_, chunk, sizeof chunk, 0);
  if (size <= 0) return false;
  buffer_.append(chunk, static_cast<size_t>(size));
  return true;
}

std::optional<HttpResponse> HttpConnection::readResponse() {
  size_t end;
  while ((end = buffer_.find("\r\n\r\n")) == std::string::npos)
    if (!readMore()) return std::nullopt;
  const std::string head = buffer_.substr(0, end);
  buffer_.erase(0, end + 4);
  HttpResponse response;
  size_t lineEnd = head.find("\r\n");
  const std::string statusLine = head.substr(0, lineEnd);
  if (statusLine.size() < 12) return std::nullopt;
  response.status = std::atoi(statusLine.c_str() + 9);
  size_t at = lineEnd == std::string::npos ? head.size() : lineEnd + 2;
  while (at < head.size()) {
    size_t next = head.find("\r\n", at);
    if (next == std::string::npos) next = head.size();
    const std::string line = head.substr(at, next - at);
    at = next + 2;
    size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::string name = line.substr(0, colon);
    for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    size_t valueStart = line.find_first_not_of(' ', colon + 1);
    response.headers[name] = valueStart == std::string::npos ? "" : line.substr(valueStart);
  }
  const size_t length = std::stoul(
      response.header("content-length").empty() ? "0" : response.header("content-length"));
  while (buffer_.size() < length)
    if (!readMore()) return std::nullopt;
  response.body = buffer_.substr(0, length);
  buffer_.erase(0, length);
  return response;
}

std::optional<HttpResponse> HttpConnection::request(const std::string& method,
                                                    const std::string& target,
                                                    const std::string& credential,
                                                    const std::string& body,
                                                    const std::string& extraHeaders) {
  if (!send(requestText(method, target, credential, body, extraHeaders))) return std::nullopt;
  return readResponse();
}

bool HttpConnection::closedByServer() {
  // Bounded: each read waits at most the time-out, and a server that keeps sending is not one
  // that closed.
  for (int reads = 0; reads < 1000; ++reads) {
    char chunk[4096];
    ssize_t size = tls_ ? SSL_read(tls_, chunk, sizeof chunk) : ::recv(fd_, chunk, sizeof chunk, 0);
    if (size == 0) return true;
    if (size < 0) {
      if (!tls_) return errno != EAGAIN && errno != EWOULDBLOCK;
      int error = SSL_get_error(tls_, static_cast<int>(size));
      if (error == SSL_ERROR_ZERO_RETURN) return true;
      return error == SSL_ERROR_SYSCALL ? (errno != EAGAIN && errno != EWOULDBLOCK) : true;
    }
  }
  return false;
}

std::string requestText(const std::string& method, const std::string& target,
                        const std::string& credential, const std::string& body,
                        const std::string& extraHeaders) {
  std::string text = method + " " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n";
  if (!credential.empty()) text += "Authorization: Bearer " + credential + "\r\n";
  if (!body.empty() || method == "POST" || method == "DELETE")
    text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  text += extraHeaders + "\r\n" + body;
  return text;
}

}  // namespace quorvane::testing

// The only file that includes Boost.Beast and Asio: they are slow to compile, so everything that
// can live without them (routing, answers, stores) lives in the RelayServer library.
#include "relay/RelayHttpServer.h"

#include <openssl/ssl.h>

#include <atomic>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>
#include <unordered_map>

#include "Base/Mutex.h"
#include "RelayServer/RelayServerError.h"

namespace quorvane::relay {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
namespace ssl = net::ssl;
using tcp = net::ip::tcp;
using ErrorCode = beast::error_code;

// After a refused upload (413) the rest of what the client sends is read and dropped for a while,
// so that closing the socket does not reset the connection before the client has read the answer.
constexpr double kDrainSeconds = 2;
constexpr size_t kDrainBytes = 8 * 1024 * 1024;
// At shutdown, connections get this long to finish their answers.
constexpr double kShutdownGraceSeconds = 5;
constexpr int kListenBacklog = 4096;

std::chrono::steady_clock::duration span(double seconds) {
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(seconds));
}

Date currentDate() {
  auto since = std::chrono::system_clock::now().time_since_epoch();
  return Date{std::chrono::duration<double>(since).count()};
}

// The "Date" header's form (RFC 9110 IMF-fixdate), "Wed, 25 Nov 2026 08:27:58 GMT".
std::string httpDate() {
  std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  char text[40];
  std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", kDays[parts.tm_wday],
                parts.tm_mday, kMonths[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour,
                parts.tm_min, parts.tm_sec);
  return text;
}

// Whether a read error is the client's malformed request (answered 400) rather than a closed or
// timed-out connection.
bool isMalformedRequest(const ErrorCode& error) {
  if (error.category() != http::make_error_code(http::error::bad_method).category()) return false;
  return error != http::error::end_of_stream && error != http::error::partial_message &&
         error != http::error::need_more && error != http::error::buffer_overflow;
}

// The last address of an "X-Forwarded-For" value (the one the nearest proxy saw), when it is an
// IPv4 or IPv6 address.
std::optional<std::string> forwardedAddress(beast::string_view header) {
  std::string_view value(header.data(), header.size());
  if (size_t comma = value.rfind(','); comma != std::string_view::npos)
    value.remove_prefix(comma + 1);
  while (!value.empty() && value.front() == ' ') value.remove_prefix(1);
  while (!value.empty() && value.back() == ' ') value.remove_suffix(1);
  ErrorCode error;
  auto address = net::ip::make_address(std::string(value), error);
  if (error) return std::nullopt;
  return address.to_string();
}

class Session {
 public:
  virtual ~Session() = default;
  // Closes the connection if it waits for a request (at shutdown).
  virtual void closeIfIdle() = 0;
};

// What the sessions share: the service and the list of live sessions.
struct ServerState {
  ServerState(RelayService& service_, WaitingFetches& waiting_)
      : service(service_), waiting(waiting_) {}

  RelayService& service;
  WaitingFetches& waiting;
  std::atomic<bool> stopping{false};
  double headerTimeoutSeconds = kHeaderReadTimeoutSeconds;
  bool trustForwardedFor = false;
  // Called when the last session ends after shutdown began.
  std::function<void()> lastSessionEnded;

  Mutex mutex;
  uint64_t nextSession GUARDED_BY(mutex) = 1;
  std::unordered_map<uint64_t, std::weak_ptr<Session>> sessions GUARDED_BY(mutex);

  uint64_t enrol(std::weak_ptr<Session> session) {
    MutexLock lock(mutex);
    uint64_t id = nextSession++;
    sessions.emplace(id, std::move(session));
    return id;
  }
  void leave(uint64_t id) {
    bool last = false;
    {
      MutexLock lock(mutex);
      sessions.erase(id);
      last = sessions.empty() && stopping;
    }
    if (last && lastSessionEnded) lastSessionEnded();
  }
  std::vector<std::shared_ptr<Session>> liveSessions() {
    MutexLock lock(mutex);
    std::vector<std::shared_ptr<Session>> live;
    for (auto& [id, weak] : sessions)
      if (auto session = weak.lock()) live.push_back(std::move(session));
    return live;
  }
  size_t sessionCount() {
    MutexLock lock(mutex);
    return sessions.size();
  }
};

// One client connection: reads requests one after another, answers each (holding a waiting
// fetch until a message or the end of its wait), and closes on errors, time-outs and refusals
// of oversized requests. Every handler runs on the connection's strand.
template <class Stream>
class Connection final : public Session, public std::enable_shared_from_this<Connection<Stream>> {
 public:
  static constexpr bool kTLS = !std::is_same_v<Stream, beast::tcp_stream>;

  template <class... Context>
  Connection(ServerState& state, tcp::socket&& socket, Context&... context)
      : stream_(std::move(socket), context...), waitTimer_(stream_.get_executor()), state_(state) {
    ErrorCode error;
    auto endpoint = beast::get_lowest_layer(stream_).socket().remote_endpoint(error);
    if (!error) clientAddress_ = endpoint.address().to_string();
  }
  ~Connection() override { state_.leave(id_); }

  void start() {
    id_ = state_.enrol(this->weak_from_this());
    net::dispatch(stream_.get_executor(), [self = this->shared_from_this()] { self->begin(); });
  }

  void closeIfIdle() override {
    net::post(stream_.get_executor(), [self = this->shared_from_this()] {
      if (self->idle_) self->close();
    });
  }

 private:
  auto& lowest() { return beast::get_lowest_layer(stream_); }

  void begin() {
    if constexpr (kTLS) {
      idle_ = true;
      lowest().expires_after(span(state_.headerTimeoutSeconds));
      stream_.async_handshake(ssl::stream_base::server,
                              [self = this->shared_from_this()](ErrorCode error) {
                                self->idle_ = false;
                                if (error) return self->close();
                                self->readHeader();
                              });
    } else {
      readHeader();
    }
  }

  void readHeader() {
    if (state_.stopping) return close();
    parser_.emplace();
    parser_->header_limit(static_cast<uint32_t>(kMaxHeaderBytes));
    parser_->body_limit(kMaxBodyBytes);
    idle_ = true;
    method_ = "-";
    lowest().expires_after(span(state_.headerTimeoutSeconds));
    http::async_read_header(
        stream_, buffer_, *parser_,
        [self = this->shared_from_this()](ErrorCode error, size_t) { self->onHeader(error); });
  }

  void onHeader(ErrorCode error) {
    idle_ = false;
    started_ = std::chrono::steady_clock::now();
    if (parser_->is_header_done()) method_ = std::string(parser_->get().method_string());
    if (error == http::error::header_limit)
      return refuse(431, "the request headers are larger than 16 KiB");
    if (error == http::error::body_limit) return refuse(413, "the body is larger than 1 MiB");
    if (isMalformedRequest(error)) return refuse(400, "malformed request");
    if (error) return close();
    auto& request = parser_->get();
    keepAlive_ = request.keep_alive();
    if (beast::iequals(request[http::field::expect], "100-continue")) {
      // The client waits for this before it sends the body.
      continueResponse_.emplace(http::status::continue_, request.version());
      lowest().expires_after(span(kWriteTimeoutSeconds));
      http::async_write(stream_, *continueResponse_,
                        [self = this->shared_from_this()](ErrorCode writeError, size_t) {
                          self->continueResponse_.reset();
                          if (writeError) return self->close();
                          self->readBody();
                        });
      return;
    }
    readBody();
  }

  void readBody() {
    lowest().expires_after(span(kBodyReadTimeoutSeconds));
    http::async_read(
        stream_, buffer_, *parser_,
        [self = this->shared_from_this()](ErrorCode error, size_t) { self->onBody(error); });
  }

  void onBody(ErrorCode error) {
    if (error == http::error::body_limit) return refuse(413, "the body is larger than 1 MiB");
    if (isMalformedRequest(error)) return refuse(400, "malformed request");
    if (error) return close();
    auto& message = parser_->get();
    RelayRequest request;
    request.method = method_;
    request.target = std::string(message.target());
    auto authorization = message.find(http::field::authorization);
    if (authorization != message.end()) {
      request.authorization.emplace();
      auto value = authorization->value();
      request.authorization->append(std::string_view(value.data(), value.size()));
    }
    request.body = std::move(message.body());
    request.clientAddress = clientAddress_;
    if (state_.trustForwardedFor) {
      if (auto forwarded = forwardedAddress(message["X-Forwarded-For"]))
        request.clientAddress = std::move(*forwarded);
    }
    version_ = message.version();
    parser_.reset();
    RelayAnswer answer = state_.service.handle(request, currentDate());
    if (answer.wait) return beginWait(std::move(answer));
    write(std::move(answer));
  }

  // A waiting fetch: registered with the waiting fetches, then the store is asked once more so
  // that a message that arrived in between is not missed.
  void beginWait(RelayAnswer answer) {
    waiting_ = true;
    pending_ = *answer.wait;
    route_ = answer.route;
    waitTimer_.expires_after(span(state_.service.limits().maxWaitSeconds));
    waitTimer_.async_wait([self = this->shared_from_this()](ErrorCode error) {
      if (!error) self->endWait();
    });
    armWait();
  }

  void armWait() {
    auto self = this->shared_from_this();
    ticket_ = state_.waiting.add(pending_.mailboxId, [self] {
      net::post(self->stream_.get_executor(), [self] { self->onWake(); });
    });
    RelayAnswer now = state_.service.fetchNow(pending_);
    if (!now.wait || state_.stopping) {
      state_.waiting.remove(ticket_);
      finishWait(std::move(now));
    }
  }

  void onWake() {
    if (!waiting_) return;
    RelayAnswer now = state_.service.fetchNow(pending_);
    if (now.wait && !state_.stopping) return armWait();
    finishWait(std::move(now));
  }

  void endWait() {
    if (!waiting_) return;
    state_.waiting.remove(ticket_);
    finishWait(state_.service.fetchNow(pending_));
  }

  void finishWait(RelayAnswer answer) {
    waiting_ = false;
    waitTimer_.cancel();
    answer.wait.reset();
    answer.route = route_;
    write(std::move(answer));
  }

  // Answers a request that is refused before it was read whole, and closes afterwards.
  void refuse(int status, const std::string& text) {
    closeAfterAnswer_ = true;
    RelayAnswer answer = errorAnswer(status, text);
    answer.route = "other";
    write(std::move(answer));
  }

  void write(RelayAnswer answer) {
    response_.emplace();
    auto& response = *response_;
    response.version(version_);
    response.result(static_cast<unsigned>(answer.status));
    response.set(http::field::server, "quorvane-relay");
    response.set(http::field::date, httpDate());
    if (!answer.contentType.empty()) response.set(http::field::content_type, answer.contentType);
    for (const auto& [name, value] : answer.headers) response.set(name, value);
    response.body() = std::move(answer.body);
    response.keep_alive(keepAlive_ && !closeAfterAnswer_ && !state_.stopping);
    response.prepare_payload();
    status_ = answer.status;
    route_ = answer.route;
    wipeBody_ = answer.bodyHoldsSecrets;
    logNote_ = std::move(answer.logNote);
    lowest().expires_after(span(kWriteTimeoutSeconds));
    http::async_write(
        stream_, response,
        [self = this->shared_from_this()](ErrorCode error, size_t) { self->onWrite(error); });
  }

  void onWrite(ErrorCode error) {
    logRequest();
    const bool keepAlive = response_->keep_alive();
    if (wipeBody_) secureWipe(response_->body().data(), response_->body().size());
    response_.reset();
    if (error) return close();
    if (closeAfterAnswer_) return drain();
    if (!keepAlive) return close();
    readHeader();
  }

  void logRequest() {
    const double milliseconds =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started_)
            .count();
    state_.service.countRequest(method_, route_, status_);
    // One write per line, so that lines of concurrent requests do not interleave.
    std::string line = method_ + " " + route_ + " " + std::to_string(status_) + " ";
    char duration[32];
    std::snprintf(duration, sizeof duration, "%.1f ms", milliseconds);
    line += duration;
    if (!logNote_.empty()) line += " (" + logNote_ + ")";
    line += "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
  }

  // Reads and drops what the client still sends for a while, then closes.
  void drain() {
    if constexpr (!kTLS) {
      ErrorCode ignored;
      lowest().socket().shutdown(tcp::socket::shutdown_send, ignored);
    }
    drainBuffer_ = std::make_unique<std::array<char, 16384>>();
    lowest().expires_after(span(kDrainSeconds));
    drainMore();
  }

  void drainMore() {
    stream_.async_read_some(net::buffer(*drainBuffer_),
                            [self = this->shared_from_this()](ErrorCode error, size_t size) {
                              self->drained_ += size;
                              if (error || self->drained_ > kDrainBytes) return self->close();
                              self->drainMore();
                            });
  }

  void close() {
    idle_ = false;
    if (waiting_) {
      state_.waiting.remove(ticket_);
      waiting_ = false;
    }
    waitTimer_.cancel();
    ErrorCode ignored;
    lowest().socket().shutdown(tcp::socket::shutdown_both, ignored);
    lowest().close();
  }

  Stream stream_;
  beast::flat_buffer buffer_;
  std::optional<http::request_parser<http::vector_body<uint8_t>>> parser_;
  std::optional<http::response<http::empty_body>> continueResponse_;
  std::optional<http::response<http::string_body>> response_;
  net::steady_timer waitTimer_;
  std::unique_ptr<std::array<char, 16384>> drainBuffer_;
  ServerState& state_;
  uint64_t id_ = 0;
  std::string clientAddress_;

  // The request being served.
  std::chrono::steady_clock::time_point started_;
  std::string method_ = "-";
  std::string route_ = "other";
  unsigned version_ = 11;
  int status_ = 0;
  bool keepAlive_ = true;
  bool closeAfterAnswer_ = false;
  bool wipeBody_ = false;
  std::string logNote_;
  size_t drained_ = 0;

  // Whether the connection waits for a request (or a TLS handshake) and may be closed at shutdown.
  bool idle_ = false;
  // The waiting fetch, while `waiting_`.
  bool waiting_ = false;
  PendingFetch pending_;
  WaitingFetches::Ticket ticket_ = 0;
};

std::string urlHost(const std::string& host) {
  return host.find(':') != std::string::npos ? "[" + host + "]" : host;
}

}  // namespace

struct RelayHttpServer::Impl {
  Impl(RelayService& service, WaitingFetches& waiting, const HttpServerOptions& options_)
      : state(service, waiting),
        options(options_),
        io(options_.threads),
        control(net::make_strand(io)),
        acceptor(control),
        tls(ssl::context::tls_server),
        expiryTimer(control),
        shutdownTimer(control),
        signals(control, SIGTERM, SIGINT) {}

  void listen() {
    ErrorCode error;
    tcp::resolver resolver(io);
    auto endpoints =
        resolver.resolve(options.host, std::to_string(options.port),
                         tcp::resolver::passive | tcp::resolver::numeric_service, error);
    if (error || endpoints.empty())
      throw RelayServerError(RelayServerErrorKind::listen,
                             "cannot resolve " + options.host + ": " + error.message());
    tcp::endpoint endpoint = endpoints.begin()->endpoint();
    auto fail = [&](const char* step) {
      throw RelayServerError(RelayServerErrorKind::listen, std::string("cannot listen on ") +
                                                               urlHost(options.host) + ":" +
                                                               std::to_string(options.port) + " (" +
                                                               step + "): " + error.message());
    };
    if (acceptor.open(endpoint.protocol(), error)) fail("open");
    if (acceptor.set_option(net::socket_base::reuse_address(true), error)) fail("reuse address");
    if (acceptor.bind(endpoint, error)) fail("bind");
    if (acceptor.listen(kListenBacklog, error)) fail("listen");
    port = acceptor.local_endpoint().port();
  }

  void loadTLS() {
    if (!options.tlsCertificate) return;
    ErrorCode error;
    tls.set_options(ssl::context::default_workarounds | ssl::context::no_sslv2 |
                    ssl::context::no_sslv3 | ssl::context::no_tlsv1 | ssl::context::no_tlsv1_1);
    // An idle TLS connection (a waiting fetch) then holds no read and write buffers.
    SSL_CTX_set_mode(tls.native_handle(), SSL_MODE_RELEASE_BUFFERS);
    // No server-side session cache: it would keep a session per connection for its lifetime.
    // Clients resume with stateless tickets instead, which cost the server nothing to keep.
    SSL_CTX_set_session_cache_mode(tls.native_handle(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(tls.native_handle(), 1);
    if (tls.use_certificate_chain_file(options.tlsCertificate->string(), error))
      throw RelayServerError(RelayServerErrorKind::tls, "cannot load the certificate " +
                                                            options.tlsCertificate->string() +
                                                            ": " + error.message());
    if (tls.use_private_key_file(options.tlsKey->string(), ssl::context::pem, error))
      throw RelayServerError(
          RelayServerErrorKind::tls,
          "cannot load the private key " + options.tlsKey->string() + ": " + error.message());
    usesTLS = true;
  }

  void accept() {
    acceptor.async_accept(net::make_strand(io), [this](ErrorCode error, tcp::socket socket) {
      if (state.stopping) return;
      if (error) {
        // Out of descriptors or a connection that was reset while queued: try again shortly.
        acceptRetry = std::make_unique<net::steady_timer>(control, std::chrono::milliseconds(50));
        acceptRetry->async_wait([this](ErrorCode) { accept(); });
        return;
      }
      ErrorCode ignored;
      socket.set_option(tcp::no_delay(true), ignored);
      if (usesTLS)
        std::make_shared<Connection<beast::ssl_stream<beast::tcp_stream>>>(state, std::move(socket),
                                                                           tls)
            ->start();
      else
        std::make_shared<Connection<beast::tcp_stream>>(state, std::move(socket))->start();
      accept();
    });
  }

  void sweepExpired() {
    expiryTimer.expires_after(span(options.expirySweepSeconds));
    expiryTimer.async_wait([this](ErrorCode error) {
      if (error) return;
      try {
        state.service.expire(currentDate());
      } catch (const std::exception& failure) {
        std::fprintf(stderr, "quorvane-relay: expiry failed: %s\n", failure.what());
      }
      sweepExpired();
    });
  }

  void stop() {
    state.stopping = true;
    ErrorCode ignored;
    acceptor.close(ignored);
    expiryTimer.cancel();
    if (acceptRetry) acceptRetry->cancel();
    state.waiting.wakeAll();
    for (auto& session : state.liveSessions()) session->closeIfIdle();
    if (state.sessionCount() == 0) io.stop();
    shutdownTimer.expires_after(span(kShutdownGraceSeconds));
    shutdownTimer.async_wait([this](ErrorCode error) {
      if (!error) io.stop();
    });
  }

  ServerState state;
  HttpServerOptions options;
  net::io_context io;
  // The listener, the timers and the signals are used from this strand only.
  net::strand<net::io_context::executor_type> control;
  tcp::acceptor acceptor;
  ssl::context tls;
  bool usesTLS = false;
  uint16_t port = 0;
  net::steady_timer expiryTimer;
  net::steady_timer shutdownTimer;
  std::unique_ptr<net::steady_timer> acceptRetry;
  net::signal_set signals;
};

RelayHttpServer::RelayHttpServer(RelayService& service, WaitingFetches& waiting,
                                 const HttpServerOptions& options)
    : impl_(std::make_unique<Impl>(service, waiting, options)) {
  impl_->state.headerTimeoutSeconds = options.headerTimeoutSeconds;
  impl_->state.trustForwardedFor = options.trustForwardedFor;
  impl_->loadTLS();
  impl_->listen();
}

RelayHttpServer::~RelayHttpServer() = default;

std::string RelayHttpServer::url() const {
  return std::string(impl_->usesTLS ? "https://" : "http://") + urlHost(impl_->options.host) + ":" +
         std::to_string(impl_->port) + "/";
}

void RelayHttpServer::run() {
  Impl& impl = *impl_;
  impl.state.lastSessionEnded = [&impl] { impl.io.stop(); };
  impl.signals.async_wait([&impl](ErrorCode error, int) {
    if (!error) impl.stop();
  });
  net::post(impl.control, [&impl] {
    impl.accept();
    impl.sweepExpired();
  });
  std::vector<std::thread> threads;
  for (int i = 1; i < impl.options.threads; ++i) threads.emplace_back([&impl] { impl.io.run(); });
  impl.io.run();
  for (std::thread& thread : threads) thread.join();
}

}  // namespace quorvane::relay

// A load client for quorvane-relay over TLS (see scripts/relay-bench.sh). It makes one mailbox per
// waiting fetch, opens that many connections each holding a waiting fetch, and then sends one
// message to every mailbox at a fixed rate through a pool of sending connections. For each
// message it measures the delivery latency: from the moment the send starts to the moment the
// waiting fetch's answer arrives. It reports the latency distribution, how many fetches were not
// woken by their message (answered empty, failed, or never answered), and, given the relay's pid,
// the relay's memory per waiting fetch (resident memory with all fetches waiting, minus before the
// connections were opened, divided by their number).
//
//   relay_load_client --ca-file CA.pem --wait-url https://127.0.0.1:PORT/ [--wait-url ...]
//                     [--send-url URL ...] [--fetches 10000] [--rate 1000] [--body 1500]
//                     [--relay-pid PID ...]
//
// Waiting fetches are spread over the --wait-url relays, sends over the --send-url relays (the
// waiting ones when none is given). Every phase has a time limit; the client stops by itself.
#include <sys/resource.h>

#include <algorithm>
#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
namespace ssl = net::ssl;
using tcp = net::ip::tcp;
using Clock = std::chrono::steady_clock;
using ErrorCode = beast::error_code;

struct Endpoint {
  std::string host;
  std::string port;
};

Endpoint parseURL(const std::string& url) {
  std::string rest = url.substr(url.find("://") + 3);
  rest = rest.substr(0, rest.find('/'));
  size_t colon = rest.rfind(':');
  return {rest.substr(0, colon), rest.substr(colon + 1)};
}

struct Options {
  std::string caFile;
  std::vector<Endpoint> waitRelays, sendRelays;
  std::vector<int> relayPids;
  int fetches = 10000;
  double rate = 1000;
  size_t bodyBytes = 1500;
  int senders = 64;
  int creators = 16;
  int openAtOnce = 256;
};

long residentKiB(int pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  return 0;
}

long relaysResidentKiB(const Options& options) {
  long total = 0;
  for (int pid : options.relayPids) total += residentKiB(pid);
  return total;
}

struct Mailbox {
  std::string id, secret, sendToken;
};

// What the run shares; everything runs on one thread of one io_context.
struct Run {
  explicit Run(const Options& options_) : options(options_), tls(ssl::context::tls_client) {
    tls.load_verify_file(options.caFile);
    tls.set_verify_mode(ssl::verify_peer);
  }
  const Options& options;
  net::io_context io;
  ssl::context tls;
  std::vector<Mailbox> mailboxes;
  std::vector<Clock::time_point> sentAt, deliveredAt;
  std::vector<bool> delivered;
  int waiting = 0, openFailures = 0, emptyAnswers = 0, fetchFailures = 0, sendFailures = 0;
  int sent = 0, deliveredCount = 0;
  std::string body;
};

using Stream = beast::ssl_stream<beast::tcp_stream>;

// A TLS connection to one relay that sends requests one after another.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  using Done = std::function<void(ErrorCode, http::response<http::string_body>&)>;

  Connection(Run& run, const Endpoint& relay)
      : run_(run), relay_(relay), stream_(run.io, run.tls) {}

  void open(std::function<void(ErrorCode)> done) {
    tcp::resolver resolver(run_.io);
    ErrorCode error;
    auto endpoints = resolver.resolve(relay_.host, relay_.port, error);
    if (error) return done(error);
    beast::get_lowest_layer(stream_).expires_after(std::chrono::seconds(60));
    beast::get_lowest_layer(stream_).async_connect(
        endpoints, [self = shared_from_this(), done](ErrorCode connectError, auto) {
          if (connectError) return done(connectError);
          beast::get_lowest_layer(self->stream_).socket().set_option(tcp::no_delay(true));
          self->stream_.async_handshake(ssl::stream_base::client, done);
        });
  }

  void request(http::verb method, const std::string& target, const std::string& credential,
               const std::string& body, Done done) {
    request_ = {};
    request_.method(method);
    request_.target(target);
    request_.version(11);
    request_.set(http::field::host, relay_.host);
    if (!credential.empty()) request_.set(http::field::authorization, "Bearer " + credential);
    request_.body() = body;
    if (method == http::verb::post) request_.prepare_payload();
    response_ = {};
    beast::get_lowest_layer(stream_).expires_after(std::chrono::seconds(120));
    http::async_write(
        stream_, request_, [self = shared_from_this(), done](ErrorCode error, size_t) {
          if (error) return done(error, self->response_);
          http::async_read(
              self->stream_, self->buffer_, self->response_,
              [self, done](ErrorCode readError, size_t) { done(readError, self->response_); });
        });
  }

 private:
  Run& run_;
  Endpoint relay_;
  Stream stream_;
  beast::flat_buffer buffer_;
  http::request<http::string_body> request_;
  http::response<http::string_body> response_;
};

// Phase 1: mailboxes, made over a few kept-alive connections.
void createMailboxes(Run& run) {
  int next = 0;
  std::function<void(std::shared_ptr<Connection>)> createNext = [&](auto connection) {
    if (next >= run.options.fetches) return;
    const int index = next++;
    connection->request(http::verb::post, "/v1/mailbox", "", "",
                        [&, index, connection](ErrorCode error, auto& response) {
                          if (error || response.result_int() != 201) {
                            std::fprintf(stderr, "mailbox creation failed: %s %d\n",
                                         error.message().c_str(), response.result_int());
                            run.io.stop();
                            return;
                          }
                          auto json = nlohmann::json::parse(response.body());
                          run.mailboxes[index] = {json["id"], json["secret"], json["send_token"]};
                          createNext(connection);
                        });
  };
  for (int i = 0; i < run.options.creators; ++i) {
    auto connection = std::make_shared<Connection>(run, run.options.sendRelays[0]);
    connection->open([&, connection](ErrorCode error) {
      if (error) {
        std::fprintf(stderr, "cannot connect: %s\n", error.message().c_str());
        run.io.stop();
        return;
      }
      createNext(connection);
    });
  }
  run.io.run();
  run.io.restart();
}

// Phase 2: a connection per mailbox, each with a waiting fetch. `openAtOnce` handshakes at a time.
void openWaitingFetches(Run& run, std::vector<std::shared_ptr<Connection>>& connections) {
  const int total = run.options.fetches;
  connections.resize(static_cast<size_t>(total));
  int next = 0, settled = 0;
  std::function<void()> openNext = [&] {
    if (next >= total) return;
    const int index = next++;
    const Endpoint& relay =
        run.options.waitRelays[static_cast<size_t>(index) % run.options.waitRelays.size()];
    auto connection = std::make_shared<Connection>(run, relay);
    connections[static_cast<size_t>(index)] = connection;
    connection->open([&, index, connection](ErrorCode error) {
      ++settled;
      if (error) {
        ++run.openFailures;
      } else {
        ++run.waiting;
        const Mailbox& box = run.mailboxes[static_cast<size_t>(index)];
        connection->request(http::verb::get, "/v1/mailbox/" + box.id + "/messages?after=0&wait=1",
                            box.secret, "", [&, index](ErrorCode fetchError, auto& response) {
                              const auto now = Clock::now();
                              if (fetchError || response.result_int() != 200) {
                                ++run.fetchFailures;
                              } else if (response.body() == R"({"messages":[]})") {
                                ++run.emptyAnswers;
                              } else if (!run.delivered[static_cast<size_t>(index)]) {
                                run.delivered[static_cast<size_t>(index)] = true;
                                run.deliveredAt[static_cast<size_t>(index)] = now;
                                ++run.deliveredCount;
                              }
                            });
      }
      if (settled == total) {
        // A second more for the last requests to reach the relays.
        auto pause = std::make_shared<net::steady_timer>(run.io, std::chrono::seconds(1));
        pause->async_wait([&run, pause](ErrorCode) { run.io.stop(); });
        return;
      }
      openNext();
    });
  };
  for (int i = 0; i < run.options.openAtOnce; ++i) openNext();
  run.io.run();
  run.io.restart();
}

// Phase 3: one message per mailbox at the given rate, spread over the sending connections; then
// waits (at most 60 s) for the deliveries.
void sendMessages(Run& run) {
  const int total = run.options.fetches;
  std::vector<std::shared_ptr<Connection>> senders;
  std::vector<std::deque<int>> queues(static_cast<size_t>(run.options.senders));
  std::vector<bool> busy(static_cast<size_t>(run.options.senders), false);
  int opened = 0;
  for (int i = 0; i < run.options.senders; ++i) {
    auto connection = std::make_shared<Connection>(
        run, run.options.sendRelays[static_cast<size_t>(i) % run.options.sendRelays.size()]);
    senders.push_back(connection);
    connection->open([&](ErrorCode error) {
      if (error) std::fprintf(stderr, "sender cannot connect: %s\n", error.message().c_str());
      if (++opened == run.options.senders) run.io.stop();
    });
  }
  run.io.run();
  run.io.restart();

  std::function<void(size_t)> pump = [&](size_t sender) {
    if (busy[sender] || queues[sender].empty()) return;
    const int index = queues[sender].front();
    queues[sender].pop_front();
    busy[sender] = true;
    const Mailbox& box = run.mailboxes[static_cast<size_t>(index)];
    run.sentAt[static_cast<size_t>(index)] = Clock::now();
    senders[sender]->request(http::verb::post, "/v1/mailbox/" + box.id + "/messages", box.sendToken,
                             run.body, [&, sender](ErrorCode error, auto& response) {
                               if (error || response.result_int() != 202) ++run.sendFailures;
                               busy[sender] = false;
                               pump(sender);
                             });
  };

  const auto start = Clock::now();
  net::steady_timer ticker(run.io);
  int scheduled = 0;
  std::function<void()> tick = [&] {
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    const int due = std::min(total, static_cast<int>(elapsed * run.options.rate) + 1);
    for (; scheduled < due; ++scheduled) {
      const size_t sender = static_cast<size_t>(scheduled) % senders.size();
      queues[sender].push_back(scheduled);
      pump(sender);
    }
    const bool done = scheduled == total &&
                      run.deliveredCount + run.fetchFailures + run.emptyAnswers >= run.waiting;
    if (done || elapsed > total / run.options.rate + 60) return run.io.stop();
    ticker.expires_after(std::chrono::milliseconds(1));
    ticker.async_wait([&](ErrorCode) { tick(); });
  };
  tick();
  run.io.run();
  run.io.restart();
  run.sent = scheduled;
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  std::printf("sent %d messages in %.2f s (%.0f/s), %d send failures\n", scheduled, seconds,
              scheduled / seconds, run.sendFailures);
}

double percentile(std::vector<double>& sorted, double fraction) {
  if (sorted.empty()) return 0;
  size_t index = static_cast<size_t>(fraction * static_cast<double>(sorted.size() - 1) + 0.5);
  return sorted[std::min(index, sorted.size() - 1)];
}

void raiseOpenFileLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string name = argv[i], value = argv[i + 1];
    if (name == "--ca-file")
      options.caFile = value;
    else if (name == "--wait-url")
      options.waitRelays.push_back(parseURL(value));
    else if (name == "--send-url")
      options.sendRelays.push_back(parseURL(value));
    else if (name == "--relay-pid")
      options.relayPids.push_back(std::stoi(value));
    else if (name == "--fetches")
      options.fetches = std::stoi(value);
    else if (name == "--rate")
      options.rate = std::stod(value);
    else if (name == "--body")
      options.bodyBytes = std::stoul(value);
    else if (name == "--senders")
      options.senders = std::stoi(value);
    else {
      std::fprintf(stderr, "unknown option %s\n", name.c_str());
      return 2;
    }
  }
  if (options.caFile.empty() || options.waitRelays.empty() || options.fetches < 1 ||
      options.rate <= 0 || options.bodyBytes < 1) {
    std::fprintf(stderr,
                 "usage: relay_load_client --ca-file CA.pem --wait-url URL [--wait-url URL...] "
                 "[--send-url URL...] [--fetches N] [--rate PER_SECOND] [--body BYTES] "
                 "[--relay-pid PID...]\n");
    return 2;
  }
  if (options.sendRelays.empty()) options.sendRelays = options.waitRelays;
  raiseOpenFileLimit();

  Run run(options);
  const size_t total = static_cast<size_t>(options.fetches);
  run.mailboxes.resize(total);
  run.sentAt.resize(total);
  run.deliveredAt.resize(total);
  run.delivered.assign(total, false);
  run.body = std::string(options.bodyBytes, 'q');
  run.body[0] = '\x01';

  createMailboxes(run);
  const long before = relaysResidentKiB(options);
  std::vector<std::shared_ptr<Connection>> waiters;
  const auto openStart = Clock::now();
  openWaitingFetches(run, waiters);
  const long after = relaysResidentKiB(options);
  std::printf("%d waiting fetches open in %.1f s (%d failed to open)\n", run.waiting,
              std::chrono::duration<double>(Clock::now() - openStart).count(), run.openFailures);
  if (!options.relayPids.empty() && run.waiting > 0)
    std::printf(
        "relay memory: %ld KiB before, %ld KiB with the fetches waiting: %.1f KiB per "
        "waiting fetch\n",
        before, after, static_cast<double>(after - before) / run.waiting);

  sendMessages(run);
  std::vector<double> latencies;
  for (size_t i = 0; i < total; ++i)
    if (run.delivered[i])
      latencies.push_back(
          std::chrono::duration<double, std::milli>(run.deliveredAt[i] - run.sentAt[i]).count());
  std::sort(latencies.begin(), latencies.end());
  const int lost = run.waiting - run.deliveredCount;
  std::printf("delivered %d of %d (%d not delivered: %d answered empty, %d failed)\n",
              run.deliveredCount, run.waiting, lost, run.emptyAnswers, run.fetchFailures);
  std::printf("delivery latency ms: p50 %.2f  p90 %.2f  p99 %.2f  max %.2f\n",
              percentile(latencies, 0.5), percentile(latencies, 0.9), percentile(latencies, 0.99),
              latencies.empty() ? 0.0 : latencies.back());
  return lost == 0 && run.sendFailures == 0 ? 0 : 1;
}

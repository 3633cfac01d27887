#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "RelayServer/RedisMailboxStore.h"
#include "RelayServer/RelayServerError.h"
#include "RelayServer/SQLiteMailboxStore.h"
#include "relay/RelayHttpServer.h"

namespace {

using namespace quorvane::relay;

// $XDG_STATE_HOME/quorvane-relay/relay.sqlite, with ~/.local/state when XDG_STATE_HOME is unset
// or not absolute.
std::filesystem::path defaultDatabase() {
  const char* state = std::getenv("XDG_STATE_HOME");
  std::filesystem::path folder;
  if (state && state[0] == '/') {
    folder = state;
  } else {
    const char* home = std::getenv("HOME");
    if (!home || home[0] != '/')
      throw RelayServerError(RelayServerErrorKind::settings,
                             "no home folder (HOME) for the default database; give --db PATH");
    folder = std::filesystem::path(home) / ".local" / "state";
  }
  return folder / "quorvane-relay" / "relay.sqlite";
}

// HOST:PORT, where HOST may be a bracketed IPv6 address ("[::1]:8443").
HttpServerOptions listenAddress(const std::string& text) {
  HttpServerOptions options;
  size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon + 1 == text.size())
    throw RelayServerError(RelayServerErrorKind::settings,
                           "--listen needs HOST:PORT, for example 127.0.0.1:8443");
  std::string host = text.substr(0, colon);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']')
    host = host.substr(1, host.size() - 2);
  const std::string port = text.substr(colon + 1);
  char* end = nullptr;
  long number = std::strtol(port.c_str(), &end, 10);
  if (host.empty() || *end != '\0' || number < 0 || number > 65535)
    throw RelayServerError(RelayServerErrorKind::settings,
                           "--listen needs HOST:PORT with a port from 0 to 65535, not " + text);
  options.host = host;
  options.port = static_cast<uint16_t>(number);
  return options;
}

// Thousands of waiting fetches need as many descriptors: the soft limit is raised to the hard one.
void raiseOpenFileLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
  limit.rlim_cur = limit.rlim_max;
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
    std::fprintf(stderr, "quorvane-relay: cannot raise the open-file limit\n");
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "quorvane-relay: the mailbox relay that Quorvane and its paired devices talk through.\n"
      "Keeps mailboxes of sealed messages that only their owners can read, and answers the\n"
      "HTTP API under /v1/mailbox, GET /healthz and GET /metrics. Runs in the foreground;\n"
      "SIGTERM answers waiting fetches and stops it. One log line per request on stderr."};
  app.set_version_flag("--version", "quorvane-relay " QUORVANE_VERSION);
  std::string listen = "127.0.0.1:8443";
  app.add_option("--listen", listen,
                 "address and port to listen on, HOST:PORT (port 0 picks a free port; the first "
                 "line of output names it)")
      ->capture_default_str();
  std::string certificate, key, database;
  app.add_option("--tls-cert", certificate, "TLS certificate chain (PEM); needs --tls-key");
  app.add_option("--tls-key", key, "TLS private key (PEM); needs --tls-cert");
  app.add_option("--db", database,
                 "SQLite database of the mailboxes "
                 "(default $XDG_STATE_HOME/quorvane-relay/relay.sqlite)");
  std::string redis;
  app.add_option("--redis", redis,
                 "keep the mailboxes in this Redis server instead (redis://HOST:PORT), so that "
                 "several relay processes share them; a send through one wakes fetches waiting "
                 "on any")
      ->excludes("--db");
  RelayLimits limits;
  app.add_option("--max-wait", limits.maxWaitSeconds,
                 "seconds a waiting fetch is held before it is answered with no messages")
      ->capture_default_str()
      ->check(CLI::Range(1.0, kLongestMaxWaitSeconds));
  app.add_option("--max-messages", limits.maxMessagesPerMailbox,
                 "messages a mailbox holds at most, not counting those its owner has fetched "
                 "past; further sends get 429")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000000));
  app.add_option("--message-lifetime", limits.messageLifetimeSeconds,
                 "seconds after which a stored message is removed")
      ->capture_default_str()
      ->check(CLI::Range(60.0, 365.0 * 24 * 3600));
  app.add_option("--acknowledged-lifetime", limits.acknowledgedLifetimeSeconds,
                 "seconds after which a message is removed once its mailbox's owner has fetched "
                 "past it (0: at the next expiry sweep). The wait lets another client of the "
                 "same owner (a watcher beside a one-shot command), whose cursor is a little "
                 "behind, still read it")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 365.0 * 24 * 3600));
  app.add_option("--creations-per-minute", limits.creationsPerMinute,
                 "new mailboxes per client address and minute (0: no limit)")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 1e9));
  app.add_option("--sends-per-minute", limits.sendsPerMinute,
                 "messages sent per client address and minute (0: no limit)")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 1e9));
  double headerTimeout = kHeaderReadTimeoutSeconds;
  app.add_option("--header-timeout", headerTimeout,
                 "seconds a connection has to send a whole request header (also the idle time "
                 "allowed between requests)")
      ->capture_default_str()
      ->check(CLI::Range(0.1, 300.0));
  bool forwardedFor = false;
  app.add_flag("--forwarded-for", forwardedFor,
               "behind a proxy: apply the per-address limits to the last address of the "
               "X-Forwarded-For header the proxy adds (only when the relay is reachable through "
               "the proxy alone)");
  int threads = 2;
  app.add_option("--threads", threads, "threads serving connections")
      ->capture_default_str()
      ->check(CLI::Range(1, 64));
  CLI11_PARSE(app, argc, argv);

  try {
    if (certificate.empty() != key.empty())
      throw RelayServerError(RelayServerErrorKind::settings,
                             "--tls-cert and --tls-key go together");
    HttpServerOptions options = listenAddress(listen);
    options.threads = threads;
    options.headerTimeoutSeconds = headerTimeout;
    options.trustForwardedFor = forwardedFor;
    if (!certificate.empty()) {
      options.tlsCertificate = certificate;
      options.tlsKey = key;
    } else {
      std::fprintf(stderr,
                   "quorvane-relay: warning: serving plain HTTP (no --tls-cert and --tls-key). "
                   "Put it behind a TLS proxy; credentials must never cross a network in clear.\n");
    }
    raiseOpenFileLimit();
    WaitingFetches waiting;
    std::unique_ptr<MailboxStore> store;
    if (!redis.empty())
      store = std::make_unique<RedisMailboxStore>(parseRedisURL(redis));
    else
      store = std::make_unique<SQLiteMailboxStore>(
          database.empty() ? defaultDatabase() : std::filesystem::path(database));
    store->setArrivalListener([&waiting](const std::string& id) { waiting.wake(id); });
    RelayService service(*store, waiting, limits);
    service.expire(quorvane::Date{static_cast<double>(std::time(nullptr))});
    RelayHttpServer server(service, waiting, options);
    std::printf("quorvane-relay listening on %s\n", server.url().c_str());
    std::fflush(stdout);
    server.run();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvane-relay: %s\n", error.what());
    return 1;
  }
}

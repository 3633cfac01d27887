#pragma once

#include "Base/Date.h"
#include "RelayServer/MailboxStore.h"
#include "RelayServer/RateLimiter.h"
#include "RelayServer/RelayExchange.h"
#include "RelayServer/RelayLimits.h"
#include "RelayServer/RelayMetrics.h"
#include "RelayServer/RelayRoute.h"
#include "RelayServer/WaitingFetches.h"

namespace quorvane::relay {

// The relay's HTTP API without the HTTP transport: routes a request, checks its credential and
// limits, uses the store, and says what to answer. Any server (the Beast one of quorvane-relay,
// the tests, the fuzz target) feeds it RelayRequests. Safe to call from several threads.
//
// Refusals never tell whether a mailbox exists: a missing or malformed "Authorization" header is
// 401 on every mailbox path; a credential that does not open the mailbox for what is asked (a
// wrong secret, another mailbox's secret, a send token used to fetch, an unknown or expired
// mailbox) is 404, the same answer that a deleted mailbox gets.
class RelayService {
 public:
  RelayService(MailboxStore& store, WaitingFetches& waiting, const RelayLimits& limits);

  // Answers a request at `now`. A store failure is answered 503 with a log note; nothing throws.
  RelayAnswer handle(const RelayRequest& request, Date now);
  // The answer to a waiting fetch now: the messages after its cursor; with none, the empty list
  // with `wait` set to `pending`.
  RelayAnswer fetchNow(const PendingFetch& pending);
  // Removes expired mailboxes and messages; the program calls it every few seconds.
  void expire(Date now);
  // Counts an answered request for the metrics.
  void countRequest(const std::string& method, const std::string& route, int status) {
    metrics_.countRequest(method, route, status);
  }

  const RelayLimits& limits() const { return limits_; }

 private:
  RelayAnswer route(const RelayRequest& request, const Route& route, Date now);
  RelayAnswer createMailbox(const Route& route, const RelayRequest& request, Date now);
  RelayAnswer send(const Route& route, const RelayRequest& request, Date now);
  RelayAnswer fetch(const Route& route, Date now);
  RelayAnswer metricsAnswer();

  MailboxStore& store_;
  WaitingFetches& waiting_;
  const RelayLimits limits_;
  RateLimiter creations_;
  RateLimiter sends_;
  RelayMetrics metrics_;
};

// The answer with a JSON body {"error": text}.
RelayAnswer errorAnswer(int status, const std::string& text);

}  // namespace quorvane::relay

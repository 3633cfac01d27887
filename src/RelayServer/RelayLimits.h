#pragma once

#include <cstddef>
#include <cstdint>

namespace quorvane::relay {

// The relay's fixed limits. The HTTP layer enforces the request sizes and time-outs; the service
// and the stores enforce the rest.

// A message body (one sealed envelope) and any other request body: 1 MiB. Larger: 413.
inline constexpr size_t kMaxBodyBytes = 1024 * 1024;
// The request line and headers together: 16 KiB. Larger: 431.
inline constexpr size_t kMaxHeaderBytes = 16 * 1024;
// A connection must deliver a whole request header within this time (also the idle time allowed
// between two requests on one connection), so a client that sends a byte a second holds nothing
// for long.
inline constexpr double kHeaderReadTimeoutSeconds = 10;
// Time allowed for reading a body and for writing an answer.
inline constexpr double kBodyReadTimeoutSeconds = 30;
inline constexpr double kWriteTimeoutSeconds = 30;
// How long a waiting fetch is held by default, and at most: always below the client's 40 s
// time-out, so that the client gets an empty answer rather than a time-out.
inline constexpr double kDefaultMaxWaitSeconds = 30;
inline constexpr double kLongestMaxWaitSeconds = 35;
// Ephemeral mailboxes (pairing) live this long after their creation.
inline constexpr double kEphemeralMailboxLifetimeSeconds = 15 * 60;
// The characters of a mailbox id in a path, at most.
inline constexpr size_t kMaxMailboxIdLength = 64;
// The characters of a bearer credential, at most.
inline constexpr size_t kMaxCredentialLength = 256;
// The texts of a push registration, at most each.
inline constexpr size_t kMaxPushFieldLength = 4096;
// A fetch answers every newer message up to this many bytes of message data (always at least
// one message); the client's cursor then asks for the rest.
inline constexpr size_t kMaxFetchAnswerBytes = 8 * 1024 * 1024;
// Envelope kinds that the protocol defines: the first byte of every message.
inline constexpr uint8_t kFirstEnvelopeKind = 1;
inline constexpr uint8_t kLastEnvelopeKind = 8;

// The limits an operator may change (flags of quorvane-relay), with their defaults.
struct RelayLimits {
  // Messages a mailbox holds at most, not counting those its owner has acknowledged (fetched
  // past); a send beyond it is refused (429) until old ones expire, the owner reads on, or the
  // owner deletes the mailbox.
  size_t maxMessagesPerMailbox = 500;
  // Messages older than this are removed.
  double messageLifetimeSeconds = 24 * 60 * 60;
  // Messages the owner acknowledged are removed this long after (0: at the next expiry run).
  // The wait lets a second client of the same owner (a watcher beside a one-shot command),
  // whose cursor is a little behind, still read them.
  double acknowledgedLifetimeSeconds = 10 * 60;
  // Mailbox creations per client address and minute (a burst of that many, then refilled evenly).
  double creationsPerMinute = 30;
  // Sends per client address and minute.
  double sendsPerMinute = 600;
  // How long a waiting fetch is held.
  double maxWaitSeconds = kDefaultMaxWaitSeconds;
  // Client addresses whose rates are tracked at once; past it the fullest buckets are dropped.
  size_t maxTrackedAddresses = 100000;
};

}  // namespace quorvane::relay

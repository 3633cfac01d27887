#pragma once

#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "RelayClient/RelayCursors.h"
#include "RelayClient/RelayEndpoint.h"
#include "RelayClient/RelayTransport.h"

namespace quorvane {

// What the relay's health request answered.
struct RelayHealthAnswer {
  int status = 0;
  std::optional<std::string> date;  // the "Date" header, if the relay sent one
};

// The client of a real relay over HTTPS (libcurl). A value: copies may be used from any thread and
// share one set of cursors, so that no copy receives a message that another already fetched.
// Every request is made fresh (no connection is kept between requests).
class RelayClient final : public RelayTransport {
 public:
  explicit RelayClient(RelayEndpoint endpoint,
                       std::shared_ptr<RelayCursors> cursors = std::make_shared<RelayCursors>());

  const RelayEndpoint& endpoint() const { return endpoint_; }
  RelayCursors& cursors() const { return *cursors_; }

  MailboxCredentials createMailbox(bool ephemeral, std::stop_token stop = {}) override;
  SecureBytes createSendToken(const MailboxCredentials& mailbox,
                              std::stop_token stop = {}) override;
  void revokeSendToken(const MailboxCredentials& mailbox, const SecureBytes& sendToken,
                       std::stop_token stop = {}) override;
  void registerPushToken(const MailboxCredentials& mailbox, const PushRegistration& registration,
                         std::stop_token stop = {}) override;
  void send(const MailboxAddress& address, const Envelope& envelope, bool push,
            std::stop_token stop = {}) override;
  std::vector<RelayMessage> fetch(const MailboxCredentials& mailbox, bool wait,
                                  std::stop_token stop = {}) override;
  void deleteMailbox(const MailboxCredentials& mailbox, std::stop_token stop = {}) override;

  // GET "healthz" below the base URL with the health time-out: the status, whatever it is, and
  // the Date header. Throws RelayError::transport when no answer comes.
  RelayHealthAnswer health(std::stop_token stop = {}) const;

 private:
  RelayEndpoint endpoint_;
  std::shared_ptr<RelayCursors> cursors_;
};

}  // namespace quorvane

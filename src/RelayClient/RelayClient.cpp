#include "RelayClient/RelayClient.h"

#include "RelayClient/HTTPExchange.h"
#include "RelayClient/RelayAnswers.h"
#include "RelayClient/RelayError.h"

namespace quorvane {
namespace {

// Performs `request`; an answer whose status the operation does not accept is RelayError::http.
HTTPAnswer execute(const RelayEndpoint& endpoint, const RelayRequest& request,
                   std::stop_token stop) {
  HTTPAnswer answer = performHTTP(endpoint, request, stop);
  if (!request.accepted.empty() && !request.accepted.contains(answer.status))
    throw RelayError::http(answer.status);
  return answer;
}

}  // namespace

RelayClient::RelayClient(RelayEndpoint endpoint, std::shared_ptr<RelayCursors> cursors)
    : endpoint_(std::move(endpoint)), cursors_(std::move(cursors)) {}

MailboxCredentials RelayClient::createMailbox(bool ephemeral, std::stop_token stop) {
  HTTPAnswer answer =
      execute(endpoint_, relay_requests::createMailbox(ephemeral, endpoint_.timeouts), stop);
  return parseMailboxCreation(answer.body.text());
}

SecureBytes RelayClient::createSendToken(const MailboxCredentials& mailbox, std::stop_token stop) {
  HTTPAnswer answer =
      execute(endpoint_, relay_requests::createSendToken(mailbox, endpoint_.timeouts), stop);
  return parseSendTokenCreation(answer.body.text());
}

void RelayClient::revokeSendToken(const MailboxCredentials& mailbox, const SecureBytes& sendToken,
                                  std::stop_token stop) {
  execute(endpoint_, relay_requests::revokeSendToken(mailbox, sendToken, endpoint_.timeouts), stop);
}

void RelayClient::registerPushToken(const MailboxCredentials& mailbox,
                                    const PushRegistration& registration, std::stop_token stop) {
  execute(endpoint_, relay_requests::registerPushToken(mailbox, registration, endpoint_.timeouts),
          stop);
}

void RelayClient::send(const MailboxAddress& address, const Envelope& envelope, bool push,
                       std::stop_token stop) {
  execute(endpoint_, relay_requests::send(address, envelope, push, endpoint_.timeouts), stop);
}

std::vector<RelayMessage> RelayClient::fetch(const MailboxCredentials& mailbox, bool wait,
                                             std::stop_token stop) {
  const uint64_t after = cursors_->read(mailbox.id);
  HTTPAnswer answer =
      execute(endpoint_, relay_requests::fetch(mailbox, after, wait, endpoint_.timeouts), stop);
  return acceptFetchedItems(parseFetchAnswer(answer.body.text()), *cursors_, mailbox.id);
}

void RelayClient::deleteMailbox(const MailboxCredentials& mailbox, std::stop_token stop) {
  execute(endpoint_, relay_requests::deleteMailbox(mailbox, endpoint_.timeouts), stop);
}

RelayHealthAnswer RelayClient::health(std::stop_token stop) const {
  HTTPAnswer answer = execute(endpoint_, relay_requests::health(endpoint_.timeouts), stop);
  return {answer.status, std::move(answer.date)};
}

}  // namespace quorvane

#include "ApproverSession/ApproverInbox.h"

#include <algorithm>

#include "ApprovalProto/ProtocolTime.h"
#include "ApprovalProto/QAPFailure.h"
#include "Base/Base64.h"
#include "Base/Hex.h"

namespace quorvane {
namespace {

constexpr EnumNames<ClosedReason, 3> kClosedReasonNames{
    "ClosedReason",
    {{{ClosedReason::answered, "answered"},
      {ClosedReason::settledElsewhere, "settledElsewhere"},
      {ClosedReason::expired, "expired"}}}};

uint64_t unsignedOf(const JSONReader& reader) {
  const int64_t value = reader.int64();
  if (value < 0) reader.fail("Expected a number of zero or more.");
  return static_cast<uint64_t>(value);
}

// The entries of an array that may hold at most `limit` of them (checked before decoding any).
std::vector<JSONReader> boundedArray(const JSONReader& reader, size_t limit) {
  std::vector<JSONReader> elements = reader.array();
  if (elements.size() > limit) reader.fail("The list holds more entries than allowed.");
  return elements;
}

InboxRequest decodeInboxRequest(const JSONReader& reader) {
  const JSONReader message = reader.required("message");
  std::optional<Bytes> bytes = base64Decode(message.string());
  if (!bytes) message.fail("Encountered Data is not valid Base64.");
  try {
    return {ApprovalRequestMessage::decode(*bytes),
            reader.required("receivedAt").date(DateEncoding::iso8601)};
  } catch (const QAPFailure& failure) {
    message.fail(std::string("The request does not decode: ") + std::string(failure.kindName()));
  }
}

ClosedRequest decodeClosedRequest(const JSONReader& reader) {
  const JSONReader id = reader.required("requestID");
  std::optional<Bytes> requestID = hexDecode(id.string());
  if (!requestID) id.fail("Expected hexadecimal text.");
  return {std::move(*requestID), unsignedOf(reader.required("expiresAt")),
          kClosedReasonNames.decode(reader.required("reason"))};
}

}  // namespace

void ApproverInbox::addOpen(InboxRequest request) {
  open.push_back(std::move(request));
  if (open.size() > kOpenLimit) open.erase(open.begin(), open.end() - kOpenLimit);
}

void ApproverInbox::close(Bytes requestID, uint64_t expiresAt, ClosedReason reason) {
  std::erase_if(open, [&](const InboxRequest& r) { return r.request.requestID == requestID; });
  std::erase_if(closed, [&](const ClosedRequest& c) { return c.requestID == requestID; });
  closed.push_back({std::move(requestID), expiresAt, reason});
  if (closed.size() > kClosedLimit) closed.erase(closed.begin(), closed.end() - kClosedLimit);
}

void ApproverInbox::recordFailure(Date at, std::string failure) {
  failures.push_back({at, std::move(failure)});
  if (failures.size() > kFailuresKept)
    failures.erase(failures.begin(), failures.end() - kFailuresKept);
}

std::vector<InboxRequest> ApproverInbox::sweep(Date now) {
  const uint64_t nowMilliseconds = millisecondsSince1970(now);
  std::vector<InboxRequest> expired;
  for (const InboxRequest& waiting : open)
    if (nowMilliseconds >= waiting.request.expiresAt) expired.push_back(waiting);
  for (const InboxRequest& gone : expired)
    close(gone.request.requestID, gone.request.expiresAt, ClosedReason::expired);
  const uint64_t forgetBefore =
      millisecondsSince1970(now - kClosedKeptSeconds);  // 0 early in 1970, which keeps all
  std::erase_if(closed, [&](const ClosedRequest& c) { return c.expiresAt < forgetBefore; });
  return expired;
}

const InboxRequest* ApproverInbox::findOpen(const Bytes& requestID) const {
  auto found = std::ranges::find_if(
      open, [&](const InboxRequest& r) { return r.request.requestID == requestID; });
  return found == open.end() ? nullptr : &*found;
}

const ClosedRequest* ApproverInbox::findClosed(const Bytes& requestID) const {
  auto found = std::ranges::find_if(
      closed, [&](const ClosedRequest& c) { return c.requestID == requestID; });
  return found == closed.end() ? nullptr : &*found;
}

JSON toJSON(const ApproverInbox& inbox) {
  JSON cursors = JSON::array();
  for (const auto& [where, seq] : inbox.cursors)
    cursors.push_back({{"relayURL", where.first}, {"mailbox", where.second}, {"seq", seq}});
  JSON open = JSON::array();
  for (const InboxRequest& waiting : inbox.open)
    open.push_back({{"message", base64Encode(waiting.request.encode())},
                    {"receivedAt", waiting.receivedAt.iso8601()}});
  JSON closed = JSON::array();
  for (const ClosedRequest& gone : inbox.closed)
    closed.push_back({{"requestID", hexEncode(gone.requestID)},
                      {"expiresAt", gone.expiresAt},
                      {"reason", kClosedReasonNames.name(gone.reason)}});
  JSON failures = JSON::array();
  for (const InboxFailure& failure : inbox.failures)
    failures.push_back({{"at", failure.at.iso8601()}, {"failure", failure.failure}});
  return {{"cursors", cursors}, {"open", open}, {"closed", closed}, {"failures", failures}};
}

ApproverInbox decodeApproverInbox(const JSONReader& reader) {
  ApproverInbox inbox;
  for (const JSONReader& cursor : boundedArray(reader.required("cursors"), 1024)) {
    auto key =
        std::make_pair(cursor.required("relayURL").string(), cursor.required("mailbox").string());
    inbox.cursors[std::move(key)] = unsignedOf(cursor.required("seq"));
  }
  for (const JSONReader& waiting : boundedArray(reader.required("open"), ApproverInbox::kOpenLimit))
    inbox.open.push_back(decodeInboxRequest(waiting));
  for (const JSONReader& gone :
       boundedArray(reader.required("closed"), ApproverInbox::kClosedLimit))
    inbox.closed.push_back(decodeClosedRequest(gone));
  for (const JSONReader& failure :
       boundedArray(reader.required("failures"), ApproverInbox::kFailuresKept))
    inbox.failures.push_back(
        {failure.required("at").date(DateEncoding::iso8601), failure.required("failure").string()});
  return inbox;
}

}  // namespace quorvane

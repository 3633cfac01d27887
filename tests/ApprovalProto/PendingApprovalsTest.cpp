#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "ApprovalProto/ApprovalExchange.h"
#include "ApprovalProto/DomainLabels.h"
#include "ApprovalProto/PendingApprovals.h"
#include "ApprovalProto/Sealing.h"
#include "ApprovalTestSupport.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::failureOf;
using Kind = QAPFailure::Kind;

constexpr uint64_t kNow = 1'700'000'000'000;
constexpr uint64_t kExpiresAt = kNow + 60'000;

// This Mac, its two paired devices (only the phone is allowed for the key) and a stranger.
struct Parties {
  DeviceKeys mac = DeviceKeys::generate("Mac");
  DeviceKeys otherMac = DeviceKeys::generate("Other Mac");
  DeviceKeys phone = DeviceKeys::generate("Phone");
  DeviceKeys watch = DeviceKeys::generate("Watch");
  DeviceKeys stranger = DeviceKeys::generate("Stranger");
  std::vector<DeviceIdentity> paired{phone.identity(), watch.identity()};
};

const Parties& parties() {
  static const Parties kParties;
  return kParties;
}

Bytes hashOf(const DeviceKeys& keys) { return keys.identity().identityHash(); }

ApprovalRequestMessage request() {
  ApprovalRequestMessage request;
  request.requestID = bytesOf("request-1");
  request.macID = hashOf(parties().mac);
  request.createdAt = kNow - 1'000;
  request.expiresAt = kExpiresAt;
  request.keyFingerprint = "SHA256:key";
  request.keyName = "work";
  request.purpose = ApprovalPurpose::signature("git");
  request.dataHash = Bytes(32, 0xd4);
  request.scopes = {qap::ApprovalScope::once};
  return request;
}

PendingApprovals pendingWithRequest() {
  PendingApprovals pending;
  pending.registerRequest(request(), {hashOf(parties().phone)});
  return pending;
}

// The answer a device builds from the request: copies requestID, macID and dataHash.
ApprovalResponseMessage answerFrom(const DeviceKeys& device) {
  const ApprovalRequestMessage asked = request();
  return ApprovalResponseMessage{
      asked.requestID,          asked.macID,    hashOf(device), ApprovalDecision::approve,
      qap::ApprovalScope::once, asked.dataHash, kNow,           true};
}

Bytes sealed(const ApprovalResponseMessage& response, const DeviceKeys& device) {
  return sealApprovalResponse(response, device, parties().mac.identity()).body;
}

// The phone's answer with one change.
std::function<Bytes()> phoneAnswerWith(std::function<void(ApprovalResponseMessage&)> change) {
  return [change] {
    ApprovalResponseMessage response = answerFrom(parties().phone);
    change(response);
    return sealed(response, parties().phone);
  };
}

// A payload that the phone seals and signs properly but that is not a valid response encoding.
std::function<Bytes()> phoneSealsPayload(std::function<void(Bytes&)> change) {
  return [change] {
    Bytes payload = answerFrom(parties().phone).encode();
    change(payload);
    return sealMessage(payload, kQAPResponseLabel, *parties().phone.signer, hashOf(parties().phone),
                       parties().mac.identity());
  };
}

struct RejectionCase {
  const char* name;
  std::function<Bytes()> body;
  Kind expected;
  bool requestStaysOpen = true;
  uint64_t now = kNow;
  bool noCandidates = false;
};

const RejectionCase kRejections[] = {
    {"fromAStranger", [] { return sealed(answerFrom(parties().stranger), parties().stranger); },
     Kind::unknownDevice},
    {"noPairedDevices", phoneAnswerWith([](auto&) {}), Kind::unknownDevice, true, kNow, true},
    // The watch signs while claiming to be the phone: the phone's key opens the encryption but
    // not the signature, the watch's key opens nothing; the signature failure is what counts.
    {"signedByAnotherPairedDevice",
     [] {
       return sealMessage(answerFrom(parties().phone).encode(), kQAPResponseLabel,
                          *parties().watch.signer, hashOf(parties().phone),
                          parties().mac.identity());
     },
     Kind::badSignature},
    {"version3", phoneSealsPayload([](Bytes& payload) { payload[3] = 3; }),
     Kind::unsupportedVersion},
    {"trailingByte", phoneSealsPayload([](Bytes& payload) { payload.push_back(0); }),
     Kind::malformed},
    // The phone seals as itself but names the watch inside.
    {"deviceIDOfAnotherDevice", phoneSealsPayload([](Bytes& payload) {
       ApprovalResponseMessage response = ApprovalResponseMessage::decode(payload);
       response.deviceID = hashOf(parties().watch);
       payload = response.encode();
     }),
     Kind::unknownDevice},
    {"forAnotherMac",
     phoneAnswerWith([](auto& response) { response.macID = hashOf(parties().otherMac); }),
     Kind::wrongMac},
    {"macIsCheckedBeforeTheRequest", phoneAnswerWith([](auto& response) {
       response.macID = hashOf(parties().otherMac);
       response.requestID = bytesOf("request-2");
     }),
     Kind::wrongMac},
    {"unknownRequest",
     phoneAnswerWith([](auto& response) { response.requestID = bytesOf("request-2"); }),
     Kind::unknownRequest},
    {"fromAPairedDeviceNotAllowedForTheKey",
     [] { return sealed(answerFrom(parties().watch), parties().watch); }, Kind::notAllowedForKey},
    {"hashMismatch", phoneAnswerWith([](auto& response) { response.dataHash[0] ^= 1; }),
     Kind::hashMismatch},
    {"hashIsCheckedBeforeTheDeadline",
     phoneAnswerWith([](auto& response) { response.dataHash[0] ^= 1; }), Kind::hashMismatch, true,
     kExpiresAt},
    {"atExactlyTheDeadline", phoneAnswerWith([](auto&) {}), Kind::expired, false, kExpiresAt},
    {"deadlineIsCheckedBeforeTheClock",
     phoneAnswerWith([](auto& response) { response.decidedAt = kExpiresAt + 60'000; }),
     Kind::expired, false, kExpiresAt},
    {"decided30001msAhead",
     phoneAnswerWith([](auto& response) { response.decidedAt = kNow + 30'001; }), Kind::clockSkew},
    {"scopeNotOffered",
     phoneAnswerWith([](auto& response) { response.scope = qap::ApprovalScope::fiveMinutes; }),
     Kind::scopeNotOffered},
};

class PendingApprovalsRejection : public ::testing::TestWithParam<RejectionCase> {};

TEST_P(PendingApprovalsRejection, RejectsAndKeepsTheRequestUnlessExpired) {
  const RejectionCase& c = GetParam();
  PendingApprovals pending = pendingWithRequest();
  const Bytes body = c.body();
  const std::vector<DeviceIdentity> none;
  EXPECT_EQ(failureOf([&] {
              pending.accept(body, parties().mac, c.noCandidates ? none : parties().paired, c.now);
            }),
            c.expected);
  EXPECT_EQ(pending.open.contains(request().requestID), c.requestStaysOpen);
  EXPECT_TRUE(pending.answered.empty());
}

INSTANTIATE_TEST_SUITE_P(Checks, PendingApprovalsRejection, ::testing::ValuesIn(kRejections),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(PendingApprovals, AcceptsOnceAndRecognisesEveryLaterAnswerAsAlreadyAnswered) {
  PendingApprovals pending = pendingWithRequest();
  const Bytes body = sealed(answerFrom(parties().phone), parties().phone);
  PendingApprovals::Accepted accepted = pending.accept(body, parties().mac, parties().paired, kNow);
  EXPECT_EQ(accepted.response, answerFrom(parties().phone));
  EXPECT_EQ(accepted.deviceIndex, 0u);
  EXPECT_TRUE(pending.open.empty());
  EXPECT_EQ(pending.answered, (std::map<Bytes, uint64_t>{{request().requestID, kExpiresAt}}));

  EXPECT_EQ(failureOf([&] { pending.accept(body, parties().mac, parties().paired, kNow); }),
            Kind::alreadyAnswered);
  // Even an answer that would fail later checks is a replay first.
  const Bytes other = phoneAnswerWith([](auto& response) { response.dataHash.clear(); })();
  EXPECT_EQ(failureOf([&] { pending.accept(other, parties().mac, parties().paired, kNow); }),
            Kind::alreadyAnswered);

  pending.dropAnsweredExpiredBy(kExpiresAt - 1);
  EXPECT_EQ(pending.answered.size(), 1u);
  pending.dropAnsweredExpiredBy(kExpiresAt);
  EXPECT_TRUE(pending.answered.empty());
}

TEST(PendingApprovals, ClockAllowanceIs30000MillisecondsAheadAndThePastIsNotChecked) {
  for (uint64_t decidedAt : {kNow + 30'000, uint64_t{0}}) {
    PendingApprovals pending = pendingWithRequest();
    const Bytes body = phoneAnswerWith([&](auto& response) { response.decidedAt = decidedAt; })();
    EXPECT_EQ(pending.accept(body, parties().mac, parties().paired, kNow).response.decidedAt,
              decidedAt);
  }
}

TEST(PendingApprovals, AnExpiredOrForgottenRequestTakesNoLaterAnswer) {
  const Bytes body = sealed(answerFrom(parties().phone), parties().phone);
  PendingApprovals expired = pendingWithRequest();
  EXPECT_EQ(failureOf([&] { expired.accept(body, parties().mac, parties().paired, kExpiresAt); }),
            Kind::expired);
  EXPECT_EQ(failureOf([&] { expired.accept(body, parties().mac, parties().paired, kNow); }),
            Kind::unknownRequest);

  PendingApprovals forgotten = pendingWithRequest();
  forgotten.forget(request().requestID);
  EXPECT_EQ(failureOf([&] { forgotten.accept(body, parties().mac, parties().paired, kNow); }),
            Kind::unknownRequest);
}

TEST(ApprovalExchange, ADeviceOpensARequestFromWhicheverPairedMacSentIt) {
  const std::vector<DeviceIdentity> macs{parties().otherMac.identity(), parties().mac.identity()};
  const Envelope envelope =
      sealApprovalRequest(request(), parties().mac, parties().phone.identity());
  EXPECT_EQ(envelope.kind, EnvelopeKind::approvalRequest);
  OpenedRequest opened = openApprovalRequest(envelope.body, parties().phone, macs);
  EXPECT_EQ(opened.request, request());
  EXPECT_EQ(opened.macIndex, 1u);

  // Sealed and signed by the Mac, but naming another Mac inside: the signature verifies, the
  // content does not fit.
  ApprovalRequestMessage forOther = request();
  forOther.macID = hashOf(parties().otherMac);
  const Bytes body = sealMessage(forOther.encode(), kQAPRequestLabel, *parties().mac.signer,
                                 hashOf(parties().mac), parties().phone.identity());
  EXPECT_EQ(failureOf([&] { openApprovalRequest(body, parties().phone, macs); }), Kind::wrongMac);
}

}  // namespace
}  // namespace quorvane

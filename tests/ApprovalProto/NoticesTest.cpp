#include <gtest/gtest.h>

#include "ApprovalProto/Notices.h"
#include "ApprovalTestSupport.h"

namespace quorvane {
namespace {

using testing::failureOf;
using Kind = QAPFailure::Kind;

struct Parties {
  DeviceKeys mac = DeviceKeys::generate("computer");
  DeviceKeys otherMac = DeviceKeys::generate("other computer");
  DeviceKeys device = DeviceKeys::generate("laptop");
};

const Parties& parties() {
  static const Parties kParties;
  return kParties;
}

Bytes hashOf(const DeviceKeys& keys) { return keys.identity().identityHash(); }

TEST(UnpairNoticeTest, OpensFromEitherSideWithTheSenderFound) {
  const Parties& p = parties();
  const UnpairNotice fromMac{hashOf(p.mac), Bytes{1, 2, 3}};
  const Envelope sealed = sealUnpairNotice(fromMac, true, p.mac, p.device.identity());
  EXPECT_EQ(sealed.kind, EnvelopeKind::unpair);
  const DeviceIdentity macs[] = {p.otherMac.identity(), p.mac.identity()};
  const OpenedUnpairNotice opened = openUnpairNotice(sealed.body, true, p.device, macs);
  EXPECT_EQ(opened.notice, fromMac);
  EXPECT_EQ(opened.senderIndex, 1u);

  const UnpairNotice fromDevice{hashOf(p.device), {}};
  const DeviceIdentity devices[] = {p.device.identity()};
  EXPECT_EQ(openUnpairNotice(sealUnpairNotice(fromDevice, false, p.device, p.mac.identity()).body,
                             false, p.mac, devices)
                .notice,
            fromDevice);
}

// A notice is bound to its direction, its sender and the id inside it.
TEST(UnpairNoticeTest, RefusesTheOtherDirectionsLabelAStrangerAndAForeignSenderID) {
  const Parties& p = parties();
  const DeviceIdentity macs[] = {p.mac.identity()};
  const Envelope fromMac = sealUnpairNotice({hashOf(p.mac), {}}, true, p.mac, p.device.identity());
  EXPECT_EQ(failureOf([&] { openUnpairNotice(fromMac.body, false, p.device, macs); }),
            Kind::unknownDevice);
  const DeviceIdentity strangers[] = {p.otherMac.identity()};
  EXPECT_EQ(failureOf([&] { openUnpairNotice(fromMac.body, true, p.device, strangers); }),
            Kind::unknownDevice);
  const Envelope claimsOther =
      sealUnpairNotice({hashOf(p.otherMac), {}}, true, p.mac, p.device.identity());
  EXPECT_EQ(failureOf([&] { openUnpairNotice(claimsOther.body, true, p.device, macs); }),
            Kind::unknownDevice);
  // A box that does not parse opens for no candidate.
  Bytes trailing = fromMac.body;
  trailing.push_back(0);
  EXPECT_EQ(failureOf([&] { openUnpairNotice(trailing, true, p.device, macs); }),
            Kind::unknownDevice);
}

TEST(ResolvedNoticeTest, OpensFromThePairedComputerAndRefusesAnotherMacID) {
  const Parties& p = parties();
  const ResolvedNotice notice{Bytes{9, 9}, hashOf(p.mac)};
  const Envelope sealed = sealResolvedNotice(notice, p.mac, p.device.identity());
  EXPECT_EQ(sealed.kind, EnvelopeKind::resolved);
  const DeviceIdentity macs[] = {p.mac.identity()};
  EXPECT_EQ(openResolvedNotice(sealed.body, p.device, macs).notice, notice);

  const DeviceIdentity strangers[] = {p.otherMac.identity()};
  EXPECT_EQ(failureOf([&] { openResolvedNotice(sealed.body, p.device, strangers); }),
            Kind::unknownDevice);
  // The notice's macID is the sender hash of its sealing: one naming another computer does not
  // open for the computer that sealed it.
  const Envelope misnamed =
      sealResolvedNotice({Bytes{9, 9}, hashOf(p.otherMac)}, p.mac, p.device.identity());
  EXPECT_EQ(failureOf([&] { openResolvedNotice(misnamed.body, p.device, macs); }),
            Kind::unknownDevice);
  // An unpair notice's body is not a resolved notice.
  const Envelope unpair = sealUnpairNotice({hashOf(p.mac), {}}, true, p.mac, p.device.identity());
  EXPECT_EQ(failureOf([&] { openResolvedNotice(unpair.body, p.device, macs); }),
            Kind::unknownDevice);
}

}  // namespace
}  // namespace quorvane

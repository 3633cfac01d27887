#pragma once

#include <memory>
#include <optional>
#include <string>

#include "AgentState/RelaySetting.h"
#include "AgentState/SupportState.h"
#include "ApprovalProto/DeviceKeys.h"
#include "Platform/Clock.h"
#include "RelayClient/MailboxCredentials.h"
#include "RemoteApproval/RemoteApprovalService.h"

namespace quorvane {

// What asking paired devices takes: a relay, this computer's protocol keys, its own mailbox on
// that relay (made when the first device was paired), and at least one paired device.
struct RemoteApprovalSetup {
  RelaySetting relay;
  DeviceKeys keys;
  MailboxCredentials mailbox;
  size_t pairedDevices = 0;

  // Whether a service built from `other` would talk to the same relay as the same party.
  bool sameAs(const RemoteApprovalSetup& other) const;
};

// The setup as stored now, or nothing with the reason in `missing` ("no relay is set", ...).
// Files and keychain items that cannot be read count as missing, with the problem in the reason.
std::optional<RemoteApprovalSetup> readRemoteApprovalSetup(const SupportState& support,
                                                           std::string& missing);

// The service for `setup`, over HTTPS to its relay; the paired devices are re-read from
// "devices.json" for every request.
std::shared_ptr<RemoteApprovalService> makeRemoteApprovalService(
    const SupportState& support, const RemoteApprovalSetup& setup, std::shared_ptr<Clock> clock,
    RemoteApprovalService::Options options);

// Forgets the device with identity hash `deviceID` (it unpaired itself): removes it from
// "devices.json" and withdraws the send token of this computer's mailbox that it held. Returns its
// name, or nothing when no such device is paired. Throws what reading or writing the file throws;
// a failed withdrawal is only reported through `report`.
std::optional<std::string> forgetUnpairedDevice(
    const SupportState& support, const RemoteApprovalSetup& setup, const Bytes& deviceID,
    const std::function<void(const std::string&)>& report);

}  // namespace quorvane

#include "agent/RemoteApprovalSetup.h"

#include <algorithm>

#include "AgentState/PairingFiles.h"
#include "AgentState/ProtocolIdentity.h"
#include "RelayClient/RelayClient.h"
#include "RelayClient/RelayTexts.h"

namespace quorvane {

bool RemoteApprovalSetup::sameAs(const RemoteApprovalSetup& other) const {
  return relay == other.relay && mailbox == other.mailbox &&
         keys.identity() == other.keys.identity();
}

std::optional<RemoteApprovalSetup> readRemoteApprovalSetup(const SupportState& support,
                                                           std::string& missing) {
  try {
    std::optional<RelaySetting> relay = loadRelaySetting(support);
    if (!relay || relay->baseURL.empty()) {
      missing = "no relay is set (quorvane remote relay URL)";
      return std::nullopt;
    }
    std::optional<DeviceKeys> keys = loadDeviceKeys(*support.keychain);
    std::optional<MailboxCredentials> mailbox =
        loadOwnMailbox(*support.keychain, relay->baseURL, MailboxRole::asking);
    if (!keys || !mailbox) {
      missing = "this computer has not paired with a device through " + relay->baseURL +
                " (quorvane devices pair)";
      return std::nullopt;
    }
    const size_t paired = loadPairedDevices(support).size();
    if (paired == 0) {
      missing = "no device is paired (quorvane devices pair)";
      return std::nullopt;
    }
    return RemoteApprovalSetup{std::move(*relay), std::move(*keys), std::move(*mailbox), paired};
  } catch (const std::exception& error) {
    missing = std::string("its settings could not be read: ") + error.what();
    return std::nullopt;
  }
}

std::shared_ptr<RemoteApprovalService> makeRemoteApprovalService(
    const SupportState& support, const RemoteApprovalSetup& setup, std::shared_ptr<Clock> clock,
    RemoteApprovalService::Options options) {
  auto relay =
      std::make_shared<RelayClient>(RelayEndpoint{setup.relay.baseURL, setup.relay.caFile, {}});
  return std::make_shared<RemoteApprovalService>(
      std::move(relay), setup.keys, setup.mailbox,
      [&support] { return loadPairedDevices(support); }, std::move(clock), std::move(options));
}

std::optional<std::string> forgetUnpairedDevice(
    const SupportState& support, const RemoteApprovalSetup& setup, const Bytes& deviceID,
    const std::function<void(const std::string&)>& report) {
  std::vector<PairedDevice> devices = loadPairedDevices(support);
  auto found = std::ranges::find_if(devices, [&](const PairedDevice& device) {
    return device.identity.identityHash() == deviceID;
  });
  if (found == devices.end()) return std::nullopt;
  const PairedDevice device = *found;
  devices.erase(found);
  savePairedDevices(support, devices);
  if (device.macSendToken) {
    try {
      RelayClient relay(RelayEndpoint{setup.relay.baseURL, setup.relay.caFile, {}});
      relay.revokeSendToken(setup.mailbox, *device.macSendToken);
    } catch (const RelayError& error) {
      report("the send token of “" + device.identity.name +
             "” could not be withdrawn: " + relayFailureText(error));
    }
  }
  return device.identity.name;
}

}  // namespace quorvane

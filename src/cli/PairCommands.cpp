// `devices pair` (on the computer that runs the agent) and `approver pair` (on the computer that
// approves for it): the two ends of one pairing, through the relay.

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <iostream>
#include <optional>
#include <thread>

#include "AgentState/PairingFiles.h"
#include "AgentState/ProtocolIdentity.h"
#include "AgentState/RelaySetting.h"
#include "AgentState/SupportState.h"
#include "ApprovalProto/QAPFailure.h"
#include "Base/Base64.h"
#include "Pairing/PairingError.h"
#include "Pairing/PairingExchange.h"
#include "Platform/Clock.h"
#include "RelayClient/RelayClient.h"
#include "RelayClient/RelayTexts.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"
#include "cli/Terminal.h"
#include "cli/TerminalQRCode.h"

namespace quorvane::cli {
namespace {

constexpr std::string_view kSameCodeQuestion = "Do both screens show the same code?";
constexpr int kInterruptedExit = 130;
constexpr const char* kStoppedText = "pairing stopped; nothing was stored";

struct PairOptions {
  std::string code;
  std::string name;
  bool yes = false;
  bool json = false;
};
PairOptions deviceOptions;
PairOptions approverOptions;

// Turns Ctrl-C (or SIGTERM) during the relay waits and the question whether the codes match into
// a stop request, so that the pairing is cleaned up on the relay before the program ends; at any
// other moment the program ends at once.
// The signals stay blocked in every thread for the rest of the run; a detached thread takes them.
class InterruptWatch {
 public:
  InterruptWatch() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    std::thread([this] {
      int signal = 0;
      if (sigwait(&signals_, &signal) != 0) return;
      interrupted_ = true;
      source_.request_stop();
      if (!waiting_) {
        (void)!::write(STDERR_FILENO, "\n", 1);
        ::_exit(kInterruptedExit);
      }
    }).detach();
  }
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

  std::stop_token token() const { return source_.get_token(); }
  bool interrupted() const { return interrupted_; }
  // After this, an interrupt ends the program instead of stopping a wait.
  void stopWaiting() { waiting_ = false; }

 private:
  sigset_t signals_;
  std::stop_source source_;
  std::atomic<bool> interrupted_ = false;
  std::atomic<bool> waiting_ = true;
};

// The object is needed for as long as the program runs (its thread refers to it).
InterruptWatch& interruptWatch() {
  static InterruptWatch watch;
  return watch;
}

// Runs one pairing and turns its failures into what the user reads.
template <typename Work>
void reportingFailures(Work work) {
  try {
    work();
  } catch (const RelayError& error) {
    if (interruptWatch().interrupted()) throw CommandFailure(kStoppedText, kInterruptedExit);
    throw CommandFailure(std::string(kPairingRelayFailureText) + "\n(" + error.what() + ")");
  } catch (const PairingError& error) {
    throw CommandFailure(error.what());
  } catch (const QAPFailure& failure) {
    throw CommandFailure(
        "a pairing message did not pass its checks (" + std::string(failure.kindName()) +
        "): it was changed on its way or did not come from the other side. Nothing was stored; "
        "start again with a new code.");
  }
}

// Prints one line of the `--json` output (one JSON object a line) and sends it at once.
void printJSONLine(const JSON& value) {
  std::cout << value.dump(-1, ' ', false, JSON::error_handler_t::replace) << std::endl;
}

// A line from standard input, or nothing at its end or once `stop` is requested. A terminal says
// a line is ready before it is read, so the wait can end on an interrupt; piped input is read as
// it comes.
std::optional<std::string> answerLine(std::stop_token stop) {
  if (::isatty(STDIN_FILENO)) {
    pollfd entry{STDIN_FILENO, POLLIN, 0};
    while (!stop.stop_requested()) {
      entry.revents = 0;
      const int ready = ::poll(&entry, 1, 100);
      if (ready > 0 || (ready < 0 && errno != EINTR)) break;
    }
  }
  std::string answer;
  if (stop.stop_requested() || !std::getline(std::cin, answer)) return std::nullopt;
  return answer;
}

// Shows the SAS and asks whether the other screen shows it too; --yes answers yes. An interrupt
// answers no. `other` says who answered, as the other side names itself.
bool sameCodeConfirmed(const std::string& sas, const std::string& other, const PairOptions& options,
                       std::stop_token stop) {
  if (options.json) printJSONLine({{"sas", sas}});
  std::ostream& out = options.json ? std::cerr : std::cout;
  out << other << "\nCode on both screens: " << sas << "\n";
  if (options.yes) return !stop.stop_requested();
  out << kSameCodeQuestion << " [y/N] " << std::flush;
  const std::optional<std::string> answer = answerLine(stop);
  if (!answer) {
    out << "\n";
    return false;
  }
  return *answer == "y" || *answer == "Y" || *answer == "yes";
}

// The failure for codes that were not confirmed: the user said no, or stopped the program.
CommandFailure notConfirmed(const InterruptWatch& interrupt) {
  if (interrupt.interrupted()) return CommandFailure(kStoppedText, kInterruptedExit);
  return CommandFailure("not paired: the codes were not confirmed. Nothing was stored.");
}

// This computer's own mailbox on the relay at `relayURL`, made and stored the first time.
MailboxCredentials ownMailbox(RelayTransport& relay, Keychain& keychain,
                              const std::string& relayURL, MailboxRole role, std::stop_token stop) {
  if (auto stored = loadOwnMailbox(keychain, relayURL, role)) return *stored;
  MailboxCredentials created = relay.createMailbox(false, stop);
  saveOwnMailbox(keychain, relayURL, role, created);
  return created;
}

std::string base64Text(const std::optional<Bytes>& bytes) {
  return bytes ? base64Encode(*bytes) : std::string();
}

// --- devices pair --------------------------------------------------------------------------

// Why `device` cannot be stored beside `devices`, or nothing.
std::optional<std::string> deviceConflict(const std::vector<PairedDevice>& devices,
                                          const PairedDevice& device) {
  for (const PairedDevice& paired : devices) {
    if (paired.identity.signingKey == device.identity.signingKey)
      return "this device is already paired as “" + printable(paired.identity.name) +
             "”; remove that pairing first with quorvane devices remove " +
             printable(paired.identity.name);
    if (paired.identity.name == device.identity.name)
      return "a device named “" + printable(device.identity.name) +
             "” is already paired; choose another name with --name";
  }
  return std::nullopt;
}

void showCode(const SecureBytes& codeText, const PairOptions& options) {
  if (options.json) {
    printJSONLine({{"code", std::string(codeText.text())}});
    std::cerr << "Waiting up to 5 minutes for the other computer (Ctrl-C stops).\n";
    return;
  }
  std::cout << codeText.text() << std::endl;
  if (::isatty(STDOUT_FILENO))
    if (auto picture = terminalQRCode(codeText.text())) std::cout << "\n" << *picture << "\n";
  std::cout << "On the other computer run quorvane approver pair and give it this code.\n"
               "Waiting up to 5 minutes for it (Ctrl-C stops)."
            << std::endl;
}

void pairDevice() {
  const PairOptions& options = deviceOptions;
  SupportState support = SupportState::open();
  const std::optional<RelaySetting> setting = loadRelaySetting(support);
  if (!setting)
    throw CommandFailure(
        "no relay is set, and pairing talks through one: set it with quorvane remote relay URL");
  if (!setting->baseURL.starts_with("https://"))
    throw CommandFailure("pairing needs a relay reached over https, and " + setting->baseURL +
                         " is not; set one with quorvane remote relay https://...");
  if (!options.name.empty()) {
    PairedDevice named;
    named.identity.name = options.name;
    if (auto conflict = deviceConflict(loadPairedDevices(support), named))
      throw CommandFailure(*conflict);
  }
  const DeviceKeys keys = loadOrCreateDeviceKeys(*support.keychain, thisComputerName());
  RelayClient relay(RelayEndpoint{setting->baseURL, setting->caFile, {}});
  SystemClock clock;
  const NowFunction now = [&clock] { return clock.now(); };
  InterruptWatch& interrupt = interruptWatch();

  reportingFailures([&] {
    const std::stop_token stop = interrupt.token();
    const MailboxCredentials mailbox =
        ownMailbox(relay, *support.keychain, setting->baseURL, MailboxRole::asking, stop);
    const MacPairing pairing = startMacPairing(relay, keys, mailbox, setting->baseURL, now(), stop);
    CompletedPairing completed;
    try {
      showCode(pairingCodeText(pairing.code), options);
      completed = awaitDevice(relay, pairing, keys, now() + kPairingCodeLifetime, now, stop);
    } catch (...) {
      closeMacPairing(relay, pairing, true);
      throw;
    }
    PairedDevice device = pairedDeviceOf(pairing, completed, now());
    if (!options.name.empty()) device.identity.name = options.name;
    const std::string other = "Answered by “" + printable(completed.reply.deviceIdentity.name) +
                              "” (" + std::string(displayName(completed.reply.kind)) + ").";
    if (!sameCodeConfirmed(completed.sas, other, options, stop)) {
      closeMacPairing(relay, pairing, true);
      throw notConfirmed(interrupt);
    }
    interrupt.stopWaiting();
    std::vector<PairedDevice> devices = loadPairedDevices(support);
    if (auto conflict = deviceConflict(devices, device)) {
      closeMacPairing(relay, pairing, true);
      throw CommandFailure(*conflict);
    }
    devices.push_back(device);
    savePairedDevices(support, devices);
    closeMacPairing(relay, pairing, false);
    try {
      notifyAgentOfChange();
    } catch (const std::exception&) {
      // No agent runs: it reads the devices when it starts.
    }
    if (options.json)
      return printJSONLine({{"paired", device.identity.name},
                            {"kind", std::string(displayName(device.kind))},
                            {"pairingID", base64Text(device.pairingID)}});
    std::cout << "Paired with " << printable(device.identity.name) << " ("
              << displayName(device.kind)
              << "). It approves for every key that allows approval elsewhere; "
                 "quorvane devices allow narrows that.\n";
  });
}

// --- approver pair -------------------------------------------------------------------------

std::optional<std::string> macConflict(const std::vector<PairedMac>& macs, const PairedMac& mac) {
  for (const PairedMac& paired : macs) {
    if (paired.identity.signingKey == mac.identity.signingKey)
      return "this computer is already paired as “" + printable(paired.identity.name) +
             "”; remove that pairing first with quorvane approver unpair " +
             printable(paired.identity.name);
    if (paired.identity.name == mac.identity.name)
      return "a computer named “" + printable(mac.identity.name) +
             "” is already paired; choose another name with --name";
  }
  return std::nullopt;
}

PairingCode codeFromOptionsOrInput(const PairOptions& options) {
  if (!options.code.empty()) return parsePairingCode(options.code);
  if (::isatty(STDIN_FILENO)) std::cerr << "Pairing code: " << std::flush;
  std::optional<SecureBytes> line = SecureBytes::readLine(std::cin);
  if (!line || line->empty())
    throw CommandFailure(
        "give the pairing code that the other computer shows, as an argument "
        "or on standard input");
  return parsePairingCode(line->text());
}

// How to trust the code's relay: this home's certificate authorities when its relay setting
// names the same relay (a relay with a private authority), else the system's.
RelayEndpoint endpointFor(const SupportState& support, const std::string& relayURL) {
  std::optional<RelaySetting> setting;
  try {
    setting = loadRelaySetting(support);
  } catch (const std::exception&) {
  }
  if (setting && setting->baseURL == relayURL) return RelayEndpoint{relayURL, setting->caFile, {}};
  return RelayEndpoint{relayURL, std::nullopt, {}};
}

void pairWithComputer() {
  const PairOptions& options = approverOptions;
  PairingCode code;
  reportingFailures([&] { code = codeFromOptionsOrInput(options); });
  SupportState support = SupportState::open();
  if (!options.name.empty()) {
    PairedMac named;
    named.identity.name = options.name;
    if (auto conflict = macConflict(loadPairedMacs(support), named))
      throw CommandFailure(*conflict);
  }
  const DeviceKeys keys = loadOrCreateDeviceKeys(*support.keychain, thisComputerName());
  RelayClient relay(endpointFor(support, code.relayURL));
  SystemClock clock;
  const NowFunction now = [&clock] { return clock.now(); };
  InterruptWatch& interrupt = interruptWatch();

  reportingFailures([&] {
    const std::stop_token stop = interrupt.token();
    const MailboxCredentials mailbox =
        ownMailbox(relay, *support.keychain, code.relayURL, MailboxRole::approving, stop);
    const PendingPairing pending =
        joinPairing(relay, code, keys, DeviceKind::mac, mailbox, now, stop);
    PairedMac mac = pairedMacOf(pending, now());
    if (!options.name.empty()) mac.identity.name = options.name;
    const std::string other =
        "Offered by “" + printable(pending.offer.macIdentity.name) + "” at " + code.relayURL + ".";
    if (!sameCodeConfirmed(pending.sas, other, options, stop)) {
      abandonJoinedPairing(relay, mailbox, pending);
      throw notConfirmed(interrupt);
    }
    interrupt.stopWaiting();
    std::vector<PairedMac> macs = loadPairedMacs(support);
    if (auto conflict = macConflict(macs, mac)) {
      abandonJoinedPairing(relay, mailbox, pending);
      throw CommandFailure(*conflict);
    }
    macs.push_back(mac);
    savePairedMacs(support, macs);
    if (options.json)
      return printJSONLine({{"paired", mac.identity.name},
                            {"relayURL", mac.relayURL},
                            {"pairingID", base64Text(mac.pairingID)}});
    std::cout << "Paired with " << printable(mac.identity.name)
              << ". Its requests arrive while quorvane approver watch runs.\n";
  });
}

void addOptions(CLI::App* command, PairOptions& options, const std::string& nameHelp) {
  command->add_option("--name", options.name, nameHelp);
  command->add_flag("--yes", options.yes,
                    "store the pairing without asking whether both screens show the same code "
                    "(for scripts; compare the codes yourself)");
  command->add_flag("--json", options.json,
                    "print one JSON object a line for scripts: the code or the comparison code "
                    "as it is known, then the result");
}

}  // namespace

void addDevicesPairCommand(CLI::App& devices) {
  CLI::App* pair = devices.add_subcommand("pair", "pair a device that approves for this computer");
  pair->footer(
      "Needs a relay (quorvane remote relay URL, over https). Prints a pairing code, and a QR code "
      "on a terminal; give it to the other computer (quorvane approver pair CODE) within 5 "
      "minutes. Both sides then show the same six-digit code: answer y only if they match.");
  addOptions(pair, deviceOptions, "the name this computer shows for the device (default: its own)");
  pair->callback(pairDevice);
}

void addApproverPairCommand(CLI::App& approver) {
  CLI::App* pair =
      approver.add_subcommand("pair", "pair with a computer whose requests this one approves");
  pair->add_option("CODE", approverOptions.code,
                   "the code that quorvane devices pair shows (default: one line of standard "
                   "input)");
  pair->footer(
      "Uses this home's keys and its own mailbox on the code's relay. A relay with a private "
      "certificate authority is trusted when this home's relay setting (quorvane remote relay "
      "URL --ca-file FILE) names the same URL. Both sides show the same six-digit code: answer y "
      "only if they match.");
  addOptions(pair, approverOptions,
             "the name this side shows for the computer (default: the name it sends)");
  pair->callback(pairWithComputer);
}

}  // namespace quorvane::cli

#pragma once

#include <string_view>

namespace quorvane {

// The fixed labels of the approval protocol. Each sealed or signed object carries one: its UTF-8
// bytes come first in what is signed and in the HPKE info, so that an object made for one purpose
// never verifies or opens as another. The texts are part of the wire format and must not change.
inline constexpr std::string_view kQAPRequestLabel = "QAP1 request";
inline constexpr std::string_view kQAPResponseLabel = "QAP1 response";
inline constexpr std::string_view kQAPUnpairLabel = "QAP1 unpair";
inline constexpr std::string_view kQAPUnpairFromMacLabel = "QAP1 unpair from mac";
// The trailing blank belongs to the label.
inline constexpr std::string_view kQAPPairingOfferLabel = "QAP1 pairing offer ";
inline constexpr std::string_view kQAPPairingReplyLabel = "QAP1 pairing reply";
inline constexpr std::string_view kQAPPairingChallengeLabel = "QAP1 pairing challenge";
inline constexpr std::string_view kQAPPairingRevealLabel = "QAP1 pairing reveal";
inline constexpr std::string_view kQAPPairingNonceLabel = "QAP1 pairing nonce";
inline constexpr std::string_view kQAPPairingTranscriptLabel = "QAP1 pairing v2";
inline constexpr std::string_view kQAPShortAuthenticationStringLabel = "QAP1 sas v2";
// A request settled elsewhere (on this computer, or by another device), sent to the devices that
// were asked, so that they stop showing it.
inline constexpr std::string_view kQAPResolvedLabel = "QAP1 resolved";

}  // namespace quorvane

// The pairing code text parser on arbitrary text: it throws only PairingError or QAPFailure, and
// a code it accepts is written back to a text that reads as the same code.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "ApprovalProto/QAPFailure.h"
#include "Pairing/PairingCode.h"
#include "Pairing/PairingError.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const PairingCode code = parsePairingCode(text);
    if (!(parsePairingCode(pairingCodeText(code).text()) == code)) std::abort();
  } catch (const PairingError&) {
  } catch (const QAPFailure&) {
  }
  return 0;
}

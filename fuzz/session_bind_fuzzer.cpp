// Decodes arbitrary bytes as session-bind extension contents and records the result on a
// connection's bindings. Only WireError and BindError may come out.
#include <cstdint>

#include "SSHWire/ConnectionBindings.h"
#include "SSHWire/SessionBind.h"
#include "SSHWire/WireError.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  try {
    SessionBind bind = SessionBind::parse(ByteView(data, size));
    ConnectionBindings bindings;
    bindings.record(bind);
    bindings.verdict(SignPurpose::UserAuth{bind.sessionID, "", "", "", {}, bind.hostKey.blob});
  } catch (const WireError&) {
  } catch (const ConnectionBindings::BindError&) {
  }
  return 0;
}

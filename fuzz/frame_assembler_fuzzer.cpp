// Feeds arbitrary bytes to the frame assembler in pieces whose sizes the input chooses, as a
// socket may deliver them. Whole frames come out in order and unchanged; after a length no frame
// may have, nothing more comes out.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "SSHWire/FrameAssembler.h"
#include "SSHWire/Framing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  if (size == 0) return 0;
  // The first byte sets the piece size; the rest is what the client sent.
  const size_t piece = data[0] % 64 + 1;
  const ByteView sent(data + 1, size - 1);
  FrameAssembler assembler;
  Bytes reassembled;
  for (size_t offset = 0; offset < sent.size(); offset += piece) {
    assembler.append(sent.subspan(offset, std::min(piece, sent.size() - offset)));
    while (std::optional<Bytes> body = assembler.next()) {
      const Bytes framed = Framing::frame(*body);
      reassembled.insert(reassembled.end(), framed.begin(), framed.end());
    }
    if (assembler.status() == FrameAssembler::Status::invalid) break;
  }
  // What came out is exactly the start of what was sent.
  if (reassembled.size() > sent.size() ||
      !std::equal(reassembled.begin(), reassembled.end(), sent.begin()))
    std::abort();
  return 0;
}

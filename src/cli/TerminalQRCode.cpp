#include "cli/TerminalQRCode.h"

#include <qrencode.h>

#include <memory>

namespace quorvane::cli {
namespace {

// Modules of light margin around the code; scanners need some to find its edges.
constexpr int kQuietZone = 2;

struct QRcodeDeleter {
  void operator()(QRcode* code) const { QRcode_free(code); }
};

}  // namespace

std::optional<std::string> terminalQRCode(std::string_view text) {
  const std::string owned(text);
  std::unique_ptr<QRcode, QRcodeDeleter> code(
      QRcode_encodeString(owned.c_str(), 0, QR_ECLEVEL_L, QR_MODE_8, 1));
  if (!code) return std::nullopt;
  const int width = code->width;
  auto dark = [&](int x, int y) {
    x -= kQuietZone;
    y -= kQuietZone;
    if (x < 0 || y < 0 || x >= width || y >= width) return false;
    return (code->data[y * width + x] & 1) != 0;
  };
  const int side = width + 2 * kQuietZone;
  std::string out;
  for (int y = 0; y < side; y += 2) {
    out += "\x1b[30;47m";  // black on white, whatever the terminal's own colours
    for (int x = 0; x < side; ++x) {
      const bool top = dark(x, y);
      const bool bottom = y + 1 < side && dark(x, y + 1);
      out += top && bottom ? "\u2588" : top ? "\u2580" : bottom ? "\u2584" : " ";
    }
    out += "\x1b[0m\n";
  }
  return out;
}

}  // namespace quorvane::cli

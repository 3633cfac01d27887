#pragma once

#include <termios.h>
#include <unistd.h>

#include <optional>
#include <string>

namespace quorvane::cli {

// Lines typed on standard input, read only when poll says something is there, so that a watch can
// listen to its source of requests and to the keyboard at once.
class TypedLines {
 public:
  // Reads what is available; false at the end of input.
  bool read() {
    char chunk[256];
    const ssize_t count = ::read(STDIN_FILENO, chunk, sizeof chunk);
    if (count <= 0) return false;
    pending_.append(chunk, static_cast<size_t>(count));
    return true;
  }
  bool hasLine() const { return pending_.find('\n') != std::string::npos; }
  // A whole line typed so far, without its newline.
  std::optional<std::string> line() {
    const size_t end = pending_.find('\n');
    if (end == std::string::npos) return std::nullopt;
    std::string text = pending_.substr(0, end);
    pending_.erase(0, end + 1);
    return text;
  }
  // Forgets what was typed before now, also what the terminal holds unread: an answer belongs to
  // the request it was typed for.
  void discard() {
    if (::isatty(STDIN_FILENO)) ::tcflush(STDIN_FILENO, TCIFLUSH);
    pending_.clear();
  }

 private:
  std::string pending_;
};

}  // namespace quorvane::cli

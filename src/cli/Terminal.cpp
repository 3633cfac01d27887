#include "cli/Terminal.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

namespace quorvane::cli {

std::optional<SecureBytes> readSecretFromTerminal(const std::string& prompt) {
  if (!::isatty(STDIN_FILENO)) return std::nullopt;
  std::fprintf(stderr, "%s", prompt.c_str());
  std::fflush(stderr);
  termios saved{};
  ::tcgetattr(STDIN_FILENO, &saved);
  termios quiet = saved;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);

  SecureBytes line(1024);
  size_t length = 0;
  bool ok = false;
  char c = 0;
  while (::read(STDIN_FILENO, &c, 1) == 1) {
    if (c == '\n' || c == '\r') {
      ok = true;
      break;
    }
    if (length == line.size()) break;
    line.data()[length++] = static_cast<uint8_t>(c);
  }
  ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
  std::fprintf(stderr, "\n");
  if (!ok) return std::nullopt;
  return SecureBytes(line.view().first(length));
}

std::optional<SecureBytes> answerPresencePrompt(const PresencePrompt& prompt) {
  const std::string text = printable(prompt.text);
  if (!prompt.asks()) {
    std::fprintf(stderr, "%s\n", text.c_str());
    return std::nullopt;
  }
  if (prompt.style == PresencePrompt::Style::secret && ::isatty(STDIN_FILENO))
    return readSecretFromTerminal(text);
  std::fprintf(stderr, "%s", text.c_str());
  std::fflush(stderr);
  std::optional<SecureBytes> answer = SecureBytes::readLine(std::cin);
  if (prompt.style == PresencePrompt::Style::secret) std::fprintf(stderr, "\n");
  return answer;
}

std::string printable(std::string text) {
  for (char& c : text)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
  return text;
}

}  // namespace quorvane::cli

#include "Platform/GraphicalSession.h"

#include <algorithm>
#include <cstdlib>

#include "Platform/RunProgram.h"

namespace quorvane {
namespace {

bool isSessionVariable(std::string_view name) {
  return std::ranges::find(kSessionVariables, name) != std::end(kSessionVariables);
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The text of a $'…' value (without $' and '): nothing when it is not well formed.
std::optional<std::string> unquoteANSIC(std::string_view quoted) {
  std::string value;
  for (size_t i = 0; i < quoted.size(); ++i) {
    const char c = quoted[i];
    if (c == '\'') return std::nullopt;  // an unescaped quote inside the value
    if (c != '\\') {
      value += c;
      continue;
    }
    if (++i == quoted.size()) return std::nullopt;
    switch (quoted[i]) {
      case 'n': value += '\n'; break;
      case 't': value += '\t'; break;
      case 'r': value += '\r'; break;
      case '\\': value += '\\'; break;
      case '\'': value += '\''; break;
      case '"': value += '"'; break;
      case 'x': {
        if (i + 2 >= quoted.size()) return std::nullopt;
        const int high = hexDigit(quoted[i + 1]), low = hexDigit(quoted[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        value += static_cast<char>(high * 16 + low);
        i += 2;
        break;
      }
      default: return std::nullopt;
    }
  }
  return value;
}

}  // namespace

SessionEnvironment parseManagerEnvironment(std::string_view output) {
  SessionEnvironment variables;
  while (!output.empty()) {
    const size_t end = output.find('\n');
    std::string_view line = output.substr(0, end);
    output = end == std::string_view::npos ? std::string_view() : output.substr(end + 1);
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string_view name = line.substr(0, equals);
    if (!isSessionVariable(name)) continue;
    std::string_view raw = line.substr(equals + 1);
    std::optional<std::string> value;
    if (raw.size() >= 3 && raw.starts_with("$'") && raw.ends_with('\''))
      value = unquoteANSIC(raw.substr(2, raw.size() - 3));
    else if (raw.find_first_of("'\\") == std::string_view::npos)
      value = std::string(raw);
    if (value && !value->empty() && value->find('\0') == std::string::npos)
      variables[std::string(name)] = *value;
  }
  return variables;
}

SessionEnvironment ownSessionEnvironment() {
  SessionEnvironment variables;
  for (std::string_view name : kSessionVariables)
    if (const char* value = std::getenv(std::string(name).c_str()); value && *value)
      variables[std::string(name)] = value;
  return variables;
}

std::optional<SessionEnvironment> graphicalSession(const std::optional<SessionEnvironment>& manager,
                                                   const SessionEnvironment& own) {
  SessionEnvironment session;
  for (std::string_view name : kSessionVariables) {
    const std::string key(name);
    if (manager && manager->contains(key))
      session[key] = manager->at(key);
    else if (own.contains(key))
      session[key] = own.at(key);
  }
  if (!session.contains("DISPLAY") && !session.contains("WAYLAND_DISPLAY")) return std::nullopt;
  return session;
}

std::optional<SessionEnvironment> readManagerEnvironment() {
  ProgramResult result =
      runProgram({"systemctl", "--user", "show-environment"}, std::chrono::seconds(2));
  if (result.exitCode != 0) return std::nullopt;
  return parseManagerEnvironment(result.output);
}

}  // namespace quorvane

#include "Diagnostics/ProbeParsing.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "SSHWire/AgentMessageType.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"

namespace quorvane {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view trim(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

// Splits one ssh_config line into its keyword and the rest ("Host=a b", "Host a b").
std::pair<std::string_view, std::string_view> keywordAndRest(std::string_view line) {
  line = trim(line);
  size_t end = 0;
  while (end < line.size() && !isBlank(line[end]) && line[end] != '=') ++end;
  std::string_view keyword = line.substr(0, end);
  std::string_view rest = trim(line.substr(end));
  if (!rest.empty() && rest.front() == '=') rest = trim(rest.substr(1));
  return {keyword, rest};
}

// The arguments of a line: separated by blanks, a double-quoted argument may hold blanks.
std::vector<std::string> arguments(std::string_view rest) {
  std::vector<std::string> found;
  size_t at = 0;
  while (at < rest.size()) {
    while (at < rest.size() && isBlank(rest[at])) ++at;
    if (at == rest.size()) break;
    std::string argument;
    if (rest[at] == '"') {
      size_t close = rest.find('"', at + 1);
      if (close == std::string_view::npos) return found;  // unbalanced: ssh refuses the line
      argument = std::string(rest.substr(at + 1, close - at - 1));
      at = close + 1;
    } else {
      size_t end = at;
      while (end < rest.size() && !isBlank(rest[end])) ++end;
      argument = std::string(rest.substr(at, end - at));
      at = end;
    }
    if (!argument.empty()) found.push_back(std::move(argument));
  }
  return found;
}

bool isNamedHost(std::string_view pattern) {
  return pattern.find_first_of("*?!,") == std::string_view::npos;
}

template <typename Visit>
void forEachLine(std::string_view text, Visit visit) {
  while (!text.empty()) {
    size_t newline = text.find('\n');
    visit(text.substr(0, newline));
    if (newline == std::string_view::npos) break;
    text.remove_prefix(newline + 1);
  }
}

std::optional<int> digits(std::string_view text, size_t count) {
  if (text.size() != count) return std::nullopt;
  int value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  return value;
}

std::string decodeDollarQuoted(std::string_view quoted) {
  std::string value;
  for (size_t i = 0; i < quoted.size(); ++i) {
    if (quoted[i] != '\\' || i + 1 == quoted.size()) {
      value += quoted[i];
      continue;
    }
    char next = quoted[++i];
    value += next == 'n' ? '\n' : next == 't' ? '\t' : next;
  }
  return value;
}

}  // namespace

std::vector<std::string> namedHosts(std::string_view configText) {
  std::vector<std::string> hosts;
  forEachLine(configText, [&](std::string_view line) {
    auto [keyword, rest] = keywordAndRest(line);
    if (!equalsIgnoringCase(keyword, "Host")) return;
    for (std::string& pattern : arguments(rest))
      if (isNamedHost(pattern) && std::ranges::find(hosts, pattern) == hosts.end())
        hosts.push_back(std::move(pattern));
  });
  return hosts;
}

std::optional<std::string> identityAgentLine(std::string_view sshGOutput) {
  std::optional<std::string> value;
  forEachLine(sshGOutput, [&](std::string_view line) {
    constexpr std::string_view kKey = "identityagent ";
    if (!value && line.starts_with(kKey)) value = std::string(trim(line.substr(kKey.size())));
  });
  return value;
}

std::optional<std::string> environmentValue(std::string_view output, std::string_view name) {
  std::optional<std::string> value;
  forEachLine(output, [&](std::string_view line) {
    if (value || line.size() <= name.size() || !line.starts_with(name) || line[name.size()] != '=')
      return;
    std::string_view raw = line.substr(name.size() + 1);
    if (raw.size() >= 3 && raw.starts_with("$'") && raw.ends_with("'"))
      value = decodeDollarQuoted(raw.substr(2, raw.size() - 3));
    else
      value = std::string(raw);
  });
  return value;
}

std::optional<size_t> identitiesAnswerCount(ByteView body) {
  try {
    WireReader reader(body);
    if (reader.readByte() != static_cast<uint8_t>(AgentMessageType::identitiesAnswer))
      return std::nullopt;
    uint32_t count = reader.readUInt32();
    // Each pair takes at least 8 bytes, so a count beyond that is a lie; checked before looping.
    if (count > reader.remaining() / 8) return std::nullopt;
    for (uint32_t i = 0; i < count; ++i) {
      reader.readStringView();
      reader.readStringView();
    }
    reader.expectEnd();
    return count;
  } catch (const WireError&) {
    return std::nullopt;
  }
}

std::optional<Date> parseHTTPDate(std::string_view text) {
  // "Sun, 06 Nov 1994 08:49:37 GMT": fixed positions, 29 characters.
  static constexpr std::array<std::string_view, 7> kDays = {"Mon", "Tue", "Wed", "Thu",
                                                            "Fri", "Sat", "Sun"};
  static constexpr std::array<std::string_view, 12> kMonths = {
      "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  if (text.size() != 29 || text.substr(3, 2) != ", " || text[7] != ' ' || text[11] != ' ' ||
      text[16] != ' ' || text[19] != ':' || text[22] != ':' || text[25] != ' ')
    return std::nullopt;
  if (std::ranges::find(kDays, text.substr(0, 3)) == kDays.end()) return std::nullopt;
  auto month = std::ranges::find(kMonths, text.substr(8, 3));
  std::string_view zone = text.substr(26);
  auto day = digits(text.substr(5, 2), 2), year = digits(text.substr(12, 4), 4),
       hour = digits(text.substr(17, 2), 2), minute = digits(text.substr(20, 2), 2),
       second = digits(text.substr(23, 2), 2);
  if (month == kMonths.end() || (zone != "GMT" && zone != "UTC") || !day || !year || !hour ||
      !minute || !second)
    return std::nullopt;
  char iso[32];
  std::snprintf(iso, sizeof iso, "%04d-%02d-%02dT%02d:%02d:%02dZ", *year,
                static_cast<int>(month - kMonths.begin()) + 1, *day, *hour, *minute, *second);
  return Date::parseISO8601(iso);
}

}  // namespace quorvane

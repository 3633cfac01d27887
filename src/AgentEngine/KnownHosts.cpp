#include "AgentEngine/KnownHosts.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

#include "Base/Base64.h"
#include "Crypto/HMAC.h"

namespace quorvane {
namespace {

std::string lowercase(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

// Glob matching with '*' (any run) and '?' (one character), as OpenSSH matches host patterns.
bool globMatches(std::string_view pattern, std::string_view text) {
  size_t p = 0, t = 0, starP = std::string_view::npos, starT = 0;
  while (t < text.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
      ++p, ++t;
    } else if (p < pattern.size() && pattern[p] == '*') {
      starP = p++, starT = t;
    } else if (starP != std::string_view::npos) {
      p = starP + 1, t = ++starT;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

bool isLiteral(std::string_view pattern) {
  return !pattern.empty() && pattern.front() != '!' &&
         pattern.find_first_of("*?") == std::string_view::npos;
}

std::vector<std::string_view> splitFields(std::string_view line) {
  std::vector<std::string_view> fields;
  size_t at = 0;
  while (at < line.size()) {
    while (at < line.size() && (line[at] == ' ' || line[at] == '\t')) ++at;
    size_t end = at;
    while (end < line.size() && line[end] != ' ' && line[end] != '\t') ++end;
    if (end > at) fields.push_back(line.substr(at, end - at));
    at = end;
  }
  return fields;
}

std::optional<KnownHostsEntry> parseLine(std::string_view line) {
  auto fields = splitFields(line);
  if (fields.empty() || fields[0].front() == '#' || fields[0].front() == '@') return std::nullopt;
  if (fields.size() < 3) return std::nullopt;
  auto blob = base64Decode(fields[2]);
  if (!blob || blob->empty()) return std::nullopt;

  KnownHostsEntry entry;
  entry.keyBlob = std::move(*blob);
  std::string_view names = fields[0];
  if (names.starts_with("|1|")) {
    std::string_view rest = names.substr(3);
    size_t bar = rest.find('|');
    if (bar == std::string_view::npos) return std::nullopt;
    auto salt = base64Decode(rest.substr(0, bar));
    auto hash = base64Decode(rest.substr(bar + 1));
    if (!salt || !hash || salt->size() != 20 || hash->size() != 20) return std::nullopt;
    entry.hashSalt = std::move(*salt);
    entry.hashedName = std::move(*hash);
    return entry;
  }
  size_t at = 0;
  while (at <= names.size()) {
    size_t comma = std::min(names.find(',', at), names.size());
    if (comma > at) entry.patterns.push_back(lowercase(names.substr(at, comma - at)));
    at = comma + 1;
  }
  if (entry.patterns.empty()) return std::nullopt;
  return entry;
}

}  // namespace

bool KnownHostsEntry::names(std::string_view host) const {
  if (!hashedName.empty())
    return crypto::hmac(crypto::HashAlgorithm::sha1, hashSalt, bytesOf(host)) == hashedName;
  bool matched = false;
  for (const std::string& pattern : patterns) {
    bool negated = pattern.front() == '!';
    std::string_view body = negated ? std::string_view(pattern).substr(1) : pattern;
    if (!globMatches(body, host)) continue;
    if (negated) return false;
    matched = true;
  }
  return matched;
}

std::vector<KnownHostsEntry> parseKnownHosts(std::string_view text) {
  std::vector<KnownHostsEntry> entries;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = std::min(text.find('\n', at), text.size());
    std::string_view line = text.substr(at, end - at);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (auto entry = parseLine(line)) entries.push_back(std::move(*entry));
    at = end + 1;
  }
  return entries;
}

KnownHostsResolver::KnownHostsResolver(std::vector<std::filesystem::path> files)
    : files_(std::move(files)) {}

void KnownHostsResolver::refreshLocked() {
  std::string signature;
  for (const auto& file : files_) {
    std::error_code error;
    auto size = std::filesystem::file_size(file, error);
    auto time = std::filesystem::last_write_time(file, error);
    if (!error)
      signature += file.string() + ":" + std::to_string(size) + ":" +
                   std::to_string(time.time_since_epoch().count()) + ";";
  }
  if (signature == signature_ && !signature.empty()) return;
  signature_ = signature;
  entries_.clear();
  for (const auto& file : files_) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) continue;
    std::ostringstream text;
    text << stream.rdbuf();
    auto more = parseKnownHosts(text.str());
    std::move(more.begin(), more.end(), std::back_inserter(entries_));
  }
}

std::vector<std::string> KnownHostsResolver::names(ByteView hostKeyBlob) {
  std::lock_guard lock(mutex_);
  refreshLocked();
  std::vector<std::string> found;
  for (const auto& entry : entries_) {
    if (!std::ranges::equal(entry.keyBlob, hostKeyBlob)) continue;
    if (std::ranges::any_of(entry.patterns, [](const auto& p) { return p.front() == '!'; }))
      continue;
    for (const std::string& pattern : entry.patterns)
      if (isLiteral(pattern) && std::ranges::find(found, pattern) == found.end())
        found.push_back(pattern);
  }
  return found;
}

HostNameMatch KnownHostsResolver::check(std::string_view name, ByteView hostKeyBlob) {
  std::lock_guard lock(mutex_);
  refreshLocked();
  const std::string host = lowercase(name);
  HostNameMatch result = HostNameMatch::notRecorded;
  for (const auto& entry : entries_) {
    if (!entry.names(host)) continue;
    if (std::ranges::equal(entry.keyBlob, hostKeyBlob)) return HostNameMatch::recorded;
    result = HostNameMatch::otherKeyOnly;
  }
  return result;
}

}  // namespace quorvane

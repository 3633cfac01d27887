// The PEM armour reader (KeyImporter::pemBlocks).
#include <optional>
#include <string>

#include "Base/Base64.h"
#include "KeyImport/KeyImporter.h"
#include "KeyImport/TextScanning.h"

namespace quorvane::KeyImporter {
namespace {

constexpr std::string_view kBeginPrefix = "-----BEGIN ";
constexpr std::string_view kArmourDashes = "-----";

// Hands out the lines of a text one at a time; "\n", "\r\n" and "\r" all end a line, and the text
// after the last line break is a line too (possibly empty).
class LineCursor {
 public:
  explicit LineCursor(std::string_view text) : text_(text) {}

  std::optional<std::string_view> next() {
    if (done_) return std::nullopt;
    const size_t end = text_.find_first_of("\r\n", position_);
    if (end == std::string_view::npos) {
      done_ = true;
      return text_.substr(position_);
    }
    std::string_view line = text_.substr(position_, end - position_);
    position_ = end + 1;
    if (text_[end] == '\r' && position_ < text_.size() && text_[position_] == '\n') ++position_;
    return line;
  }

 private:
  std::string_view text_;
  size_t position_ = 0;
  bool done_ = false;
};

// The label of a BEGIN line ("-----BEGIN " label "-----", at least one character of label).
std::optional<std::string_view> beginLabel(std::string_view line) {
  if (line.size() < kBeginPrefix.size() + 1 + kArmourDashes.size() ||
      !line.starts_with(kBeginPrefix) || !line.ends_with(kArmourDashes))
    return std::nullopt;
  return line.substr(kBeginPrefix.size(), line.size() - kBeginPrefix.size() - kArmourDashes.size());
}

// Reads the rest of a block after its BEGIN line, up to and including its END line.
PEMBlock readBlock(LineCursor& lines, std::string_view label) {
  const std::string endLine = "-----END " + std::string(label) + "-----";
  PEMBlock block{std::string(label), {}, {}};
  // Wiping storage: the text is the base64 of a private key.
  SecureBytes base64;
  bool inHeaders = true;
  while (auto raw = lines.next()) {
    const std::string_view line = trimSpacesAndTabs(*raw);
    if (line == endLine) {
      auto body = base64Decode(base64.text());
      if (!body || body->empty()) throw KeyImportError::malformed();
      block.body = SecureBytes::adopt(*body);
      return block;
    }
    if (line.starts_with(kArmourDashes)) throw KeyImportError::malformed();
    if (inHeaders) {
      if (line.empty()) {
        inHeaders = false;
        continue;
      }
      const size_t colon = line.find(':');
      if (colon != std::string_view::npos) {
        block.headers[std::string(trimSpacesAndTabs(line.substr(0, colon)))] =
            std::string(trimSpacesAndTabs(line.substr(colon + 1)));
        continue;
      }
      inHeaders = false;
    }
    base64.append(line);
  }
  throw KeyImportError::malformed();
}

}  // namespace

std::vector<PEMBlock> pemBlocks(std::string_view text) {
  std::vector<PEMBlock> blocks;
  LineCursor lines(text);
  while (auto raw = lines.next()) {
    if (auto label = beginLabel(trimSpacesAndTabs(*raw)))
      blocks.push_back(readBlock(lines, *label));
  }
  return blocks;
}

}  // namespace quorvane::KeyImporter

#include "ControlProtocol/PromptReply.h"

#include <algorithm>
#include <optional>

#include "Base/DecodingError.h"

namespace quorvane {
namespace {

[[noreturn]] void corrupted(const std::string& why) {
  throw DecodingError::dataCorrupted("promptReply", why);
}

// Reads the reply's tokens; every read checks what remains first.
class Cursor {
 public:
  explicit Cursor(ByteView text) : text_(text) {}

  void skipSpace() {
    while (position_ < text_.size() && (text_[position_] == ' ' || text_[position_] == '\t' ||
                                        text_[position_] == '\r' || text_[position_] == '\n'))
      ++position_;
  }
  bool atEnd() const { return position_ == text_.size(); }
  uint8_t take() {
    if (position_ >= text_.size()) corrupted("the reply ends too early");
    return text_[position_++];
  }
  void expect(char c) {
    if (take() != static_cast<uint8_t>(c)) corrupted(std::string("expected ") + c);
  }
  bool peekIs(char c) const {
    return position_ < text_.size() && text_[position_] == static_cast<uint8_t>(c);
  }

  // A JSON string, decoded into `out` (at least as long as the rest of the text); its length.
  size_t readString(uint8_t* out) {
    expect('"');
    size_t length = 0;
    for (;;) {
      uint8_t c = take();
      if (c == '"') return length;
      if (c < 0x20) corrupted("a control character in a string");
      if (c != '\\') {
        out[length++] = c;
        continue;
      }
      switch (take()) {
        case '"': out[length++] = '"'; break;
        case '\\': out[length++] = '\\'; break;
        case '/': out[length++] = '/'; break;
        case 'b': out[length++] = '\b'; break;
        case 'f': out[length++] = '\f'; break;
        case 'n': out[length++] = '\n'; break;
        case 'r': out[length++] = '\r'; break;
        case 't': out[length++] = '\t'; break;
        case 'u': length += readEscapedCodePoint(out + length); break;
        default: corrupted("an unknown escape");
      }
    }
  }

 private:
  uint32_t readHex4() {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
      uint8_t c = take();
      uint32_t digit;
      if (c >= '0' && c <= '9')
        digit = c - '0';
      else if (c >= 'a' && c <= 'f')
        digit = c - 'a' + 10;
      else if (c >= 'A' && c <= 'F')
        digit = c - 'A' + 10;
      else
        corrupted("a bad \\u escape");
      value = value * 16 + digit;
    }
    return value;
  }

  // After "\u": one code point (a surrogate pair takes both escapes), written as UTF-8. Never
  // longer than the escape text it came from.
  size_t readEscapedCodePoint(uint8_t* out) {
    uint32_t point = readHex4();
    if (point >= 0xDC00 && point <= 0xDFFF) corrupted("a lone low surrogate");
    if (point >= 0xD800 && point <= 0xDBFF) {
      expect('\\');
      expect('u');
      uint32_t low = readHex4();
      if (low < 0xDC00 || low > 0xDFFF) corrupted("a high surrogate without its low half");
      point = 0x10000 + ((point - 0xD800) << 10) + (low - 0xDC00);
    }
    if (point < 0x80) {
      out[0] = static_cast<uint8_t>(point);
      return 1;
    }
    if (point < 0x800) {
      out[0] = static_cast<uint8_t>(0xC0 | (point >> 6));
      out[1] = static_cast<uint8_t>(0x80 | (point & 0x3F));
      return 2;
    }
    if (point < 0x10000) {
      out[0] = static_cast<uint8_t>(0xE0 | (point >> 12));
      out[1] = static_cast<uint8_t>(0x80 | ((point >> 6) & 0x3F));
      out[2] = static_cast<uint8_t>(0x80 | (point & 0x3F));
      return 3;
    }
    out[0] = static_cast<uint8_t>(0xF0 | (point >> 18));
    out[1] = static_cast<uint8_t>(0x80 | ((point >> 12) & 0x3F));
    out[2] = static_cast<uint8_t>(0x80 | ((point >> 6) & 0x3F));
    out[3] = static_cast<uint8_t>(0x80 | (point & 0x3F));
    return 4;
  }

  ByteView text_;
  size_t position_ = 0;
};

bool equals(const SecureBytes& scratch, size_t length, std::string_view text) {
  return length == text.size() && std::equal(text.begin(), text.end(), scratch.data());
}

}  // namespace

PromptReply parsePromptReply(ByteView line) {
  if (line.size() > kMaxPromptReplyLength) corrupted("the reply is too long");
  // Decoded strings are never longer than the line, so one scratch area of its size serves.
  SecureBytes scratch(line.size() + 1);
  Cursor cursor(line);
  std::optional<bool> cancelled;
  std::optional<SecureBytes> answer;

  cursor.skipSpace();
  cursor.expect('{');
  cursor.skipSpace();
  if (!cursor.peekIs('}')) {
    for (;;) {
      cursor.skipSpace();
      const size_t keyLength = cursor.readString(scratch.data());
      const bool isMessage = equals(scratch, keyLength, "message");
      const bool isAnswer = equals(scratch, keyLength, "answer");
      if (!isMessage && !isAnswer) corrupted("an unknown key");
      cursor.skipSpace();
      cursor.expect(':');
      cursor.skipSpace();
      const size_t valueLength = cursor.readString(scratch.data());
      if (isMessage) {
        if (cancelled) corrupted("a repeated key");
        if (equals(scratch, valueLength, "promptAnswer"))
          cancelled = false;
        else if (equals(scratch, valueLength, "promptCancel"))
          cancelled = true;
        else
          corrupted("not a prompt reply");
      } else {
        if (answer) corrupted("a repeated key");
        answer = SecureBytes(ByteView(scratch.data(), valueLength));
      }
      cursor.skipSpace();
      if (cursor.peekIs(',')) {
        cursor.take();
        continue;
      }
      break;
    }
  }
  cursor.expect('}');
  cursor.skipSpace();
  if (!cursor.atEnd()) corrupted("text after the reply");
  if (!cancelled) corrupted("no message");
  if (*cancelled && answer) corrupted("a cancel with an answer");
  if (!*cancelled && !answer) corrupted("an answer without its text");
  return {*cancelled, *cancelled ? SecureBytes() : std::move(*answer)};
}

SecureBytes encodePromptAnswer(ByteView answer) {
  static constexpr std::string_view kStart = "{\"message\":\"promptAnswer\",\"answer\":\"";
  static constexpr std::string_view kEnd = "\"}\n";
  static constexpr char kHex[] = "0123456789abcdef";
  SecureBytes line(kStart.size() + 6 * answer.size() + kEnd.size());
  size_t length = 0;
  auto put = [&](char c) { line.data()[length++] = static_cast<uint8_t>(c); };
  for (char c : kStart) put(c);
  for (uint8_t byte : answer) {
    if (byte == '"' || byte == '\\') {
      put('\\');
      put(static_cast<char>(byte));
    } else if (byte < 0x20 || byte == 0x7f) {
      for (char c : {'\\', 'u', '0', '0'}) put(c);
      put(kHex[byte >> 4]);
      put(kHex[byte & 0xF]);
    } else {
      put(static_cast<char>(byte));
    }
  }
  for (char c : kEnd) put(c);
  return SecureBytes(ByteView(line.data(), length));
}

}  // namespace quorvane

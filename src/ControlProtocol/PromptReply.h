#pragma once

#include <cstddef>
#include <string_view>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane {

// A frontend's reply to a prompt of a presence verification: one line on the control socket,
//
//   {"message": "promptAnswer", "answer": TEXT}    TEXT: a JSON string, what the person typed
//   {"message": "promptCancel"}                    no answer
//
// Whitespace may stand between tokens and the two keys may come in either order; nothing else is
// accepted (no other keys, no repeated key). The answer is decoded straight into wiping memory,
// which is why this line is not read with the general JSON parser. Bytes 0x80 and above pass
// through as they are; control characters must be escaped.
struct PromptReply {
  bool cancelled = false;
  SecureBytes answer;  // empty when cancelled
};

// Replies longer than this (before decoding) are refused.
inline constexpr size_t kMaxPromptReplyLength = 4096;

// The reply in `line` (without its newline). Throws DecodingError::dataCorrupted for anything
// that is not one of the two forms above, or is longer than kMaxPromptReplyLength.
PromptReply parsePromptReply(ByteView line);

// The reply line (with its newline) answering `answer`, in the form parsePromptReply reads.
SecureBytes encodePromptAnswer(ByteView answer);

// The reply line (with its newline) that gives no answer.
inline constexpr std::string_view kPromptCancelLine = "{\"message\":\"promptCancel\"}\n";

}  // namespace quorvane

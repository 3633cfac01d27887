#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane {

// Byte buffers are plain vectors everywhere; secrets use SecureBytes instead.
using Bytes = std::vector<uint8_t>;

// A read-only view of bytes owned elsewhere; it must not outlive its owner.
using ByteView = std::span<const uint8_t>;

// The bytes of a text, unchanged (UTF-8 stays UTF-8).
inline Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

// The text whose bytes these are, unchanged.
inline std::string textOf(ByteView bytes) { return std::string(bytes.begin(), bytes.end()); }

}  // namespace quorvane

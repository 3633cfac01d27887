#pragma once

// The object identifiers that key files carry, as DER contents octets; compared byte for byte.
#include <array>
#include <cstdint>
#include <span>

#include "Base/Bytes.h"

namespace quorvane::oid {

using Contents = std::span<const uint8_t>;

inline constexpr std::array<uint8_t, 9> kRSAEncryption = {
    0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x01, 0x01};  // 1.2.840.113549.1.1.1
inline constexpr std::array<uint8_t, 7> kECPublicKey = {0x2a, 0x86, 0x48, 0xce,
                                                        0x3d, 0x02, 0x01};  // 1.2.840.10045.2.1
inline constexpr std::array<uint8_t, 7> kPrimeField = {0x2a, 0x86, 0x48, 0xce,
                                                       0x3d, 0x01, 0x01};  // 1.2.840.10045.1.1
inline constexpr std::array<uint8_t, 8> kP256 = {0x2a, 0x86, 0x48, 0xce,
                                                 0x3d, 0x03, 0x01, 0x07};  // 1.2.840.10045.3.1.7
inline constexpr std::array<uint8_t, 5> kP384 = {0x2b, 0x81, 0x04, 0x00, 0x22};  // 1.3.132.0.34
inline constexpr std::array<uint8_t, 5> kP521 = {0x2b, 0x81, 0x04, 0x00, 0x23};  // 1.3.132.0.35
inline constexpr std::array<uint8_t, 3> kEd25519 = {0x2b, 0x65, 0x70};           // 1.3.101.112
inline constexpr std::array<uint8_t, 9> kPBES2 = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                                  0x0d, 0x01, 0x05, 0x0d};  // 1.2.840.113549.1.5.13
inline constexpr std::array<uint8_t, 9> kPBKDF2 = {
    0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x05, 0x0c};  // 1.2.840.113549.1.5.12
inline constexpr std::array<uint8_t, 8> kHMACWithSHA1 = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                                         0x0d, 0x02, 0x07};  // 1.2.840.113549.2.7
inline constexpr std::array<uint8_t, 8> kHMACWithSHA256 = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                                           0x0d, 0x02, 0x09};  // 1.2.840.113549.2.9
inline constexpr std::array<uint8_t, 8> kHMACWithSHA512 = {
    0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x02, 0x0b};  // 1.2.840.113549.2.11
inline constexpr std::array<uint8_t, 9> kAES128CBC = {
    0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x01, 0x02};  // 2.16.840.1.101.3.4.1.2
inline constexpr std::array<uint8_t, 9> kAES192CBC = {
    0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x01, 0x16};  // 2.16.840.1.101.3.4.1.22
inline constexpr std::array<uint8_t, 9> kAES256CBC = {
    0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x01, 0x2a};  // 2.16.840.1.101.3.4.1.42
inline constexpr std::array<uint8_t, 8> kDESEDE3CBC = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                                       0x0d, 0x03, 0x07};  // 1.2.840.113549.3.7

inline bool equal(ByteView contents, Contents identifier) {
  return contents.size() == identifier.size() &&
         std::equal(contents.begin(), contents.end(), identifier.begin());
}

}  // namespace quorvane::oid

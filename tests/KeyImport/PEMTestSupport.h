#pragma once

// Making PEM key files with openssl for the import tests.
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Bytes.h"

namespace quorvane::testing::pem {

inline constexpr std::string_view kPassphrase = "pem-secret";

// Runs command lines given as text (split at spaces) in the key directory: "{base}" and "{out}"
// stand for two files there, "{passfile}" for a file holding kPassphrase, "{pass}" for
// kPassphrase, and the word "{empty}" for an empty argument. Returns {out}.
std::filesystem::path makeFile(const std::vector<std::string>& commands);

inline const std::string kRSA =
    "openssl genpkey -quiet -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out {base}";
inline const std::string kP256 =
    "openssl genpkey -quiet -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out {base}";
inline const std::string kP384 =
    "openssl genpkey -quiet -algorithm EC -pkeyopt ec_paramgen_curve:P-384 -out {base}";
inline const std::string kEd25519 = "openssl genpkey -quiet -algorithm ED25519 -out {base}";

// The bytes of the first PEM block of `text`.
Bytes bodyOf(const std::string& text);

}  // namespace quorvane::testing::pem

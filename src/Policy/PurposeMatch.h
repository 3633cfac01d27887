#pragma once

#include <compare>
#include <optional>
#include <string>
#include <variant>

#include "Base/JSONReader.h"

namespace quorvane {

// Which request purposes a rule covers.
struct PurposeMatch {
  // Signature requests; only those of `namespace_` when it is present, else every namespace.
  struct Signature {
    std::optional<std::string> namespace_;

    friend bool operator==(const Signature&, const Signature&) = default;
    friend auto operator<=>(const Signature&, const Signature&) = default;
  };
  // Every purpose.
  struct Any {
    friend bool operator==(const Any&, const Any&) = default;
    friend auto operator<=>(const Any&, const Any&) = default;
  };
  // Logins only.
  struct Login {
    friend bool operator==(const Login&, const Login&) = default;
    friend auto operator<=>(const Login&, const Login&) = default;
  };
  // Requests of the purpose `other` only.
  struct Other {
    friend bool operator==(const Other&, const Other&) = default;
    friend auto operator<=>(const Other&, const Other&) = default;
  };

  std::variant<Signature, Any, Login, Other> value;

  static PurposeMatch signature(std::optional<std::string> namespace_ = std::nullopt);
  static PurposeMatch any();
  static PurposeMatch login();
  static PurposeMatch other();

  // Ordered (as well as compared) so that matches can be kept in sets and used as map keys.
  friend bool operator==(const PurposeMatch&, const PurposeMatch&) = default;
  friend auto operator<=>(const PurposeMatch&, const PurposeMatch&) = default;
};

// JSON form: an object with exactly one of the keys "signature", "any", "login", "other".
// "signature" holds an object with the optional "namespace" (left out when absent); the others
// hold an empty object. Decoding an object with none or several of the case keys is typeMismatch
// "Invalid number of keys found, expected one."; other keys are ignored.
JSON toJSON(const PurposeMatch& match);
PurposeMatch decodePurposeMatch(const JSONReader& reader);

}  // namespace quorvane

#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Base/Check.h"

namespace quorvane {

// One value of an enumeration with its raw name, the text that files and messages carry.
template <class Enum>
struct EnumName {
  Enum value;
  std::string_view name;
};

// The raw names of every value of an enumeration, in one constant table per enumeration:
//   constexpr EnumNames<GitHint, 2> kGitHintNames{"GitHint", {{{GitHint::fetch, "fetch"}, ...}}};
template <class Enum, size_t Count>
struct EnumNames {
  // The type's name as decoding errors give it.
  std::string_view typeName;
  std::array<EnumName<Enum>, Count> entries;

  // The raw name of `value`. A value missing from the table is a programmer error.
  constexpr std::string_view name(Enum value) const {
    for (const EnumName<Enum>& entry : entries)
      if (entry.value == value) return entry.name;
    checkFailed("name(value)", "every value of an enumeration has a raw name", __FILE__, __LINE__);
  }

  // The value whose raw name is `text`, if any.
  constexpr std::optional<Enum> value(std::string_view text) const {
    for (const EnumName<Enum>& entry : entries)
      if (entry.name == text) return entry.value;
    return std::nullopt;
  }

  // The value a JSON string names; anything else fails the reader (dataCorrupted). A template so
  // that error classes can hold a name table without the JSON reader (a JSONReader).
  template <class Reader>
  Enum decode(const Reader& reader) const {
    std::string text = reader.string();
    if (auto found = value(text)) return *found;
    reader.fail("Cannot initialize " + std::string(typeName) + " from invalid String value " +
                text);
  }
};

}  // namespace quorvane

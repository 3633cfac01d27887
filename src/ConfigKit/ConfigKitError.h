#pragma once

#include <cstddef>
#include <string>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class ConfigKitErrorKind {
  invalidHostPattern,      // an excluded host that ssh's Host line cannot carry
  invalidSocketPath,       // a socket path that ssh's config cannot carry
  malformedPublicKeyLine,  // a public key line without a type and a blob
  invalidPrincipal,        // an allowed-signers principal with spaces, quotes or controls
  diffTooLarge,            // the two texts are too long for a line-by-line preview
};

// The error of the configuration editors for input they cannot express or handle. File system
// failures are not ConfigKitErrors: they pass through as std::system_error or
// std::filesystem::filesystem_error with the system's description; a damaged undo record is a
// DecodingError.
class ConfigKitError : public KindedError<ConfigKitError, ConfigKitErrorKind> {
 public:
  static constexpr EnumNames<Kind, 5> kKindNames{
      "ConfigKitError",
      {{{Kind::invalidHostPattern, "invalidHostPattern"},
        {Kind::invalidSocketPath, "invalidSocketPath"},
        {Kind::malformedPublicKeyLine, "malformedPublicKeyLine"},
        {Kind::invalidPrincipal, "invalidPrincipal"},
        {Kind::diffTooLarge, "diffTooLarge"}}}};

  static ConfigKitError invalidHostPattern(const std::string& pattern);
  static ConfigKitError invalidSocketPath(const std::string& path);
  static ConfigKitError malformedPublicKeyLine();
  static ConfigKitError invalidPrincipal(const std::string& principal);
  static ConfigKitError diffTooLarge(size_t oldLines, size_t newLines);

 private:
  ConfigKitError(Kind kind, const std::string& message) : KindedError(kind, {}, message) {}
};

}  // namespace quorvane

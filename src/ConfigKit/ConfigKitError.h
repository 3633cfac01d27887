#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace quorvane {

// The error of the configuration editors for input they cannot express or handle. File system
// failures are not ConfigKitErrors: they pass through as std::system_error or
// std::filesystem::filesystem_error with the system's description; a damaged undo record is a
// DecodingError.
class ConfigKitError : public std::runtime_error {
 public:
  enum class Kind {
    invalidHostPattern,      // an excluded host that ssh's Host line cannot carry
    invalidSocketPath,       // a socket path that ssh's config cannot carry
    malformedPublicKeyLine,  // a public key line without a type and a blob
    invalidPrincipal,        // an allowed-signers principal with spaces, quotes or controls
    diffTooLarge,            // the two texts are too long for a line-by-line preview
  };

  static ConfigKitError invalidHostPattern(const std::string& pattern);
  static ConfigKitError invalidSocketPath(const std::string& path);
  static ConfigKitError malformedPublicKeyLine();
  static ConfigKitError invalidPrincipal(const std::string& principal);
  static ConfigKitError diffTooLarge(size_t oldLines, size_t newLines);

  Kind kind() const { return kind_; }

 private:
  ConfigKitError(Kind kind, const std::string& message)
      : std::runtime_error(message), kind_(kind) {}
  Kind kind_;
};

}  // namespace quorvane

#include "ConfigKit/ConfigKitError.h"

namespace quorvane {

ConfigKitError ConfigKitError::invalidHostPattern(const std::string& pattern) {
  return {Kind::invalidHostPattern,
          "“" + pattern +
              "” cannot be a host pattern (empty, or holds spaces, quotes, control "
              "characters or a leading !)"};
}

ConfigKitError ConfigKitError::invalidSocketPath(const std::string& path) {
  return {Kind::invalidSocketPath, "the socket path " + path +
                                       " cannot be written into an ssh config (quotes, \"${\" or "
                                       "control characters)"};
}

ConfigKitError ConfigKitError::malformedPublicKeyLine() {
  return {Kind::malformedPublicKeyLine, "the public key line has no key type and blob"};
}

ConfigKitError ConfigKitError::invalidPrincipal(const std::string& principal) {
  return {Kind::invalidPrincipal,
          "“" + principal +
              "” cannot be an allowed-signers principal (empty, or holds spaces, "
              "quotes or control characters)"};
}

ConfigKitError ConfigKitError::diffTooLarge(size_t oldLines, size_t newLines) {
  return {Kind::diffTooLarge, "the change is too large to preview line by line (" +
                                  std::to_string(oldLines) + " lines before, " +
                                  std::to_string(newLines) + " after)"};
}

}  // namespace quorvane

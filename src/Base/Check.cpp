#include "Base/Check.h"

#include <cstdio>
#include <cstdlib>

namespace quorvane {

void checkFailed(const char* condition, const char* why, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: check failed: %s (%s)\n", file, line, condition, why);
  std::abort();
}

}  // namespace quorvane

#include "kel/Errors.h"

#include <cstdio>
#include <cstdlib>

namespace Kel {

void assertionFailed(const char* condition, const char* where) {
  std::fprintf(stderr, "%s: assertion failed: %s\n", where, condition);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Kel

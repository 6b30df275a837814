#include "kel/Errors.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "kel/Trace.h"

namespace Kel {

// How many of the latest function entries a report shows.
static constexpr std::size_t entriesInReport = 24;

void assertionFailed(const char* condition, const char* where) {
  std::fprintf(stderr, "%s: assertion failed: %s\n", where, condition);
  std::ostringstream entries;
  TraceRing::write(entries, entriesInReport);
  std::fputs(entries.str().c_str(), stderr);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Kel

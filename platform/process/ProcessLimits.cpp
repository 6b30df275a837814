#include "process/ProcessLimits.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

namespace Process {
namespace {

// Made in advance.
char lastLine[200];
void (*reportLine)(const char* line) = nullptr;

[[noreturn]] void endForLackOfMemory() {
  if (const auto report = std::exchange(reportLine, nullptr)) {
    report(lastLine);
  } else {
    // Also if the report itself had no memory.
    [[maybe_unused]] const auto written = write(STDERR_FILENO, lastLine, std::strlen(lastLine));
  }
  _exit(outOfMemoryStatus);
}

}  // namespace

void raiseFileLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

void endWhenOutOfMemory(const char* program, void (*report)(const char* line)) {
  std::snprintf(lastLine, sizeof lastLine,
                "%s: out of memory; ending rather than serve half of a change: start it again, with more memory\n",
                program);
  reportLine = report;
  std::set_new_handler(endForLackOfMemory);
}

}  // namespace Process

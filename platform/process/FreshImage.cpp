#include "process/FreshImage.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iterator>

namespace Process::FreshImage {
namespace {

constexpr const char* variableName = "QUORIN_REPLACED_IMAGE=";

// All of this is outside the heap, which may be overwritten when it is used.
char* const* startArguments = nullptr;
char startDirectory[PATH_MAX];
char variable[64];
char* environment[4096];  // of the next image; its first entry is `variable`
bool isReplaced = false;
int keptFile = -1;

// With the pid, so that a program which inherits the variable does not mistake itself for a new image.
bool readVariable(const char* entry) {
  int pid = 0;
  return sscanf(entry + strlen(variableName), "%d %d", &pid, &keptFile) == 2 && pid == getpid();
}

void replaceAfterFault(int signal) {
  replace();
  ::signal(signal, SIG_DFL);
  raise(signal);
}

}  // namespace

void noteStart(char* const* arguments) {
  startArguments = arguments;
  if (getcwd(startDirectory, sizeof startDirectory) == nullptr) startDirectory[0] = '\0';
  std::size_t count = 0;
  environment[count++] = variable;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (strncmp(*entry, variableName, strlen(variableName)) == 0) {
      isReplaced = readVariable(*entry);
    } else if (count + 1 < std::size(environment)) {
      environment[count++] = *entry;
    }
  }
  if (!isReplaced) {
    keptFile = -1;
    return;
  }
  fcntl(keptFile, F_SETFD, FD_CLOEXEC);
  // The kernel named this image after the descriptor that it was started from.
  prctl(PR_SET_NAME, program_invocation_short_name);
}

bool isReplacement() {
  return isReplaced;
}

void keep(std::string_view bytes) {
  if (keptFile < 0) keptFile = memfd_create("kept", MFD_CLOEXEC);
  const bool isEmpty = ftruncate(keptFile, 0) == 0;
  // Without memory for it the next image gets no bytes.
  if (isEmpty && pwrite(keptFile, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    [[maybe_unused]] const int unchanged = ftruncate(keptFile, 0);
  }
}

std::string kept() {
  struct stat file {};
  if (!isReplaced || fstat(keptFile, &file) != 0) return {};
  std::string bytes(static_cast<std::size_t>(file.st_size), '\0');
  return pread(keptFile, bytes.data(), bytes.size(), 0) == file.st_size ? bytes : std::string();
}

void replaceOnFault() {
  struct sigaction action {};
  action.sa_handler = replaceAfterFault;
  action.sa_flags = SA_NODEFER;  // or the new image would begin with the signal blocked
  for (const int signal : {SIGSEGV, SIGBUS, SIGABRT}) sigaction(signal, &action, nullptr);
}

void replace() {
  const int program = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
  if (program < 0) return;
  snprintf(variable, sizeof variable, "%s%d %d", variableName, getpid(), keptFile);
  // Only for paths in the arguments that are relative.
  [[maybe_unused]] const int unchanged = chdir(startDirectory);
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  fcntl(keptFile, F_SETFD, 0);
  execveat(program, "", startArguments, environment, AT_EMPTY_PATH);
}

}  // namespace Process::FreshImage

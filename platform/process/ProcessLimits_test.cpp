#include "process/ProcessLimits.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace {

// The filter cannot be taken off again, so this runs in a child. Returns the number of the first fault, or 0.
int tryCalls(bool mayReplaceImage) {
  char* const arguments[] = {nullptr};
  if (!Process::denyDangerousSystemCalls(mayReplaceImage)) return 1;
  if (execve("/bin/true", arguments, arguments) != -1 || errno != EPERM) return 2;
  if (mount("none", "/proc", "proc", 0, nullptr) != -1 || errno != EPERM) return 3;
  errno = 0;
  if (unshare(CLONE_FS) != -1 || errno != EPERM) return 4;
  if (syscall(SYS_clone, CLONE_NEWUSER | SIGCHLD, nullptr, nullptr, nullptr, nullptr) != -1 || errno != EPERM)
    return 7;
  const pid_t child = fork();  // as daemons do
  if (child == 0) _exit(execve("/bin/true", arguments, arguments) == -1 ? 0 : 1);
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) return 5;
  const int own = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
  if (geteuid() == 0 && (setns(own, 0) != -1 || errno != EPERM)) return 8;
  if (geteuid() == 0 && setns(own, CLONE_NEWNET) != 0) return 6;
  if (execveat(AT_FDCWD, "/bin/true", arguments, arguments, 0) != -1 || errno != EPERM) return 9;
  char name[] = "true";
  char* const ownName[] = {name, nullptr};
  execveat(open("/bin/true", O_RDONLY | O_CLOEXEC), "", ownName, arguments, AT_EMPTY_PATH);
  return mayReplaceImage || errno != EPERM ? 10 : 0;
}

TEST(ProcessLimits, aDaemonCanForkAndEnterNamespacesButNotStartProgramsOrMount) {
  for (const bool mayReplaceImage : {false, true}) {
    const pid_t child = fork();
    if (child == 0) _exit(tryCalls(mayReplaceImage));
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_TRUE(WIFEXITED(status));
  }
}

}  // namespace

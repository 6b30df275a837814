#include "process/ProcessLimits.h"

#include <fcntl.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
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

// Those that a kernel or an architecture lacks are left out.
constexpr const char* deniedCalls[] = {
#ifndef __SANITIZE_ADDRESS__  // its search for leaks traces the process
    "ptrace",
#endif
    "acct",
    "add_key",
    "adjtimex",
    "bpf",
    "chroot",
    "clock_adjtime",
    "clock_settime",
    "delete_module",
    "execve",
    "finit_module",
    "fsconfig",
    "fsmount",
    "fsopen",
    "fspick",
    "init_module",
    "ioperm",
    "iopl",
    "kcmp",
    "kexec_file_load",
    "kexec_load",
    "keyctl",
    "lookup_dcookie",
    "mount",
    "mount_setattr",
    "move_mount",
    "move_pages",
    "open_by_handle_at",
    "open_tree",
    "perf_event_open",
    "pidfd_getfd",
    "pivot_root",
    "process_madvise",
    "process_vm_readv",
    "process_vm_writev",
    "quotactl",
    "quotactl_fd",
    "reboot",
    "request_key",
    "setdomainname",
    "sethostname",
    "settimeofday",
    "swapoff",
    "swapon",
    "umount",
    "umount2",
    "unshare",
    "userfaultfd",
    "vhangup"};

// Denies a call whose argument compares so.
int denyWhere(scmp_filter_ctx filter, int call, const scmp_arg_cmp& argument) {
  return seccomp_rule_add_array(filter, SCMP_ACT_ERRNO(EPERM), call, 1, &argument);
}

// Of namespaces a daemon only enters network namespaces, and it makes none. The flags of clone3 are in memory, out of
// the filter's sight; the C library falls back to clone when the kernel seems to lack it.
int denyNamespaces(scmp_filter_ctx filter) {
  int status = seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0);
  if (status == 0) status = denyWhere(filter, SCMP_SYS(setns), {1, SCMP_CMP_NE, CLONE_NEWNET, 0});
  for (const int flag :
       {CLONE_NEWNS, CLONE_NEWUSER, CLONE_NEWPID, CLONE_NEWUTS, CLONE_NEWIPC, CLONE_NEWNET, CLONE_NEWCGROUP}) {
    if (status != 0) break;
    const auto bits = static_cast<scmp_datum_t>(flag);
    status = denyWhere(filter, SCMP_SYS(clone), {0, SCMP_CMP_MASKED_EQ, bits, bits});
  }
  return status;
}

// That of an open file with an empty path is how a process replaces its own image.
int denyExecveat(scmp_filter_ctx filter, bool mayReplaceImage) {
  if (!mayReplaceImage) return seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), SCMP_SYS(execveat), 0);
  return denyWhere(filter, SCMP_SYS(execveat), {4, SCMP_CMP_NE, AT_EMPTY_PATH, 0});
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

bool denyDangerousSystemCalls(bool mayReplaceImage) {
  const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
  int status = filter == nullptr ? -ENOMEM : seccomp_attr_set(filter, SCMP_FLTATR_API_SYSRAWRC, 1);
  for (const char* const name : deniedCalls) {
    const int call = seccomp_syscall_resolve_name(name);
    // Negative numbers are of other architectures.
    if (status == 0 && call >= 0) status = seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), call, 0);
  }
  if (status == 0) status = denyExecveat(filter, mayReplaceImage);
  if (status == 0) status = denyNamespaces(filter);
  if (status == 0) status = seccomp_load(filter);
  if (filter != nullptr) seccomp_release(filter);
  errno = -status;
  return status == 0;
}

}  // namespace Process

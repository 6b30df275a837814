#pragma once
// Limits that both daemons set for their own process: open files, memory, system calls.

namespace Process {

// Raises the soft limit of open files (RLIMIT_NOFILE) to the hard one.
void raiseFileLimit();

// The status of a process that ended for lack of memory: EX_OSERR of <sysexits.h>, a failure to any service manager.
inline constexpr int outOfMemoryStatus = 71;

// Ends the process as soon as operator new has no memory, rather than let an exception leave a task half done: a new
// process starts from the store or the kernel. Reports the end in one line, which begins with `program` and which
// `report` writes to the program's log; null means standard error. A later call replaces both.
// Guarantees: operator new throws no std::bad_alloc from now on. A failure of malloc() stays an error of its caller.
void endWhenOutOfMemory(const char* program, void (*report)(const char* line) = nullptr);

// Makes the kernel refuse, with EPERM, system calls that the daemons never need and an intruder would like: to start
// programs, to look into other processes, to mount, to load code into the kernel, to change its clock or keys. Cannot
// be undone; children and later images of the process inherit it. `mayReplaceImage` permits what FreshImage::replace()
// needs. Returns false and sets errno if the kernel has no such filter (seccomp).
bool denyDangerousSystemCalls(bool mayReplaceImage = false);

}  // namespace Process

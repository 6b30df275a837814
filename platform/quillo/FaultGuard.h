#pragma once
// Reading a mapped file whose pages may be gone or damaged.
//
// `guarded(f)` runs `f`, which returns an LMDB status. When the processor faults meanwhile (SIGBUS: the file was
// truncated under the mapping; SIGSEGV: damaged page contents led a read astray), or the storage engine fails one
// of its own assertions, `f` is abandoned and `mappingFault` is returned.
//
// Rules for `f`: it calls the storage engine and copies bytes, nothing else; nothing with a destructor lives in it
// (it may be left by a jump); it does not throw and does not nest. While it runs, every fault of this thread that
// the processor raised counts as the mapping's: a damaged page can send a read to any address. Faults at any other
// time, in other threads, and signals that a process sent go to the handler that was installed before, which sees
// them as if this one did not exist.

#include <setjmp.h>

#include <atomic>

struct MDB_env;

namespace Quillo {

// Outside the ranges of errno and of the storage engine's own codes.
inline constexpr int mappingFault = -29999;

// Installs the handlers for SIGSEGV and SIGBUS, once for the process; later calls do nothing.
void faultGuardInstall();

// For mdb_env_set_assert: gives up the guarded call that failed an assertion. Returns when none is running.
void faultGuardAssertion(MDB_env* env, const char* message);

namespace Detail {
struct GuardFrame {
  sigjmp_buf target;
};
// The running guarded call of the thread that reads stores; null between them.
extern GuardFrame* volatile activeGuard;
void guardThreadIs();
}  // namespace Detail

template <class F>
int guarded(const F& f) {
  Detail::GuardFrame frame;
  // The signal mask is not saved: that would cost a system call. The handlers leave it as it was instead.
  if (sigsetjmp(frame.target, 0) != 0) {
    return mappingFault;
  }
  Detail::guardThreadIs();
  Detail::activeGuard = &frame;
  std::atomic_signal_fence(std::memory_order_seq_cst);
  int status = f();
  std::atomic_signal_fence(std::memory_order_seq_cst);
  Detail::activeGuard = nullptr;
  return status;
}

}  // namespace Quillo

#pragma once
// Safe reading of a mapped file whose pages may be gone or damaged.
//
// `guarded(f)` runs `f`, which returns an LMDB status, and returns that. It abandons `f` and returns `mappingFault`
// when the processor faults meanwhile (SIGBUS: the file was truncated under the mapping; SIGSEGV: damaged page contents
// led a read astray), or when the storage engine fails one of its own assertions.
//
// Requires of `f`: it only calls the storage engine and copies bytes; it holds nothing with a destructor, since a jump
// may leave it; it does not throw and does not nest. While it runs, each fault of this thread that the processor raised
// counts as the mapping's, since a damaged page can send a read to any address. All other faults, and signals that a
// process sent, go to the handler that was installed before, unchanged.
// docs/decisions/0021-handlers-for-faults.md says why the handlers are worth it.

#include <setjmp.h>

#include <atomic>

struct MDB_env;

namespace Quillo {

// Outside the ranges of errno and of the storage engine's own codes.
inline constexpr int mappingFault = -29999;

// Keeps the handlers for SIGSEGV and SIGBUS installed while an object of this class exists. The last object to be
// destroyed restores the previous handlers. If another handler has replaced ours meanwhile, it may call ours. Ours then
// stays installed, and the library that contains it stays loaded.
// Requires: a caller of guarded() has such an object; all objects are created and destroyed on one thread.
class FaultHandlers {
 public:
  FaultHandlers();
  ~FaultHandlers();
  FaultHandlers(const FaultHandlers&) = delete;
  FaultHandlers& operator=(const FaultHandlers&) = delete;
};

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

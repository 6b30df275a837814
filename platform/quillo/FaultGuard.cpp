#include "quillo/FaultGuard.h"

#include <pthread.h>
#include <signal.h>

namespace Quillo {

namespace Detail {

GuardFrame* volatile activeGuard = nullptr;

namespace {
pthread_t guardThread;
}

void guardThreadIs() {
  guardThread = pthread_self();
}

}  // namespace Detail

namespace {

struct sigaction previousSegv;
struct sigaction previousBus;

void leaveGuard() {
  Detail::GuardFrame* frame = Detail::activeGuard;
  Detail::activeGuard = nullptr;
  siglongjmp(frame->target, 1);
}

bool guardRuns() {
  return Detail::activeGuard != nullptr && pthread_equal(Detail::guardThread, pthread_self());
}

// Does what the kernel would have done with the signal, had our handler not been there.
void handOver(int signal, siginfo_t* info, void* context, struct sigaction& previous) {
  if (!(previous.sa_flags & SA_SIGINFO) && (previous.sa_handler == SIG_DFL || previous.sa_handler == SIG_IGN)) {
    bool sent = info->si_code <= 0;
    if (previous.sa_handler == SIG_IGN && sent) {
      return;
    }
    // A fault is repeated by the instruction when this handler returns; a signal that was sent is not.
    ::signal(signal, SIG_DFL);
    if (sent) {
      raise(signal);
    }
    return;
  }
  sigset_t mask = previous.sa_mask;
  if (!(previous.sa_flags & SA_NODEFER)) {
    sigaddset(&mask, signal);
  }
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, &mask, &before);
  struct sigaction target = previous;
  if (previous.sa_flags & static_cast<int>(SA_RESETHAND)) {
    previous.sa_flags = 0;
    previous.sa_handler = SIG_DFL;
  }
  if (target.sa_flags & SA_SIGINFO) {
    target.sa_sigaction(signal, info, context);
  } else {
    target.sa_handler(signal);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void faultHandler(int signal, siginfo_t* info, void* context) {
  // A positive code is the kernel's own: the processor faulted. Others were sent by a process.
  if (info->si_code > 0 && guardRuns()) {
    leaveGuard();
  }
  handOver(signal, info, context, signal == SIGBUS ? previousBus : previousSegv);
}

}  // namespace

void faultGuardInstall() {
  static const bool installed = [] {
    struct sigaction action {};
    action.sa_sigaction = faultHandler;
    // NODEFER: the handler is left by a jump that does not restore the mask, so the signal must not be in it.
    // ONSTACK: a previous handler that brought its own stack (for overflows) keeps getting it.
    action.sa_flags = SA_SIGINFO | SA_NODEFER | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaction(SIGSEGV, &action, &previousSegv);
    sigaction(SIGBUS, &action, &previousBus);
    return true;
  }();
  static_cast<void>(installed);
}

void faultGuardAssertion(MDB_env*, const char*) {
  if (guardRuns()) {
    leaveGuard();
  }
}

}  // namespace Quillo

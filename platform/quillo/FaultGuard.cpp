#include "quillo/FaultGuard.h"

#include <dlfcn.h>
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

// What becomes of one signal.
struct Handling {
  int signal;
  bool isInstalled = false;
  struct sigaction previous {};
};
Handling handlings[] = {{SIGSEGV}, {SIGBUS}};
int users = 0;

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
  for (Handling& handling : handlings) {
    if (handling.signal == signal) handOver(signal, info, context, handling.previous);
  }
}

void install(Handling& handling) {
  if (handling.isInstalled) return;
  struct sigaction action {};
  action.sa_sigaction = faultHandler;
  // NODEFER: the handler is left by a jump that does not restore the mask, so the signal must not be in it.
  // ONSTACK: a previous handler that brought its own stack (for overflows) keeps getting it.
  action.sa_flags = SA_SIGINFO | SA_NODEFER | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  handling.isInstalled = sigaction(handling.signal, &action, &handling.previous) == 0;
}

// False when another handler has been installed over ours.
bool remove(Handling& handling) {
  struct sigaction now {};
  if (!handling.isInstalled) return true;
  if (sigaction(handling.signal, nullptr, &now) != 0 || !(now.sa_flags & SA_SIGINFO) ||
      now.sa_sigaction != faultHandler) {
    return false;
  }
  handling.isInstalled = sigaction(handling.signal, &handling.previous, nullptr) != 0;
  return !handling.isInstalled;
}

void keepLoaded() {
  Dl_info library{};
  if (dladdr(&handlings, &library) != 0) dlopen(library.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
}

}  // namespace

FaultHandlers::FaultHandlers() {
  if (users++ > 0) return;
  for (Handling& handling : handlings) install(handling);
}

FaultHandlers::~FaultHandlers() {
  if (--users > 0) return;
  bool isGone = true;
  for (Handling& handling : handlings) isGone = remove(handling) && isGone;
  if (!isGone) keepLoaded();
}

void faultGuardAssertion(MDB_env*, const char*) {
  if (guardRuns()) {
    leaveGuard();
  }
}

}  // namespace Quillo

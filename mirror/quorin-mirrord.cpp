// The program quorin-mirrord: options, signals, background, event loop.

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "kel/Errors.h"
#include "kel/LineLimit.h"
#include "kel/System.h"
#include "kel/Trace.h"
#include "mirror/MirrorOptions.h"
#include "mirror/MirrorService.h"
#include "process/FreshImage.h"
#include "process/ProcessLimits.h"
#include "process/ServiceManager.h"

namespace Mirror {

namespace {

Kel::TraceHandle mirrorMainTrace("MirrorMain");

constexpr Kel::Seconds pollPeriod = 1;

volatile sig_atomic_t stopSignal = 0;
volatile sig_atomic_t isRereadAsked = 0;

void noteSignal(int signal) {
  if (signal == SIGHUP) {
    isRereadAsked = 1;
  } else {
    stopSignal = signal;
  }
}

// Blocks SIGTERM, SIGINT and SIGHUP except while the loop waits. Returns the mask to wait with.
sigset_t takeSignals() {
  struct sigaction action {};
  action.sa_handler = noteSignal;
  sigset_t taken;
  sigemptyset(&taken);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    sigaction(signal, &action, nullptr);
    sigaddset(&taken, signal);
  }
  signal(SIGPIPE, SIG_IGN);
  sigset_t previous;
  sigprocmask(SIG_BLOCK, &taken, &previous);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigdelset(&previous, signal);
  return previous;
}

// Delivers pending signals. ppoll does so only when it waits, which it never does under a steady stream of changes.
void takeSignalsIn(const sigset_t& mask) {
  sigset_t held;
  sigprocmask(SIG_SETMASK, &mask, &held);
  sigprocmask(SIG_SETMASK, &held, nullptr);
}

// Returns whether the descriptor is readable, or in an error state that a read will report.
bool waitFor(int fd, Kel::Seconds seconds, const sigset_t& mask) {
  pollfd entry{fd, POLLIN, 0};
  const double wait = std::max(seconds, 0.0);
  timespec timeout{};
  timeout.tv_sec = static_cast<time_t>(wait);
  timeout.tv_nsec = static_cast<long>((wait - std::floor(wait)) * 1e9);
  const int ready = ppoll(&entry, 1, &timeout, &mask);
  if (ready < 0 && errno != EINTR) throw Kel::Exception(fmt::format("cannot wait: {}", std::strerror(errno)));
  if (ready > 0) takeSignalsIn(mask);
  return ready > 0;
}

// ---- the background

void logToSyslog() {
  Kel::TraceConfig::setOutput(Kel::TraceConfig::Output::syslog, "quorin-mirrord");
  Process::endWhenOutOfMemory("quorin-mirrord", [](const char* line) { syslog(LOG_DAEMON | LOG_ERR, "%s", line); });
}

// Sends the program to the background and reports a failed start: the starter waits until the daemon serves, and then
// exits with status 0. If the daemon ends earlier, the status is 1.
class Background {
 public:
  // Returns in the daemon, a new process and session that still has the starter's standard streams.
  // A replacement of a daemon's image is a daemon, and serving, already.
  // Requires: nothing is open yet. Throws Kel::Exception when the system cannot create the process.
  Background();
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  // Releases the starter. From now on the standard streams are /dev/null and the working directory is "/".
  void serving();
  bool isServing() const { return starter_ < 0; }

 private:
  int starter_ = -1;  // pipe to the waiting starter; -1 once it is released
};

[[noreturn]] void failToDetach(const char* what) {
  throw Kel::Exception(std::string("cannot go to the background: ") + what + ": " + std::strerror(errno));
}

[[noreturn]] void waitForDaemon(int pipe) {
  char word = 0;
  ssize_t size = 0;
  do {
    size = read(pipe, &word, 1);
  } while (size < 0 && errno == EINTR);
  _exit(size == 1 ? 0 : 1);
}

Background::Background() {
  if (Process::FreshImage::isReplacement()) {
    logToSyslog();
    if (chdir("/") != 0) failToDetach("chdir");
    return;
  }
  int pipe[2];
  if (pipe2(pipe, O_CLOEXEC) != 0) failToDetach("pipe");
  const pid_t child = fork();
  if (child < 0) failToDetach("fork");
  if (child > 0) {
    close(pipe[1]);
    waitForDaemon(pipe[0]);
  }
  close(pipe[0]);
  starter_ = pipe[1];
  if (setsid() < 0) failToDetach("setsid");
}

Background::~Background() {
  if (starter_ >= 0) close(starter_);
}

void Background::serving() {
  if (starter_ < 0) return;
  if (chdir("/") != 0) failToDetach("chdir");
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (null < 0) failToDetach("/dev/null");
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(null, stream);
  if (null > STDERR_FILENO) close(null);
  // Ignores a failed write: the starter may have been killed, which does not matter to the daemon.
  [[maybe_unused]] const ssize_t size = write(starter_, "1", 1);
  close(starter_);
  starter_ = -1;
}

// ---- damage

// As in TreePublisher.
constexpr Kel::Seconds damagePause = 10;
constexpr Kel::Seconds recurrence = 60;

// What onDamage() needs, outside the heap.
Kel::Seconds imageStart = 0;
sigset_t waitMask;
bool isDetached = true;  // no starter waits for this process

// The heap may be overwritten, so only a fresh image of the program can go on. It dumps the kernel's state, and makes
// the store anew where it finds it damaged.
void onDamage(const char* why) {
  using namespace Process;
  const Kel::Seconds lived = Kel::System::currentTime() - imageStart;
  const bool recurs = FreshImage::isReplacement() && lived < recurrence;
  if (isDetached) FreshImage::replaceOnFault();  // such as one in the next line
  QTRACE(mirrorMainTrace, 0) << why << "; this process starts afresh, since its memory may be overwritten"
                             << (recurs ? "; look for a program that writes files of the store" : "");
  if (recurs) {
    for (Kel::Seconds left = damagePause - lived; left > 0 && !stopSignal; left -= 1) {
      ServiceManager::notifyAlive();
      const timespec second{1, 0};
      ppoll(nullptr, 0, &second, &waitMask);
    }
  }
  if (stopSignal) _exit(0);
  if (isDetached) FreshImage::replace();
  _exit(1);
}

// ---- the loop

std::string statusLine(const MirrorService& service, const MirrorOptions& options) {
  const auto vrfs = service.tree().vrfNameStatus->vrfId().size();
  return fmt::format("publishing {} VRF{} in {}", vrfs, vrfs == 1 ? "" : "s", options.store);
}

// Waits for room where the file system is full; null when a signal ends the program meanwhile.
std::unique_ptr<MirrorService> openService(const MirrorOptions& options, const sigset_t& mask) {
  for (bool isSaid = false; !stopSignal; isSaid = true) {
    try {
      return std::make_unique<MirrorService>(MirrorConfig{.store = {.directory = options.store,
                                                                    .name = "quorin-mirrord",
                                                                    .recreate = options.recreateStore,
                                                                    .group = options.group,
                                                                    .onDamage = onDamage},
                                                          .netnsDirectory = options.netnsDirectory,
                                                          .settingsFile = options.settingsFile,
                                                          .mustSettingsExist = options.mustSettingsExist,
                                                          .vrfIds = Process::FreshImage::kept()});
    } catch (const Quillo::StoreException& error) {
      if (error.kind() != Quillo::StoreException::Kind::full) throw;
      if (!isSaid) {
        QTRACE(mirrorMainTrace, 0) << error.what() << "; trying again every second";
      }
    }
    Process::ServiceManager::notifyAlive();
    const timespec pause{1, 0};
    ppoll(nullptr, 0, &pause, &mask);
  }
  return nullptr;
}

void serve(const MirrorOptions& options, std::optional<Background>& background) {
  const sigset_t mask = takeSignals();
  imageStart = Kel::System::currentTime();
  waitMask = mask;
  // A replacement has inherited the filter.
  if (!Process::FreshImage::isReplacement() && !Process::denyDangerousSystemCalls(true)) {
    QTRACE(mirrorMainTrace, 0) << "the kernel filters no system calls for this process: " << std::strerror(errno)
                               << "; permit seccomp filters, or go on without";
  }
  Process::raiseFileLimit();  // every VRF needs five descriptors
  const auto opened = openService(options, mask);
  if (!opened) return;  // stopped before there was room
  MirrorService& service = *opened;
  service.start();
  bool isAnnounced = false;
  std::string status;
  std::string keptIds = service.vrfIds();
  Process::FreshImage::keep(keptIds);
  bool mayMoreWait = true;
  Kel::Seconds nextPoll = Kel::System::currentTime() + pollPeriod;
  Kel::Seconds nextReport = nextPoll;
  while (!stopSignal) {
    const Kel::Seconds wait = mayMoreWait ? 0 : nextPoll - Kel::System::currentTime();
    const bool isReadable = waitFor(service.fd(), wait, mask);
    mayMoreWait = (isReadable || mayMoreWait) && service.receive();
    if (isRereadAsked) {
      isRereadAsked = 0;
      QTRACE(mirrorMainTrace, 1) << "reading everything again";
      service.reread();
    }
    if (Kel::System::currentTime() >= nextPoll) {
      // Before the next line meets damage that a reader has reported.
      if (std::string ids = service.vrfIds(); ids != keptIds) Process::FreshImage::keep(keptIds = std::move(ids));
      service.poll();
      Process::ServiceManager::notifyAlive();
      if (std::string now = statusLine(service, options); isAnnounced && now != status) {
        Process::ServiceManager::notifyStatus(status = std::move(now));
      }
      nextPoll = Kel::System::currentTime() + pollPeriod;
      if (nextPoll >= nextReport) {
        Kel::TraceLimit::beginPeriod();
        nextReport = nextPoll + Kel::LineLimit::secondsPerPeriod;
      }
    }
    if (isAnnounced || !service.isServing()) continue;
    isAnnounced = true;
    if (background) {
      if (!background->isServing()) logToSyslog();
      background->serving();
      isDetached = true;
    }
    Process::ServiceManager::notifyReady(status = statusLine(service, options));
    QTRACE(mirrorMainTrace, 1) << "publishing in " << options.store;
  }
  Process::ServiceManager::notifyStopping();
  Kel::TraceLimit::beginPeriod();
  QTRACE(mirrorMainTrace, 1) << "stopping on " << strsignal(stopSignal);
}

}  // namespace

// Returns the exit status: 0 after SIGTERM or SIGINT, 1 after a failure, with one line on standard error (of a daemon
// that serves already: in syslog).
static int mirrorMain(int argc, const char* const* argv) {
  const auto parsed = parseOptions(argc, argv, std::cout, std::cerr);
  if (const int* status = std::get_if<int>(&parsed)) return *status;
  const auto& options = std::get<MirrorOptions>(parsed);
  std::optional<Background> background;
  Process::endWhenOutOfMemory("quorin-mirrord");
  if (!Process::FreshImage::isReplacement()) {                     // which has the priority already
    [[maybe_unused]] const int priority = nice(options.niceness);  // lowering it cannot fail
  }
  try {
    Kel::TraceConfig::setLevels(options.trace);
    if (!options.isForeground) background.emplace();
    isDetached = !background || background->isServing();
    serve(options, background);
    return 0;
  } catch (const std::exception& error) {
    if (background && background->isServing()) {
      QTRACE(mirrorMainTrace, 0) << error.what() << "; ending";
    } else {
      fmt::print(stderr, "quorin-mirrord: {}\n", error.what());
    }
    return 1;
  }
}

}  // namespace Mirror

int main(int argc, char* argv[]) {
  Process::FreshImage::noteStart(argv);
  return Mirror::mirrorMain(argc, argv);
}

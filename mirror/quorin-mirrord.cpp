// The program quorin-mirrord: options, signals, background, event loop.

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>

#include "kel/Errors.h"
#include "kel/LineLimit.h"
#include "kel/System.h"
#include "kel/Trace.h"
#include "mirror/MirrorOptions.h"
#include "mirror/MirrorService.h"

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

// From here on SIGTERM, SIGINT and SIGHUP arrive only where the loop waits. Returns the mask for waiting.
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

// ppoll takes signals in only when it has to wait: under changes without end it never does.
void takeSignalsIn(const sigset_t& mask) {
  sigset_t held;
  sigprocmask(SIG_SETMASK, &mask, &held);
  sigprocmask(SIG_SETMASK, &held, nullptr);
}

// True when the descriptor is readable, or in a state that only reading tells.
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

// Every VRF takes two descriptors.
void raiseFileLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

// ---- the background

// Sends the program to the background, and reports a failed start: the process that was started waits until the daemon
// serves, and then ends with status 0. When the daemon ends before, the status is 1.
class Background {
 public:
  // Returns in the daemon, a process and session of its own, with the standard streams still those of the starter.
  // Call it before anything is opened. Throws Kel::Exception when the system has no process to give.
  Background();
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  // Lets the starter go. The standard streams are /dev/null from now on, the working directory is "/".
  void serving();
  bool isServing() const { return starter_ < 0; }

 private:
  int starter_ = -1;  // pipe to the process that waits; -1 when it was let go
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
  // The starter may have been killed meanwhile; that is no concern of the daemon.
  [[maybe_unused]] const ssize_t size = write(starter_, "1", 1);
  close(starter_);
  starter_ = -1;
}

// ---- the loop

void serve(const MirrorOptions& options, std::optional<Background>& background) {
  const sigset_t mask = takeSignals();
  raiseFileLimit();
  MirrorService service(
      {.store = {.directory = options.store, .name = "quorin-mirrord", .recreate = options.recreateStore},
       .netnsDirectory = options.netnsDirectory,
       .settingsFile = options.settingsFile,
       .mustSettingsExist = options.mustSettingsExist});
  service.start();
  bool isAnnounced = false;
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
      service.poll();
      nextPoll = Kel::System::currentTime() + pollPeriod;
      if (nextPoll >= nextReport) {
        Kel::TraceLimit::beginPeriod();
        nextReport = nextPoll + Kel::LineLimit::secondsPerPeriod;
      }
    }
    if (isAnnounced || !service.isServing()) continue;
    isAnnounced = true;
    if (background) {
      Kel::TraceConfig::outputIs(Kel::TraceConfig::Output::syslog, "quorin-mirrord");
      background->serving();
    }
    QTRACE(mirrorMainTrace, 1) << "publishing in " << options.store;
  }
  Kel::TraceLimit::beginPeriod();
  QTRACE(mirrorMainTrace, 1) << "stopping on " << strsignal(stopSignal);
}

}  // namespace

// Returns the program's exit status: 0 after SIGTERM or SIGINT, 1 after a failure, of which one line is on standard
// error (of a daemon that served already: in syslog).
static int mirrorMain(int argc, const char* const* argv) {
  const auto parsed = parseOptions(argc, argv, std::cout, std::cerr);
  if (const int* status = std::get_if<int>(&parsed)) return *status;
  const auto& options = std::get<MirrorOptions>(parsed);
  std::optional<Background> background;
  try {
    Kel::TraceConfig::levelsAre(options.trace);
    if (!options.isForeground) background.emplace();
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
  return Mirror::mirrorMain(argc, argv);
}

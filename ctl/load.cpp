// quorinctl load: publishes a switch file, in place of quorin-mirrord.

#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "ctl/Commands.h"
#include "ctl/ProgressBar.h"
#include "ctl/SwitchFile.h"
#include "ctl/SwitchStore.h"
#include "ctl/YamlText.h"
#include "kel/LineLimit.h"
#include "kel/System.h"
#include "kel/Trace.h"

namespace Ctl {

namespace {

constexpr const char* standardInput = "-";

void say(const std::string& line) {
  fmt::print(stderr, "quorinctl: {}\n", line);
}

// The memory may be overwritten, so this process ends. (Quillo::PublisherConfig::onDamage)
[[noreturn]] void endAfterDamage(const char* why) {
  std::fputs("quorinctl: ", stderr);
  std::fputs(why, stderr);
  std::fputs("; load the file again\n", stderr);
  _exit(static_cast<int>(Exit::critical));
}

[[noreturn]] void cannotRead(const std::string& file, const std::string& why) {
  throw Failure(Exit::unknown,
                fmt::format("cannot read {}: {}; name a file that quorinctl dump or you wrote, or - for "
                            "standard input",
                            file, why));
}

std::string textOf(const std::string& file) {
  std::ostringstream text;
  if (file == standardInput) {
    text << std::cin.rdbuf();
    return text.str();
  }
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) cannotRead(file, std::strerror(errno));
  if (S_ISDIR(status.st_mode)) cannotRead(file, "it is a directory");
  std::ifstream in(file, std::ios::binary);
  if (in) text << in.rdbuf();
  if (!in) cannotRead(file, std::strerror(errno));
  return text.str();
}

void block(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  sigprocmask(SIG_BLOCK, &set, nullptr);
}

// The signals that end or reload. They are blocked, and wait in the kernel until take() asks.
class Signals {
 public:
  // A reload that is asked for early waits. SIGINT still ends the first reading, which may wait for standard input.
  Signals() {
    block({SIGHUP});
    sigemptyset(&set_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set_, signal);
  }
  static void blockStops() { block({SIGINT, SIGTERM}); }
  // The signal that came within the time; 0 for none.
  int take(const timespec& wait) const {
    const int signal = sigtimedwait(&set_, nullptr, &wait);
    return signal < 0 ? 0 : signal;
  }
  // Whether SIGINT or SIGTERM waits.
  static bool isStopPending() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGINT) == 1 || sigismember(&pending, SIGTERM) == 1;
  }

 private:
  sigset_t set_{};
};

struct Stopped {};

std::shared_ptr<const SwitchState> readSwitch(const std::string& file, const std::function<void()>& meanwhile) {
  ProgressBar bar("reading");
  const std::string name = file == standardInput ? "standard input" : file;
  try {
    return std::make_shared<const SwitchState>(
        switchFromText(textOf(file), {.file = name, .progress = [&](double part) {
                                        bar.show(part);
                                        meanwhile();
                                      }}));
  } catch (const YamlException& error) {
    throw Failure(Exit::unknown, error.what());
  }
}

void publish(SwitchPublisher& publisher, const std::shared_ptr<const SwitchState>& state) {
  ProgressBar bar("publishing");
  publisher.publish(state, [&](double part) {
    bar.show(part);
    publisher.check();
    if (Signals::isStopPending()) throw Stopped();
  });
}

std::string sizeOf(const SwitchState& state) {
  return fmt::format("{} VRFs, {} interfaces, {} neighbours and {} routes",
                     state.tree.vrfNameStatus->vrfId().size(), state.tree.intfStatusDir->intfStatus().size(),
                     state.neighbours.size(), state.routes());
}

// A wrong file leaves what is published.
void reload(SwitchPublisher& publisher, const std::string& file) {
  if (file == standardInput) {
    say("standard input cannot be read again; load a file to reload it with SIGHUP");
    return;
  }
  try {
    const auto state = readSwitch(file, [&] {
      publisher.check();
      if (Signals::isStopPending()) throw Stopped();
    });
    publish(publisher, state);
    say(fmt::format("{} was read again: {}", file, sizeOf(*state)));
  } catch (const Failure& failure) {
    say(fmt::format("{}; what was published stays", failure.what()));
  } catch (const Quillo::StoreException& error) {
    using Kind = Quillo::StoreException::Kind;
    if (error.kind() != Kind::full && error.kind() != Kind::gone) throw;
    say(fmt::format("{}; trying again every second", error.what()));  // poll() does
  }
}

Exit load(const std::string& directory, const std::string& file, bool endsAtOnce) {
  const Signals signals;
  auto state = readSwitch(file, [] {});
  Signals::blockStops();
  SwitchPublisher publisher({.directory = directory, .name = "quorinctl load", .onDamage = endAfterDamage});
  try {
    publish(publisher, state);
    say(fmt::format("{} has {}{}", directory, sizeOf(*state),
                    endsAtOnce ? "" : "; Ctrl-C ends, SIGHUP reads the file again"));
    state = nullptr;  // the publisher keeps it until a reload
    Kel::Seconds nextReport = Kel::System::currentTime() + Kel::LineLimit::secondsPerPeriod;
    while (!endsAtOnce) {
      const int signal = signals.take({1, 0});
      if (signal == SIGHUP) {
        reload(publisher, file);
      } else if (signal != 0) {
        break;
      }
      publisher.poll();
      if (Kel::System::currentTime() < nextReport) continue;
      Kel::TraceLimit::beginPeriod();
      nextReport += Kel::LineLimit::secondsPerPeriod;
    }
  } catch (const Stopped&) {
    say("stopped before everything was published");
  }
  return Exit::ok;
}

}  // namespace

Action addLoad(CLI::App& app, const Options& options) {
  struct Arguments {
    std::string file;
    bool endsAtOnce = false;
  };
  const auto given = std::make_shared<Arguments>();
  app.add_option("FILE", given->file, "The switch file; - is standard input")->required();
  app.add_flag("--once", given->endsAtOnce, "Publish, and end; readers then see a store without a publisher");
  return [&options, given] { return load(options.store, given->file, given->endsAtOnce); };
}

}  // namespace Ctl

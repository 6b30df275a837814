#include "mirror/CounterMirror.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include "kel/Errors.h"
#include "kel/Trace.h"

namespace Mirror {

namespace {

Kel::TraceHandle counterMirrorTrace("MirrorCounters");

// Of the namespace that the thread is in. There is none in a kernel without IPv6.
const std::filesystem::path counterFiles = "/proc/thread-self/net/dev_snmp6";

}  // namespace

CounterMirror::CounterMirror(std::shared_ptr<const Vantu::NetNs> ns, Kel::Ptr<Ip::AllIntfStats> all, IdOf idOf,
                             unsigned phase)
    : ns_(std::move(ns)), all_(std::move(all)), idOf_(std::move(idOf)), polls_(phase) {
}

bool CounterMirror::poll() {
  return ++polls_ % pollsPerReading == 0 && hasBegun_ && begin();
}

bool CounterMirror::begin() {
  if (isReading_) return false;
  hasBegun_ = true;
  isIncomplete_ = false;
  try {
    const Vantu::NetNsGuard inside(*ns_);
    list();
    isReading_ = true;
  } catch (const Kel::Exception& error) {
    failed(error.what());
  }
  return isReading_;
}

void CounterMirror::list() {
  std::error_code error;
  for (std::filesystem::directory_iterator at(counterFiles, error), end; at != end; at.increment(error)) {
    waiting_.push_back(at->path().filename().string());
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    failed(counterFiles.string() + ": " + error.message());
  }
}

void CounterMirror::failed(const std::string& why) {
  isIncomplete_ = true;
  const bool wasTold = std::exchange(isFailureTold_, true);
  QTRACE(counterMirrorTrace, wasTold ? 6 : 0)
      << "counters are not all read: " << why << "; keeping what is known, trying again every 2 s";
}

bool CounterMirror::receive() {
  if (!isReading_) return false;
  try {
    const Vantu::NetNsGuard inside(*ns_);
    for (unsigned count = 0; count < interfacesPerTurn && !waiting_.empty(); ++count) {
      read(waiting_.back());
      waiting_.pop_back();
    }
  } catch (const Kel::Exception& error) {
    failed(error.what());
    waiting_.clear();
  }
  if (!waiting_.empty()) return true;
  if (isIncomplete_) {
    seen_.merge(present_);
    present_.clear();
  } else {
    isFailureTold_ = false;
  }
  // An interface may still be there, without IPv6.
  for (const auto& id : present_) {
    if (!seen_.contains(id)) all_->intfStatsDel(id);
  }
  present_ = std::exchange(seen_, {});
  return isReading_ = false;
}

void CounterMirror::read(const std::string& interface) {
  const auto path = counterFiles / interface;
  errno = 0;
  std::ifstream file(path);
  const auto told = readCounters(file);
  if (!file.is_open() || file.bad()) {
    if (errno != ENOENT) failed(path.string() + ": " + std::strerror(errno));
    return;
  }
  const auto ifIndex = told.find("ifIndex");
  if (ifIndex == told.end()) return;  // gone meanwhile
  const auto id = idOf_(static_cast<std::uint32_t>(ifIndex->second));
  if (!id.isValid()) return;
  countersAre(*all_, id, told, Kel::System::currentTime());
  seen_.insert(id);
}

}  // namespace Mirror

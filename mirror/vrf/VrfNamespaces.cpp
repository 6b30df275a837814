#include "mirror/vrf/VrfNamespaces.h"

#include <fmt/format.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <optional>

#include "kel/Errors.h"
#include "kel/Trace.h"
#include "varnix/ByteText.h"

namespace Mirror {

namespace {

Kel::TraceHandle vrfNamespacesTrace("MirrorNamespaces");

// `ip netns add` needs about a millisecond. A file that is not a namespace after longestInterval is traced.
constexpr Kel::Seconds firstInterval = 0.001;
constexpr Kel::Seconds longestInterval = 1;

std::optional<Vantu::NetNs::Id> idOf(const std::string& file) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) return std::nullopt;
  return Vantu::NetNs::Id{status.st_dev, status.st_ino};
}

// Requires: look() accepts the file name.
std::string vrfOf(const std::string& name) {
  return Vantu::vrfOfNsName(name).value();
}

}  // namespace

VrfNamespaces::VrfNamespaces(std::string directory, const Vantu::NetNs::Id& own)
    : directory_(std::move(directory)), own_(own), inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (inotify_ < 0) {
    throw Kel::Exception(
        fmt::format("cannot watch {}: {}; raise fs.inotify.max_user_instances", directory_, std::strerror(errno)));
  }
  watch();
}

VrfNamespaces::~VrfNamespaces() {
  close(inotify_);
}

// Watches the directory, or its parent while it is missing. Without a watch, lookOver() finds changes once a second.
void VrfNamespaces::watch() {
  const auto parent = std::filesystem::path(directory_).parent_path().string();
  const auto id = idOf(directory_);
  const auto watched = id ? id : idOf(parent);
  if (watch_ >= 0 && watched && *watched == directoryId_ && isDirectoryThere_ == id.has_value()) return;
  if (watch_ >= 0) inotify_rm_watch(inotify_, watch_);
  constexpr std::uint32_t inside = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
  constexpr std::uint32_t itself = IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
  watch_ = inotify_add_watch(inotify_, (id ? directory_ : parent).c_str(), inside | itself);
  isDirectoryThere_ = id.has_value();
  directoryId_ = watched.value_or(Vantu::NetNs::Id());
  QTRACE(vrfNamespacesTrace, 2) << "watching " << (id ? directory_ : parent) << (watch_ < 0 ? ": no watch" : "");
}

// Adds the names that inotify reported. Returns false if all files must be examined.
bool VrfNamespaces::drain(std::set<std::string>& names) {
  alignas(inotify_event) char buffer[16 << 10];
  bool isAll = !isDirectoryThere_;
  while (true) {
    const ssize_t size = read(inotify_, buffer, sizeof(buffer));
    if (size <= 0) break;
    for (ssize_t at = 0; at < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      if (event->wd != watch_ && !(event->mask & IN_Q_OVERFLOW)) continue;
      if (event->mask & (IN_Q_OVERFLOW | IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) {
        isAll = true;
      } else if (event->len > 0) {
        names.insert(event->name);
      }
    }
  }
  return !isAll;
}

std::vector<VrfNamespaces::Change> VrfNamespaces::changes() {
  std::set<std::string> names;
  if (!drain(names)) return lookAtAll();
  const Kel::Seconds now = Kel::System::currentTime();
  for (const auto& [name, wait] : waiting_) {
    if (wait.next <= now) names.insert(name);
  }
  return lookAt(names);
}

std::vector<VrfNamespaces::Change> VrfNamespaces::lookOver() {
  const int watched = watch_;
  watch();
  std::set<std::string> names;
  const bool areAllKnown = drain(names) && watch_ >= 0 && watch_ == watched;
  if (looks_++ % looksPerListing == 0 || !areAllKnown) return lookAtAll();
  for (const auto& [name, wait] : waiting_) names.insert(name);
  for (const auto& [name, why] : complaints_) names.insert(name);
  return lookAt(names);
}

std::vector<VrfNamespaces::Change> VrfNamespaces::lookAtAll() {
  watch();
  std::set<std::string> names;
  for (const auto& [name, id] : present_) names.insert(name);
  for (const auto& [name, wait] : waiting_) names.insert(name);
  for (const auto& [name, why] : complaints_) names.insert(name);
  std::error_code error;
  for (std::filesystem::directory_iterator at(directory_, error), end; !error && at != end; at.increment(error)) {
    names.insert(at->path().filename().string());
  }
  return lookAt(names);
}

std::vector<VrfNamespaces::Change> VrfNamespaces::lookAt(const std::set<std::string>& names) {
  std::vector<Change> changes;
  for (const auto& name : names) look(name, changes);
  return changes;
}

Kel::Seconds VrfNamespaces::nextLook() const {
  Kel::Seconds next = std::numeric_limits<Kel::Seconds>::infinity();
  for (const auto& [name, wait] : waiting_) next = std::min(next, wait.next);
  return next;
}

void VrfNamespaces::look(const std::string& name, std::vector<Change>& changes) {
  if (!Vantu::vrfOfNsName(name)) return;
  const std::string file = fileOf(name);
  const auto id = idOf(file);
  const auto known = present_.find(name);
  if (known != present_.end() && id && *id == known->second) return;
  lost(name, changes);
  if (!id) {
    waiting_.erase(name);
    complaints_.erase(name);
    return;
  }
  try {
    const auto ns = Vantu::NetNs::isNamespace(file) ? std::make_shared<const Vantu::NetNs>(file) : nullptr;
    const std::string why = refusal(name, ns.get());
    if (!why.empty()) {
      waiting_.erase(name);
      complain(name, why);
    } else if (!ns) {
      waitFor(name);
    } else {
      waiting_.erase(name);
      present_[name] = ns->id();
      changes.push_back({L3::VrfName(vrfOf(name)), ns});
    }
  } catch (const Kel::Exception& error) {
    complain(name, error.what());
  }
}

void VrfNamespaces::lost(const std::string& name, std::vector<Change>& changes) {
  if (present_.erase(name) > 0) changes.push_back({L3::VrfName(vrfOf(name)), nullptr});
}

void VrfNamespaces::waitFor(const std::string& name) {
  Wait& wait = waiting_[name];
  if (wait.interval >= longestInterval) complain(name, "it is no network namespace; make it with ip netns add");
  wait.interval = std::clamp(wait.interval * 2, firstInterval, longestInterval);
  wait.next = Kel::System::currentTime() + wait.interval;
}

// Why the file can never be a VRF; empty if it may be one.
std::string VrfNamespaces::refusal(const std::string& name, const Vantu::NetNs* ns) const {
  const std::string vrf = vrfOf(name);
  if (vrf.empty()) return "the name of its VRF is empty; rename it";
  if (vrf.size() > L3::VrfName::maxLength) {
    return fmt::format("the name of its VRF has {} bytes, {} at most are allowed; rename it", vrf.size(),
                       L3::VrfName::maxLength);
  }
  if (L3::VrfName(vrf).isDefault()) return "its VRF would have the default VRF's name; rename it";
  if (ns && ns->id() == own_) return "it is the default VRF's namespace, in which this program runs";
  return {};
}

void VrfNamespaces::refuse(const L3::VrfName& vrf, const std::string& why) {
  const std::string name = Vantu::nsNameOfVrf(vrf.stringValue());
  present_.erase(name);
  complain(name, why);
}

void VrfNamespaces::accept(const L3::VrfName& vrf) {
  complaints_.erase(Vantu::nsNameOfVrf(vrf.stringValue()));
}

void VrfNamespaces::complain(const std::string& name, const std::string& why) {
  auto& last = complaints_[name];
  if (last == why) return;
  last = why;
  QTRACE(vrfNamespacesTrace, 0) << "namespace " << Varnix::escapeBytes(name) << " is not served: " << why;
}

}  // namespace Mirror

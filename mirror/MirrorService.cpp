#include "mirror/MirrorService.h"

#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <utility>

#include "kel/Errors.h"
#include "kel/Trace.h"
#include "varnix/Document.h"

namespace Mirror {

namespace {

Kel::TraceHandle mirrorServiceTrace("MirrorService");

// The end of the first pass sweeps the store. So the pass waits this long for VRFs that existed at the start, and
// again after each that is dumped, and while a long dump is received.
constexpr Kel::Seconds patience = 5;

constexpr const char* vrfIdsPath = "vrf/id/status";

[[noreturn]] void failToPoll(const char* what) {
  throw Kel::Exception(fmt::format("{}: {}; raise the limit of open files", what, std::strerror(errno)));
}

}  // namespace

MirrorService::Member::Member(Picture& picture, NamespaceScope scope, const std::shared_ptr<const Vantu::NetNs>& ns,
                              int receiveBytes)
    : socket(ns, receiveBytes),
      mirror(socket, picture, std::move(scope), ForwardingFlags(ns)),
      counters(
          ns, picture.tree, [this](std::uint32_t ifIndex) { return mirror.interfaceId(ifIndex); },
          [this] { return mirror.interfacesVersion(); },
          [this](std::uint32_t ifIndex, const std::string& alias) { mirror.setAlias(ifIndex, alias); },
          mirror.scope().vrfId().value()) {
}

MirrorService::MirrorService(const MirrorConfig& config)
    : own_(std::make_shared<Vantu::NetNs>()),
      namespaces_(config.netnsDirectory, own_->id()),
      settings_(config.settingsFile, config.mustSettingsExist),
      receiveBytes_(config.receiveBytes),
      publisher_(picture_, config.store) {
  if (const auto ids = publisher_.store().get(Quillo::TableId::varnix, vrfIdsPath)) picture_.vrfs.ids().load(*ids);
  if (!config.vrfIds.empty()) picture_.vrfs.ids().load(config.vrfIds);
  picture_.tree.l3Config->fecModeIs(Quillo::Fib::fecModePerVrf);
  applySettings();
  events_.add(namespaces_.fd(), namespacesTag);
  if (settings_.fd() >= 0) events_.add(settings_.fd(), settingsTag);
  members_[defaultTag] = std::make_unique<Member>(picture_, NamespaceScope(), own_, receiveBytes_);
}

const NamespaceMirror* MirrorService::mirror(const L3::VrfName& vrf) const {
  const auto at = tags_.find(vrf);
  return at == tags_.end() ? nullptr : &members_.at(at->second)->mirror;
}

std::string MirrorService::vrfIds() const {
  return Varnix::documentText(Varnix::documentOf(*picture_.tree.vrfIdStatus, *picture_.tree.root));
}

void MirrorService::start() {
  run(defaultTag, [](NamespaceMirror& mirror) { mirror.start(); });
  take(namespaces_.lookOver());
  for (const auto& [vrf, tag] : tags_) awaited_.insert(vrf);
  awaitedUntil_ = Kel::System::currentTime() + patience;
  armTimer();
}

bool MirrorService::receive() {
  const auto ready = events_.ready();
  std::set<Tag> tags(ready.begin(), ready.end());
  if (tags.contains(namespacesTag)) take(namespaces_.changes());
  if (tags.contains(settingsTag) && settings_.update()) applySettings();
  tags.insert(busy_.begin(), busy_.end());
  busy_.clear();
  const Kel::Seconds now = Kel::System::currentTime();
  for (const auto& [tag, when] : due_) {
    if (when <= now) tags.insert(tag);
  }
  for (const Tag tag : tags) {
    run(tag, [&](NamespaceMirror& mirror) {
      if (mirror.receive()) busy_.insert(tag);
    });
  }
  for (const Tag tag : std::exchange(reading_, {})) {
    run(tag, [&](NamespaceMirror&) {
      if (members_.at(tag)->counters.receive()) reading_.insert(tag);
    });
  }
  armTimer();
  publish();
  return isBusy() || publisher_.isMorePending();
}

void MirrorService::poll() {
  runAll([](NamespaceMirror& mirror) { mirror.poll(); });
  for (const auto& [tag, member] : members_) {
    if (member->counters.poll(members_.size())) reading_.insert(tag);
  }
  take(namespaces_.lookOver());
  if (settings_.poll()) applySettings();
  armTimer();
  publisher_.poll();
  publish();
}

void MirrorService::reread() {
  runAll([](NamespaceMirror& mirror) { mirror.reread(); });
}

// Deletions first, since their names and ids may be needed again. Then VRFs with an id.
void MirrorService::take(const std::vector<VrfNamespaces::Change>& changes) {
  if (changes.empty()) return;
  for (const auto& change : changes) {
    if (!change.ns) lost(change.vrf);
  }
  for (const bool isKnown : {true, false}) {
    for (const auto& change : changes) {
      if (change.ns && picture_.vrfs.ids().has(change.vrf) == isKnown && !tags_.contains(change.vrf)) {
        found(change.vrf, change.ns);
      }
    }
  }
  // The default VRF may have devices of the same names.
  run(defaultTag, [](NamespaceMirror& mirror) { mirror.settle(); });
}

void MirrorService::found(const L3::VrfName& vrf, const std::shared_ptr<const Vantu::NetNs>& ns) {
  const auto id = picture_.vrfs.namespaceIs(vrf);
  if (!id) return namespaces_.refuse(vrf, Vrfs::noIdLeft);
  const Tag tag = ++lastTag_;
  try {
    members_[tag] = std::make_unique<Member>(picture_, NamespaceScope(vrf, *id), ns, receiveBytes_);
  } catch (const Kel::Exception& error) {
    members_.erase(tag);
    picture_.vrfs.namespaceDel(vrf);
    return namespaces_.refuse(vrf, error.what());
  }
  tags_[vrf] = tag;
  run(tag, [](NamespaceMirror& mirror) { mirror.start(); });
}

void MirrorService::lost(const L3::VrfName& vrf) {
  awaited_.erase(vrf);
  const auto at = tags_.find(vrf);
  if (at == tags_.end()) return;
  const auto member = members_.extract(at->second);
  busy_.erase(at->second);
  reading_.erase(at->second);
  due_.erase(at->second);
  tags_.erase(at);
  member.mapped()->mirror.withdraw();
}

void MirrorService::failed(const L3::VrfName& vrf, const std::string& why) {
  lost(vrf);
  namespaces_.refuse(vrf, why);
}

// Runs `operation` on a member. Throws what fails for the default VRF; any other VRF is removed and tried again.
template <class Operation>
void MirrorService::run(Tag tag, const Operation& operation) {
  const auto at = members_.find(tag);
  if (at == members_.end()) return;
  Member& member = *at->second;
  try {
    operation(member.mirror);
    if (const auto when = member.mirror.due()) {
      due_[tag] = *when;
    } else {
      due_.erase(tag);
    }
    if (!member.wasComplete && member.mirror.isComplete()) {
      member.wasComplete = true;
      if (member.counters.begin(members_.size())) reading_.insert(tag);
      if (tag != defaultTag) namespaces_.accept(member.mirror.scope().vrf());
    }
    if (member.watchedFd == member.socket.fd()) return;
    member.watchedFd = member.socket.fd();
    events_.add(member.watchedFd, tag);
  } catch (const Kel::Exception& error) {
    if (tag == defaultTag) throw;
    failed(L3::VrfName(member.mirror.scope().vrf()), error.what());
  }
}

template <class Operation>
void MirrorService::runAll(const Operation& operation) {
  std::vector<Tag> tags;
  for (const auto& [tag, member] : members_) tags.push_back(tag);
  for (const Tag tag : tags) run(tag, operation);
}

void MirrorService::applySettings() {
  picture_.vrfs.setSettings(settings_.settings());
}

void MirrorService::armTimer() {
  Kel::Seconds next = namespaces_.nextLook();
  for (const auto& [tag, when] : due_) next = std::min(next, when);
  if (isBusy()) next = Kel::System::currentTime();
  events_.setTimer(next - Kel::System::currentTime());
}

// Whether the picture is complete enough to sweep the store.
bool MirrorService::isWhole() {
  if (!members_.at(defaultTag)->isWhole()) return false;
  const auto dumped = std::erase_if(awaited_, [this](const L3::VrfName& vrf) {
    const auto at = tags_.find(vrf);
    return at == tags_.end() || members_.at(at->second)->isWhole();
  });
  if (awaited_.empty()) return true;
  const Kel::Seconds now = Kel::System::currentTime();
  if (dumped > 0 || isBusy()) awaitedUntil_ = now + patience;
  if (now < awaitedUntil_) return false;
  QTRACE(mirrorServiceTrace, 0) << awaited_.size() << " VRFs are still not listed; going on without them";
  awaited_.clear();
  return true;
}

void MirrorService::publish() {
  if (!isServing_ && !isWhole()) {
    publisher_.publishRoutes();
  } else if (publisher_.publish()) {
    isServing_ = true;
  }
}

EventSet::EventSet(Tag timerTag)
    : epoll_(epoll_create1(EPOLL_CLOEXEC)), timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (epoll_ < 0) failToPoll("epoll");
  if (timer_ < 0) failToPoll("timerfd");
  add(timer_, timerTag);
}

EventSet::~EventSet() {
  close(timer_);
  close(epoll_);
}

void EventSet::add(int fd, Tag tag) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = tag;
  if (epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) != 0) failToPoll("epoll");
}

std::vector<EventSet::Tag> EventSet::ready() {
  std::array<epoll_event, 256> events{};
  const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), 0);
  std::vector<Tag> tags;
  tags.reserve(events.size());
  for (int i = 0; i < count; ++i) tags.push_back(events[static_cast<std::size_t>(i)].data.u64);
  return tags;
}

void EventSet::setTimer(double seconds) {
  itimerspec when{};
  if (std::isfinite(seconds)) {
    // Zero would stop the timer.
    const double wait = std::max(seconds, 1e-6);
    when.it_value.tv_sec = static_cast<time_t>(wait);
    when.it_value.tv_nsec = static_cast<long>((wait - std::floor(wait)) * 1e9);
  }
  timerfd_settime(timer_, 0, &when, nullptr);
}

}  // namespace Mirror

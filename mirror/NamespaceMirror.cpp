#include "mirror/NamespaceMirror.h"

#include <fmt/format.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "kel/Trace.h"

namespace Mirror {

namespace {

Kel::TraceHandle namespaceMirrorTrace("Mirror");

// The limit for one turn, so that changes are published every few milliseconds under a steady stream.
constexpr unsigned datagramsPerTurn = 256;
// A datagram of a dump of routes has about five hundred of them.
constexpr unsigned routeDatagramsPerTurn = 16;
// Interrupted dumps restart at once this often, then with the next poll.
constexpr unsigned interruptionsAtOnce = 10;
// The kernel sends the next datagram of a dump when the last one is read, so a pause means that the dump is stuck.
// After an overrun the queue is drained within milliseconds, unless more keeps arriving.
constexpr Kel::Seconds stuckAfter = 5;
// A dump of neighbours that changed meanwhile is repeated this often at once, then after one, two, four ... seconds.
constexpr unsigned repetitionsAtOnce = 3;
constexpr Kel::Seconds longestListingInterval = 64;

// The forwarding flags are also read, since kernels before 3.8 do not notify of them. Those of the default namespace
// are read with every poll. Those of the other VRFs are read once a minute, at different polls: there may be thousands,
// and to open a file of /proc/sys takes longer the more namespaces there are.
constexpr unsigned flagsIntervalOfVrfs = 60;

bool isOfNeighbours(RtDump step) {
  return step == RtDump::ipv4Neighbours || step == RtDump::ipv6Neighbours;
}

// Whether the error means an empty dump. The kernel creates a routing table with its first route; old kernels have no
// next-hop objects, and some have no IPv6.
bool isListOfNone(RtDump step, int status) {
  return status == ENOENT || status == EOPNOTSUPP ||
         (step == RtDump::ipv6Routes && (status == EINVAL || status == EAFNOSUPPORT));
}

const char* contentsOf(RtDump step) {
  if (step == RtDump::links) return "interfaces";
  if (step == RtDump::nexthops) return "next-hop objects";
  if (step == RtDump::ipv4Routes || step == RtDump::ipv6Routes) return "routes";
  return isOfNeighbours(step) ? "neighbours" : "addresses";
}

}  // namespace

NamespaceMirror::NamespaceMirror(RtChannel& channel, Picture& picture, NamespaceScope scope, ForwardingFlags flags)
    : channel_(channel),
      picture_(picture),
      writer_(picture, std::move(scope)),
      flags_(std::move(flags)),
      routes_(picture.routes, [this](std::uint32_t ifIndex) {
        const KernelInterface* interface = state_.interface(ifIndex);
        const bool isKnown = interface && interface->link && !interface->link->name.empty();
        return isKnown ? writer_.scope().intfId(interface->link->name) : Vantu::IntfId();
      }) {
}

void NamespaceMirror::start() {
  beginDump();
}

bool NamespaceMirror::receive() {
  bool mayMoreWait = true;
  const unsigned limit = isListingRoutes_ ? routeDatagramsPerTurn : datagramsPerTurn;
  for (unsigned i = 0; i < limit && mayMoreWait; ++i) {
    if (isListingRoutes_ && mustWait()) break;
    std::span<const std::uint8_t> datagram;
    switch (channel_.receive(datagram)) {
      case RtChannel::Outcome::datagram:
        handleDatagram(datagram);
        break;
      case RtChannel::Outcome::overrun:
        handleOverrun();
        break;
      case RtChannel::Outcome::empty:
        mayMoreWait = isRoutesStepOver_;
        if (dumpWantedSince_) {
          mayMoreWait = true;
          beginDump();
        } else if (areRoutesDue()) {
          mayMoreWait = true;
          beginRoutes(Extent::routes);
        }
        break;
    }
  }
  settle();
  return mayMoreWait;
}

void NamespaceMirror::settle() {
  routes_.settle();
  if (!isComplete()) return;
  const auto changes = state_.takeChanges();
  writer_.sync(state_, changes);
  if (!changes.interfaces.empty()) ++interfacesVersion_;
  if (!changes.interfaces.empty() || vrfsVersion_ != picture_.vrfs.version()) updateTables();
  if (!changes.names.empty()) routes_.renamed(changes.names);
  routes_.takeDefaultRouters(
      [this](const auto& vrfId, const auto& routers) { picture_.vrfs.setDefaultRouters(vrfId, routers); });
}

void NamespaceMirror::setAlias(std::uint32_t ifIndex, const std::string& alias) {
  if (state_.setAlias(ifIndex, alias)) settle();
}

void NamespaceMirror::withdraw() {
  routes_.updateTables({});
  writer_.withdraw();
}

void NamespaceMirror::poll() {
  QTRACE_ENTRY(namespaceMirrorTrace, this);
  if (isComplete() && areFlagsDue()) readForwarding();
  if (isStuck()) isReopenWanted_ = true;
  if (isReopenWanted_) {
    reopen();
  } else if (isRetryWanted_) {
    beginDump();
  } else if (isListingDue()) {
    beginDump(Extent::allButRoutes);
  } else if (areRoutesDue()) {
    beginRoutes(Extent::routes);
  }
}

bool NamespaceMirror::areFlagsDue() {
  ++polls_;
  const NamespaceScope& scope = writer_.scope();
  return scope.isDefault() || isForwardingUnread_ ||
         polls_ % flagsIntervalOfVrfs == scope.vrfId().value() % flagsIntervalOfVrfs;
}

bool NamespaceMirror::isListingDue() const {
  return !isBusy() && nextListing_ != 0 && Kel::System::currentTime() >= nextListing_;
}

bool NamespaceMirror::isStuck() const {
  const Kel::Seconds now = Kel::System::currentTime();
  if (isBusy() && now - lastReply_ > stuckAfter) {
    QTRACE(namespaceMirrorTrace, 0) << "rtnetlink: a dump is not answered; beginning anew";
    return true;
  }
  if (dumpWantedSince_ && now - *dumpWantedSince_ > stuckAfter) {
    QTRACE(namespaceMirrorTrace, 0) << "rtnetlink: messages come faster than they are read; beginning anew";
    return true;
  }
  return false;
}

// Uses a new socket, since a dump may be under way on this one. No-op before the first dump is complete, which is as
// recent as a new one would be.
void NamespaceMirror::reread() {
  if (isComplete()) reopen();
}

void NamespaceMirror::reopen() {
  try {
    channel_.reopen();
    beginDump();
  } catch (const Kel::Exception& error) {
    if (!isComplete()) throw;
    QTRACE(namespaceMirrorTrace, 0) << error.what() << "; trying again every second";
    giveUp();
    isReopenWanted_ = true;
  }
}

void NamespaceMirror::giveUp() {
  fresh_.reset();
  isListingRoutes_ = isRoutesStepOver_ = false;
}

void NamespaceMirror::beginDump(Extent extent) {
  giveUp();
  extent_ = extent;
  dumpWantedSince_.reset();
  isReopenWanted_ = isRetryWanted_ = false;
  mayBeIncomplete_ = false;
  fresh_.emplace(KernelState::Purpose::dump);
  stepIs(RtDump::links);
}

void NamespaceMirror::stepIs(RtDump step, std::uint32_t table) {
  step_ = step;
  table_ = table;
  repetitions_ = 0;
  ask();
}

void NamespaceMirror::ask() {
  isInterrupted_ = areNeighboursMoving_ = false;
  pieces_ = 0;
  lastReply_ = Kel::System::currentTime();
  try {
    channel_.dump(step_, ++sequence_, table_);
  } catch (const Kel::Exception& error) {
    if (!isComplete()) throw;
    QTRACE(namespaceMirrorTrace, 0) << error.what() << "; trying again";
    giveUp();
    isReopenWanted_ = true;
  }
}

void NamespaceMirror::handleDatagram(std::span<const std::uint8_t> datagram) {
  bool isCounted = false;
  const auto* message = reinterpret_cast<const nlmsghdr*>(datagram.data());
  auto left = static_cast<int>(datagram.size());
  while (mnl_nlmsg_ok(message, left)) {
    if (message->nlmsg_pid == channel_.portId()) {
      // Replies with another sequence number belong to an abandoned dump.
      if (isBusy() && message->nlmsg_seq == sequence_) {
        if (message->nlmsg_type != NLMSG_DONE && !std::exchange(isCounted, true)) ++pieces_;
        handleReply(*message);
      }
    } else {
      handle(*message, Handling::notified);
    }
    message = mnl_nlmsg_next(message, &left);
  }
  if (left > 0) {
    QTRACE(namespaceMirrorTrace, 0) << "rtnetlink: " << left << " bytes that are no message, ignored";
  }
}

void NamespaceMirror::handleReply(const nlmsghdr& message) {
  lastReply_ = Kel::System::currentTime();
  if (message.nlmsg_flags & NLM_F_DUMP_INTR) isInterrupted_ = true;
  if (message.nlmsg_type != NLMSG_DONE && message.nlmsg_type != NLMSG_ERROR) {
    handle(message, Handling::dumped);
  } else if (const int status = statusOf(message)) {
    handleDumpFailure(status);
  } else if (message.nlmsg_type == NLMSG_DONE) {
    handleStepEnd();
  }
}

void NamespaceMirror::handle(const nlmsghdr& message, Handling handling) {
  const bool isNews = handling == Handling::notified;
  try {
    const RtMessage decoded = decode(message);
    const auto apply = [&](const auto& content) {
      if (isNews) state_.notified(content);
      if (fresh_ && isNews) fresh_->notified(content);
      if (fresh_ && !isNews) fresh_->dumped(content);
    };
    if (const auto* link = std::get_if<LinkMessage>(&decoded)) {
      if (isNews) handleLink(*link);
      apply(*link);
    }
    if (const auto* address = std::get_if<AddressMessage>(&decoded)) {
      if (isNews && address->isDeleted) routes_.noteAddressDeletion(address->local);
      apply(*address);
    }
    const auto applyToRoutes = [&](const auto& content) {
      if (isNews) {
        routes_.notified(content);
      } else if (isListingRoutes_) {
        routes_.dumped(content);
      }
    };
    if (const auto* route = std::get_if<RouteMessage>(&decoded)) applyToRoutes(*route);
    if (const auto* nexthop = std::get_if<NexthopMessage>(&decoded)) applyToRoutes(*nexthop);
    if (const auto* neighbour = std::get_if<NeighbourMessage>(&decoded)) {
      apply(*neighbour);
      if (isNews) areNeighboursMoving_ = true;
    }
    const auto* forwarding = std::get_if<ForwardingMessage>(&decoded);
    if (forwarding && isComplete()) writer_.setForwarding(forwarding->af, forwarding->forwarding);
  } catch (const MalformedMessageException& error) {
    QTRACE(namespaceMirrorTrace, 0) << error.what() << "; message of type " << message.nlmsg_type << " ignored";
  }
}

void NamespaceMirror::handleStepEnd() {
  if (isListingRoutes_) {
    handleRoutesEnd(isInterrupted_);
  } else if (isInterrupted_) {
    handleInterruption();
  } else if (mayLackNeighbours()) {
    ++repetitions_;
    ask();
  } else if (step_ == RtDump::ipv6Neighbours) {
    completeDump();
  } else {
    stepIs(static_cast<RtDump>(static_cast<int>(step_) + 1));
  }
}

// A dump that fits into one datagram shows a single moment.
bool NamespaceMirror::mayLackNeighbours() {
  if (!isOfNeighbours(step_) || pieces_ < 2 || !areNeighboursMoving_) return false;
  if (repetitions_ < repetitionsAtOnce) return true;
  mayBeIncomplete_ = true;
  return false;
}

// Objects were added or deleted while the kernel walked its lists, so it may have skipped others.
void NamespaceMirror::handleInterruption() {
  ++interruptions_;
  QTRACE(namespaceMirrorTrace, 2) << "dump interrupted, " << interruptions_ << " in a row";
  if (interruptions_ <= interruptionsAtOnce) {
    beginDump();
  } else {
    fresh_.reset();
    isRetryWanted_ = true;
  }
}

void NamespaceMirror::handleDumpFailure(int status) {
  const std::string text =
      fmt::format("rtnetlink: the kernel does not list its {}: {}", contentsOf(step_), std::strerror(status));
  if (isListingRoutes_ && isListOfNone(step_, status)) return handleRoutesEnd(false);
  // EBUSY: an earlier dump on this socket is stuck.
  if (!isComplete() && status != EBUSY) throw Kel::Exception(text);
  QTRACE(namespaceMirrorTrace, 0) << text << "; trying again";
  giveUp();
  isReopenWanted_ = true;
}

void NamespaceMirror::handleOverrun() {
  ++overruns_;
  QTRACE(namespaceMirrorTrace, 1) << "overrun: messages of the kernel were lost, reading everything again";
  giveUp();
  if (!dumpWantedSince_) dumpWantedSince_ = Kel::System::currentTime();
}

void NamespaceMirror::completeDump() {
  state_ = std::move(*fresh_).complete();
  fresh_.reset();
  interruptions_ = 0;
  listingInterval_ = mayBeIncomplete_ ? std::clamp(listingInterval_ * 2, 1.0, longestListingInterval) : 0;
  nextListing_ = mayBeIncomplete_ ? Kel::System::currentTime() + listingInterval_ : 0;
  if (isComplete()) show();
  if (extent_ == Extent::all) beginRoutes(Extent::all);
}

void NamespaceMirror::show() {
  ++completeDumps_;
  writer_.syncAll(state_);
  ++interfacesVersion_;
  state_.takeChanges();
  updateTables();
  routes_.resolveAll();
  readForwarding();
  QTRACE(namespaceMirrorTrace, 2) << "dump " << completeDumps_ << " complete, " << state_.interfaces().size()
                                  << " links";
}

void NamespaceMirror::readForwarding() {
  const bool wasUnread = std::exchange(isForwardingUnread_, false);
  try {
    const IpSysctls sysctls = flags_.read();
    writer_.setForwarding(Vantu::ipv4_, sysctls.forwardsIpv4);
    writer_.setForwarding(Vantu::ipv6_, sysctls.forwardsIpv6);
    writer_.setDefaults(sysctls.defaults);
  } catch (const UnreadableFlagException& error) {
    // It is retried every second; one line is enough.
    QTRACE(namespaceMirrorTrace, wasUnread ? 6 : 0)
        << error.what() << "; keeping what is known, trying again every second";
    isForwardingUnread_ = true;
  }
}

}  // namespace Mirror

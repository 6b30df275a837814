#include "mirror/CounterMirror.h"

#include <fmt/format.h>
#include <libmnl/libmnl.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include "kel/Errors.h"
#include "kel/Trace.h"

namespace Mirror {

namespace {

Kel::TraceHandle counterMirrorTrace("MirrorCounters");

// The directory for the thread's namespace. A kernel without IPv6 has none.
const std::filesystem::path counterFiles = "/proc/thread-self/net/dev_snmp6";

constexpr int dumpReceiveBytes = 256 << 10;   // a dump has one datagram in the socket at a time
constexpr unsigned listDatagramsPerTurn = 4;  // of some thirty interfaces each

bool hasFallen(const Ip::IntfCounters& from, const Ip::IntfCounters& to) {
  return to.inPkts() < from.inPkts() || to.inOctets() < from.inOctets() || to.outPkts() < from.outPkts() ||
         to.outOctets() < from.outOctets() || to.inMcastPkts() < from.inMcastPkts() ||
         to.outMcastPkts() < from.outMcastPkts();
}

}  // namespace

CounterMirror::CounterMirror(std::shared_ptr<const Vantu::NetNs> ns, const Varnix::Tree& tree, IdOf idOf,
                             Version version, SetAlias setAlias, unsigned phase)
    : ns_(std::move(ns)),
      statuses_(tree.intfStatusDir),
      linkCounters_(tree.intfCountersDir),
      all_(tree.ip6IntfStats),
      idOf_(std::move(idOf)),
      version_(std::move(version)),
      setAlias_(std::move(setAlias)),
      protocols_(tree, idOf_, phase),
      polls_(phase) {
}

bool CounterMirror::poll(std::size_t namespaces) {
  return ++polls_ % pollsPerReading == 0 && hasBegun_ && begin(namespaces);
}

bool CounterMirror::begin(std::size_t namespaces) {
  if (isReading_) return false;
  hasBegun_ = true;
  isIncomplete_ = false;
  versionAtBegin_ = version_();
  isFresh_ = versionRead_ != versionAtBegin_;
  links_.begin();
  links6_.begin();
  protocols_.begin(isFresh_, namespaces);
  try {
    if (!socket_) socket_ = std::make_unique<RtSocket>(ns_, dumpReceiveBytes, RtSocket::Use::dumps);
    ask(RtDump::linkCounters);
    isReading_ = isListing_ = true;
  } catch (const Kel::Exception& error) {
    failed(error.what());
    socket_.reset();
  }
  return isReading_;
}

void CounterMirror::ask(RtDump what) {
  dump_ = what;
  socket_->dump(what, ++sequence_);
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
    if (isListing_) list();
    if (!isListing_ && !waiting_.empty()) {
      const Vantu::NetNsGuard inside(*ns_);
      for (unsigned count = 0; count < interfacesPerTurn && !waiting_.empty(); ++count) {
        read(waiting_.back());
        waiting_.pop_back();
      }
    }
  } catch (const Kel::Exception& error) {
    failed(error.what());
    if (std::exchange(isListing_, false)) socket_.reset();
    waiting_.clear();
  }
  if (!isListing_ && waiting_.empty()) finish();
  return isReading_;
}

// The kernel has the next datagram of a dump ready as soon as the one before it was received.
void CounterMirror::list() {
  for (unsigned count = 0; count < listDatagramsPerTurn && isListing_; ++count) {
    std::span<const std::uint8_t> datagram;
    if (socket_->receive(datagram) != RtChannel::Outcome::datagram) {
      throw Kel::Exception("rtnetlink: the list of interfaces ended early");
    }
    const auto* message = reinterpret_cast<const nlmsghdr*>(datagram.data());
    auto left = static_cast<int>(datagram.size());
    for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) take(*message);
  }
}

void CounterMirror::take(const nlmsghdr& message) {
  if (message.nlmsg_seq != sequence_) return;
  // The list may lack interfaces.
  if (message.nlmsg_flags & NLM_F_DUMP_INTR) isIncomplete_ = true;
  if (message.nlmsg_type == NLMSG_DONE || message.nlmsg_type == NLMSG_ERROR) {
    ended(statusOf(message));
  } else if (dump_ == RtDump::linkCounters || dump_ == RtDump::ipv6Links) {
    const auto digest = digestOf(message);
    if (digest) dump_ == RtDump::linkCounters ? counted(message, *digest) : listed(message, *digest);
  } else {
    const auto decoded = decode(message);
    if (const auto* const parameters = std::get_if<NeighbourParametersMessage>(&decoded)) {
      protocols_.listed(*parameters);
    }
    if (const auto* const link = std::get_if<LinkMessage>(&decoded)) setAlias_(link->ifIndex, link->details.alias);
  }
}

void CounterMirror::ended(int status) {
  if (dump_ == RtDump::linkCounters) {
    if (status != 0) failed(fmt::format("rtnetlink: counters of links: {}", std::strerror(status)));
    const bool areAliasesDue = std::exchange(isAnyDown_, false) && areSettingsDue();
    ++readings_;
    ask(areAliasesDue ? RtDump::links : RtDump::ipv6Links);
    return;
  }
  if (dump_ == RtDump::links) return ask(RtDump::ipv6Links);
  const bool areTables = dump_ == RtDump::neighbourTables;
  if (status != 0) {
    throw Kel::Exception(fmt::format("rtnetlink: {}: {}", areTables ? "neighbour tables" : "interfaces with IPv6",
                                     std::strerror(status)));
  }
  if (!areTables && protocols_.wantsTables()) return ask(RtDump::neighbourTables);
  isListing_ = false;
}

void CounterMirror::counted(const nlmsghdr& message, const InterfaceDigest& digest) {
  auto& known = links_.listed(digest.ifIndex);
  if (!known.hash) protocols_.appeared();
  const bool isRepeated = std::exchange(known.hash, digest.hash) == digest.hash;
  if (isRepeated && !isFresh_ && !areSettingsDue()) return;
  const auto decoded = decode(message);
  const auto* const link = std::get_if<LinkCountersMessage>(&decoded);
  const auto id = link ? idOf_(link->ifIndex) : Vantu::IntfId();
  const auto status = id.isValid() ? statuses_->intfStatus(id) : nullptr;
  if (!status) return;
  const bool isNew = !linkCounters_->intfCounters(id);
  linkCounters_->intfCountersIs(id)->countersIs(link->counters);
  if (isNew || known.operStatus != status->operStatus() || areSettingsDue()) readSettings(*status);
  if (status->adminStatus() == Interface::adminStatusDown) isAnyDown_ = true;
  known.operStatus = status->operStatus();
}

// The kernel answers for the namespace of the socket, and needs no privilege. It refuses a request without room for its
// masks of link modes, and returns how many words they take, as a negative number.
void CounterMirror::readSettings(Interface::IntfStatus& status) {
  constexpr std::size_t masks = 3 * SCHAR_MAX * sizeof(std::uint32_t);
  alignas(ethtool_link_settings) std::array<unsigned char, sizeof(ethtool_link_settings) + masks> answer{};
  auto& settings = *reinterpret_cast<ethtool_link_settings*>(answer.data());
  ifreq request{};
  const auto name = status.intfId().localName();
  name.copy(request.ifr_name, IFNAMSIZ - 1);
  request.ifr_data = reinterpret_cast<char*>(answer.data());
  const auto ask = [&] {
    settings.cmd = ETHTOOL_GLINKSETTINGS;
    settings.link_mode_masks_nwords = static_cast<std::int8_t>(linkModeWords_);
    return ioctl(socket_->fd(), SIOCETHTOOL, &request) == 0;
  };
  bool isKnown = ask();
  if (isKnown && settings.link_mode_masks_nwords < 0) {
    linkModeWords_ = -settings.link_mode_masks_nwords;
    isKnown = ask();
  }
  const auto speed = settings.speed;
  const auto duplex = settings.duplex;
  status.speedIs(isKnown && speed != static_cast<std::uint32_t>(SPEED_UNKNOWN) ? speed : 0);
  status.duplexIs(!isKnown                ? Interface::duplexUnknown
                  : duplex == DUPLEX_FULL ? Interface::duplexFull
                  : duplex == DUPLEX_HALF ? Interface::duplexHalf
                                          : Interface::duplexUnknown);
}

void CounterMirror::listed(const nlmsghdr& message, const InterfaceDigest& digest) {
  auto& known = links6_.listed(digest.ifIndex);
  const bool isRepeated = known.hash == digest.hash;
  if (isRepeated && !isFresh_) return;
  const auto decoded = decode(message);
  const auto* const link = std::get_if<Ip6LinkMessage>(&decoded);
  if (!link) return;
  protocols_.listed(*link);
  const auto id = idOf_(link->ifIndex);
  if (!id.isValid() || link->name.empty()) return;
  // Without a record it is another interface of the same name.
  if (isRepeated && known.id == id && all_->intfStats(id)) return;
  known.id = id;
  waiting_.push_back({link->ifIndex, link->name, digest.hash});
}

void CounterMirror::read(const File& file) {
  const auto path = counterFiles / file.name;
  errno = 0;
  std::ifstream stream(path);
  const auto kernel = readCounters(stream);
  if (!stream.is_open() || stream.bad()) {
    if (errno != ENOENT) failed(path.string() + ": " + std::strerror(errno));
    return;
  }
  const auto ifIndex = kernel.find("ifIndex");
  if (ifIndex == kernel.end()) return;  // deleted meanwhile
  const auto id = idOf_(static_cast<std::uint32_t>(ifIndex->second));
  if (!id.isValid()) return;
  setCounters(*all_, id, kernel, Kel::System::currentTime());
  // Another interface may have taken the name meanwhile.
  auto* const known = ifIndex->second == file.ifIndex ? links6_.find(file.ifIndex) : nullptr;
  if (known) known->hash = file.hash;
}

void CounterMirror::finish() {
  isReading_ = false;
  if (!isIncomplete_) {
    isFailureTold_ = false;
    links_.removeOthers([](auto...) {});
    links6_.removeOthers([this](std::uint32_t ifIndex, const KnownLink6& known) {
      protocols_.lost(ifIndex);
      // The interface may still exist, without IPv6.
      if (known.id.isValid() && known.id == idOf_(ifIndex)) all_->intfStatsDel(known.id);
    });
  }
  protocols_.finish(!isIncomplete_);
  versionRead_ = isIncomplete_ ? std::nullopt : std::optional(versionAtBegin_);
}

template <class Known>
void CounterMirror::Dumped<Known>::begin() {
  ++dump_;
  listed_ = 0;
}

template <class Known>
Known& CounterMirror::Dumped<Known>::listed(std::uint32_t ifIndex) {
  auto& entry = entries_[ifIndex];
  if (std::exchange(entry.dump, dump_) != dump_) ++listed_;
  return entry.known;
}

template <class Known>
Known* CounterMirror::Dumped<Known>::find(std::uint32_t ifIndex) {
  const auto at = entries_.find(ifIndex);
  return at == entries_.end() ? nullptr : &at->second.known;
}

template <class Known>
template <class Use>
void CounterMirror::Dumped<Known>::removeOthers(const Use& use) {
  if (listed_ == entries_.size()) return;
  std::erase_if(entries_, [&](const auto& item) {
    const auto& [ifIndex, entry] = item;
    if (entry.dump == dump_) return false;
    use(ifIndex, entry.known);
    return true;
  });
}

KernelCounters readCounters(std::istream& file) {
  KernelCounters kernel;
  const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
  for (std::string line; std::getline(file, line);) {
    const auto nameEnd = std::ranges::find_if(line, isBlank);
    const auto begin = std::find_if_not(nameEnd, line.end(), isBlank);
    std::uint64_t value = 0;
    if (std::from_chars(std::to_address(begin), line.data() + line.size(), value).ec != std::errc()) break;
    const std::string_view name(line.begin(), nameEnd);
    if (!name.starts_with("Icmp6")) kernel.emplace(name, value);
  }
  return kernel;
}

Ip::IntfCounters countersOf(const KernelCounters& kernel, const Ip::IntfCounters& before) {
  const auto at = [&](const char* name) {
    const auto found = kernel.find(name);
    return found == kernel.end() ? 0 : found->second;
  };
  const auto unicast = [](std::uint64_t all, std::uint64_t multicast, std::uint64_t last) {
    return std::max(all > multicast ? all - multicast : 0, last);
  };
  // Since Linux 6.6, Ip6OutTransmits counts all packets sent. Earlier kernels count own and forwarded packets apart.
  const auto outPkts =
      kernel.contains("Ip6OutTransmits") ? at("Ip6OutTransmits") : at("Ip6OutRequests") + at("Ip6OutForwDatagrams");
  const auto inPkts = at("Ip6InReceives"), inOctets = at("Ip6InOctets"), outOctets = at("Ip6OutOctets");
  const auto inMcastPkts = at("Ip6InMcastPkts"), inMcastOctets = at("Ip6InMcastOctets");
  const auto outMcastPkts = at("Ip6OutMcastPkts"), outMcastOctets = at("Ip6OutMcastOctets");
  return Ip::IntfCounters(inPkts, inOctets, outPkts, outOctets, unicast(inPkts, inMcastPkts, before.inUcastPkts()),
                          unicast(inOctets, inMcastOctets, before.inUcastOctets()),
                          unicast(outPkts, outMcastPkts, before.outUcastPkts()),
                          unicast(outOctets, outMcastOctets, before.outUcastOctets()), inMcastPkts, inMcastOctets,
                          outMcastPkts, outMcastOctets);
}

Ip::IntfDatagrams datagramsOf(const KernelCounters& kernel) {
  const auto at = [&](const char* name) {
    const auto found = kernel.find(name);
    return found == kernel.end() ? Ip::IntfDatagrams::notCounted : found->second;
  };
  static const std::map<std::string_view, const char*> names{
#define NAME_OF(field, kernelName) {#field, kernelName},
      IP_INTF_DATAGRAMS(NAME_OF)
#undef NAME_OF
  };
  return Ip::IntfDatagrams::kelFromFields([&](const char* field, auto) { return at(names.at(field)); });
}

void setCounters(Ip::AllIntfStats& all, const Vantu::IntfId& id, const KernelCounters& kernel, Kel::Seconds now) {
  const auto known = all.intfStats(id);
  const auto record = all.intfStatsIs(id);
  const auto counters = countersOf(kernel, record->counters());
  const bool isContinued = known && !hasFallen(known->counters(), counters);
  if (!isContinued) {
    record->discontinuityTimeIs(now);
    record->utcOffsetIs(Kel::System::utcOffset());
  }
  record->datagramsIs(datagramsOf(kernel));
  record->countersIs(isContinued ? counters : countersOf(kernel, {}));
}

}  // namespace Mirror

#pragma once
// For tests: the published state as lines of text. publishedLines() reads them from the picture and the store;
// expectedLines() and expectedRouteLines() compute them from a FakeKernel, without the code under test.
//
//   eth0 link 2 running
//   eth0 l3 default default
//   eth0 config 10.0.0.1/24
//   eth0 neighbour 0 10.0.0.9 02:00:00:00:00:01 static
//   0 10.0.0.0/8 type 7/1 [not persistent] [group] metric 0 10.0.0.9@eth0
//   0 10.1.0.0/16 type 7/1 metric 0 0.0.0.0@ unreachable

#include <fmt/format.h>

#include <map>
#include <set>
#include <string>

#include "mirror/publish/TreePublisher.h"
#include "mirror/testing/FakeKernel.h"
#include "quillo/Mount.h"
#include "quillo/tables/Records.h"

namespace Mirror::Test {

using Lines = std::set<std::string>;

// ---- expected, from a kernel

inline bool isRunning(const TestLink& link) {
  return (link.flags & IFF_UP) && (link.operState == IF_OPER_UP || link.operState == IF_OPER_UNKNOWN);
}

// The name and id of a VRF.
struct TestScope {
  std::string vrf = "default";
  unsigned id = 0;
  std::string intf(const std::string& name) const { return id == 0 ? name : vrf + "/" + name; }
};

// The VRF of a link of the default namespace; none if its VRF device is not served. `ids`: those of the VRF devices
// that are served, by name.
inline std::optional<TestScope> scopeOf(const FakeKernel& kernel, const TestLink& link,
                                        const std::map<std::string, unsigned>& ids) {
  const auto master = kernel.links.find(static_cast<int>(link.master));
  const TestLink* device = link.vrfTable ? &link : master == kernel.links.end() ? nullptr : &master->second;
  if (!device || !device->vrfTable) return TestScope();
  if (!ids.contains(device->name)) return std::nullopt;
  return TestScope{device->name, ids.at(device->name)};
}

inline std::string stateOf(const TestAddress& address) {
  if (!address.isIpv6()) return "";
  if (address.flags & IFA_F_DADFAILED) return " duplicate";
  if ((address.flags & IFA_F_TENTATIVE) && !(address.flags & IFA_F_OPTIMISTIC)) return " tentative";
  return address.flags & IFA_F_DEPRECATED ? " deprecated" : "";
}

inline Lines expectedLines(const FakeKernel& kernel, const TestScope& scope = {},
                           const std::map<std::string, unsigned>& deviceIds = {}) {
  Lines lines;
  for (const auto& [ifIndex, link] : kernel.links) {
    const auto vrf = scope.id == 0 ? scopeOf(kernel, link, deviceIds) : scope;
    const std::string name = scope.intf(link.name);
    lines.insert(fmt::format("{} link {}{}", name, scope.id * 1048576 + static_cast<unsigned>(ifIndex),
                             isRunning(link) ? " running" : ""));
    if (!vrf) continue;
    lines.insert(fmt::format("{} l3 {} {}", name, vrf->vrf, vrf->vrf));
    lines.insert(name + " config");
    for (const auto& neighbour : kernel.neighbours) {
      constexpr int usable = NUD_PERMANENT | NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE;
      if (neighbour.ifIndex != ifIndex || !(neighbour.state & usable) || !neighbour.ethAddr) continue;
      lines.insert(fmt::format("{} neighbour {} {} {}{}", name, vrf->id, neighbour.addr.stringValue(),
                               neighbour.ethAddr->stringValue(),
                               neighbour.state == NUD_PERMANENT ? " static" : ""));
    }
    for (const auto& address : kernel.addresses) {
      if (address.ifIndex != ifIndex) continue;
      const std::string text = fmt::format("{}/{}", address.local.stringValue(), address.prefixLength);
      const std::string state = stateOf(address);
      lines.insert(name + " config " + text + state);
      const bool isInForce = isRunning(link) && state != " duplicate" && state != " tentative";
      if (isInForce) lines.insert(name + " status " + text + state);
    }
  }
  return lines;
}

inline std::string typeOf(const TestRoute& route) {
  struct Origin {
    int type = 33, type6 = 17, preference = 250;
  };
  static const std::map<int, Origin> origins{
      {RTPROT_KERNEL, {11, 7, 0}}, {RTPROT_BOOT, {7, 4, 1}}, {RTPROT_STATIC, {7, 4, 1}}, {42, {33, 17, 100}},
      {186, {22, 9, 20}},          {187, {24, 13, 115}},     {188, {15, 10, 110}},       {189, {10, 6, 120}},
      {190, {10, 6, 120}},         {191, {33, 17, 10}},      {192, {33, 17, 90}},        {193, {33, 17, 150}},
      {194, {33, 17, 150}},        {195, {33, 17, 200}},     {196, {7, 4, 1}},           {197, {24, 13, 115}}};
  const auto at = origins.find(route.protocol);
  const Origin origin = at == origins.end() ? Origin() : at->second;
  const bool isGroup = origin.type == 7 && route.protocol != 196 && route.nexthopId != 0;
  return fmt::format("type {}/{}{}{}", route.isIpv6() ? origin.type6 : origin.type, origin.preference,
                     route.protocol == RTPROT_BOOT ? " not persistent" : "", isGroup ? " group" : "");
}

// The vias of a route; empty if it cannot forward and does not refuse packets either.
inline Lines expectedVias(const FakeKernel& kernel, const TestRoute& route, const TestScope& scope) {
  const std::string none = route.isIpv6() ? "::" : "0.0.0.0";
  std::vector<TestHop> hops = route.hops;
  bool isRefusal = route.type != RTN_UNICAST;
  if (const auto object = kernel.nexthops.find(route.nexthopId); object != kernel.nexthops.end()) {
    isRefusal |= object->second.isBlackhole;
    hops.clear();
    for (const auto member : object->second.members) hops.push_back(kernel.nexthops.at(member).hop);
    if (hops.empty()) hops.push_back(object->second.hop);
  }
  const char* const refusal = route.type == RTN_UNREACHABLE ? "unreachable"
                              : route.type == RTN_PROHIBIT  ? "prohibit"
                                                            : "blackhole";
  if (isRefusal) return {none + "@ " + refusal};
  Lines vias;
  for (const auto& hop : hops) {
    const auto link = kernel.links.find(hop.ifIndex);
    if (hop.isDead || link == kernel.links.end()) continue;
    const std::string gateway =
        hop.gateway.empty() ? none : Vantu::IpGenAddr::fromString(hop.gateway).stringValue();
    vias.insert(gateway + "@" + scope.intf(link->second.name));
  }
  return vias;
}

// The ids of the VRFs, by kernel table.
using VrfsByTable = std::multimap<std::uint32_t, unsigned>;

inline Lines expectedRouteLines(const FakeKernel& kernel, const VrfsByTable& vrfs, const TestScope& scope = {}) {
  struct Usable {
    std::tuple<std::uint8_t, std::uint32_t> rank;
    std::string text;
    Lines vias;
    bool isRefusal() const { return vias.begin()->find("@ ") != std::string::npos; }
  };
  std::map<std::string, std::vector<Usable>> byPrefix;
  for (const auto& route : kernel.routes) {
    const bool isKept = route.type == RTN_UNICAST || route.type == RTN_BLACKHOLE || route.type == RTN_UNREACHABLE ||
                        route.type == RTN_PROHIBIT;
    const auto vias = expectedVias(kernel, route, scope);
    if (!isKept || vias.empty()) continue;
    const auto [first, last] = vrfs.equal_range(route.table);
    for (auto vrf = first; vrf != last; ++vrf) {
      const std::string key = fmt::format("{} {}", vrf->second, route.prefix);
      byPrefix[key].push_back(
          {{route.tos, route.metric}, fmt::format("{} {} metric {}", key, typeOf(route), route.metric), vias});
    }
  }
  Lines lines;
  for (auto& [prefix, routes] : byPrefix) {
    std::ranges::stable_sort(routes, {}, &Usable::rank);
    Usable best = routes.front();
    for (const auto& other : routes) {
      const bool isJoined = prefix.find(" fe80:") != std::string::npos && !best.isRefusal() && !other.isRefusal();
      if (isJoined) best.vias.insert(other.vias.begin(), other.vias.end());
    }
    lines.insert(fmt::format("{} {}", best.text, fmt::join(best.vias, " ")));
  }
  return lines;
}

// ---- published, from the picture

// Adds the lines of a record. An address that is both first and secondary is a fault, which adds a line of its own.
template <class Record>
void addIpv4(Lines& lines, const std::string& start, const Vantu::IpAddrWithMask& first, const Record& record) {
  if (first != Vantu::IpAddrWithMask()) lines.insert(start + first.stringValue());
  if (first == Vantu::IpAddrWithMask() && !record.secondaryAddrWithMask().empty()) lines.insert(start + "no first");
  for (const auto& [address, isThere] : record.secondaryAddrWithMask()) {
    if (!isThere || !lines.insert(start + address.stringValue()).second) lines.insert(start + "twice");
  }
}

template <class Record>
void addIpv6(Lines& lines, const std::string& start, const Record& record) {
  for (const auto& [address, info] : record.addr()) {
    const auto state = info.state();
    lines.insert(start + address.stringValue() +
                 (state == Ip6::addressStateDuplicate    ? " duplicate"
                  : state == Ip6::addressStateTentative  ? " tentative"
                  : state == Ip6::addressStateDeprecated ? " deprecated"
                                                         : ""));
  }
}

inline Lines linesOf(const Picture& picture) {
  const Varnix::Tree& tree = picture.tree;
  Lines lines;
  for (const auto& [id, record] : tree.intfStatusDir->intfStatus()) {
    const bool isUp =
        record->operStatus() == Interface::operStatusUp || record->operStatus() == Interface::operStatusUnknown;
    lines.insert(fmt::format("{} link {}{}", id.text(), record->ifIndex(), isUp ? " running" : ""));
    if (record->kind() != "linux") lines.insert(id.text() + " kind " + record->kind());
  }
  for (const auto& [id, record] : tree.l3ConfigDir->intfConfig()) {
    const auto status = tree.l3StatusDir->intfStatus(id);
    lines.insert(fmt::format("{} l3 {} {}", id.text(), record->vrf().stringValue(),
                             status ? status->vrf().stringValue() : "none"));
  }
  const auto expectReference = [&](const Vantu::IntfId& id, bool isRight) {
    if (!isRight) lines.insert(id.text() + " has a wrong reference");
  };
  for (const auto& [id, record] : tree.ipConfig->ipIntfConfig()) {
    lines.insert(id.text() + " config");
    addIpv4(lines, id.text() + " config ", record->addrWithMask(), *record);
    expectReference(id, record->l3Config() == tree.l3ConfigDir->intfConfig(id));
  }
  for (const auto& [id, record] : tree.ipStatus->ipIntfStatus()) {
    addIpv4(lines, id.text() + " status ", record->activeAddrWithMask(), *record);
    expectReference(id, record->l3Status() == tree.l3StatusDir->intfStatus(id));
  }
  for (const auto& [id, record] : tree.ip6Config->intf()) {
    addIpv6(lines, id.text() + " config ", *record);
    expectReference(id, record->l3Config() == tree.l3ConfigDir->intfConfig(id) && !record->addr().empty());
  }
  for (const auto& [id, record] : tree.ip6Status->intf()) {
    addIpv6(lines, id.text() + " status ", *record);
    expectReference(id, record->l3Status() == tree.l3StatusDir->intfStatus(id));
  }
  return lines;
}

// ---- published, from the store

// Calls `visit` with the key and the entry of each record of a table.
template <class Record, class Visit>
void forEachRecord(Lines& lines, const Quillo::Snapshot& snapshot, const Visit& visit) {
  for (auto scan = snapshot.scan(Record::table); scan.valid(); scan.next()) {
    typename Record::Key key;
    typename Record::Entry entry;
    if (Quillo::decodeKey<Record>(scan.key(), key) || Quillo::decodeValue<Record>(scan.value(), entry)) {
      lines.insert("damaged record");
    }
    Record::setKey(entry, key);
    visit(key, entry);
  }
}

inline Lines neighbourLines(const Quillo::Snapshot& snapshot) {
  Lines lines;
  const auto add = [&](const auto&, const Arp::Table::ArpEntry& entry) {
    lines.insert(fmt::format("{} neighbour {} {} {}{}", entry.intfId().text(), entry.vrfId().stringValue(),
                             entry.addr().stringValue(), entry.ethAddr.stringValue(),
                             entry.status.isStatic ? " static" : ""));
  };
  forEachRecord<Quillo::ArpRecord<Vantu::ipv4_>>(lines, snapshot, add);
  forEachRecord<Quillo::ArpRecord<Vantu::ipv6_>>(lines, snapshot, add);
  return lines;
}

using FecTexts = std::map<std::string, std::string>;  // the vias, by VRF and id of the FEC

template <class PrefixType>
void addRoutes(Lines& lines, const Quillo::Snapshot& snapshot, const FecTexts& fecs, Lines& used) {
  forEachRecord<Quillo::RouteRecord<PrefixType>>(lines, snapshot, [&](const auto& key, const auto& route) {
    const std::string fec = key.vrfId.stringValue() + " " + route.fecId.stringValue();
    used.insert(fec);
    const bool forwards = route.action == Routing::Fib::RouteAction::forward;
    lines.insert(fmt::format("{} {} type {}/{}{}{} metric {} {}{}{}", key.vrfId.stringValue(),
                             route.prefix.stringValue(), route.routeType.value(), route.routePreference.value(),
                             route.isPersistent ? "" : " not persistent", route.isNexthopGroup ? " group" : "",
                             route.metric.value(), fecs.contains(fec) ? fecs.at(fec) : "without its FEC",
                             forwards ? "" : " ", forwards ? "" : routeActionName(route.action)));
  });
}

// Also has a line for each fault: a FEC that no route refers to, or that has the same vias as another one.
inline Lines routeLines(const Quillo::Snapshot& snapshot) {
  Lines lines, used, known;
  FecTexts fecs;
  forEachRecord<Quillo::FecRecord>(lines, snapshot, [&](const auto& key, const auto& fec) {
    Lines vias;
    for (const auto& via : fec.via) vias.insert(via.hop.stringValue() + "@" + via.intfId.text());
    const std::string text = fmt::format("{}", fmt::join(vias, " "));
    fecs[key.vrfId.stringValue() + " " + fec.fecId.stringValue()] = text;
    if (!known.insert(key.vrfId.stringValue() + text).second) lines.insert("two FECs with " + text);
  });
  addRoutes<Vantu::Prefix>(lines, snapshot, fecs, used);
  addRoutes<Vantu::Ip6Prefix>(lines, snapshot, fecs, used);
  for (const auto& [fec, text] : fecs) {
    if (!used.contains(fec)) lines.insert("unused FEC with " + text);
  }
  return lines;
}

inline Lines publishedLines(const Picture& picture, Quillo::Mount& store) {
  Lines lines = linesOf(picture);
  const auto snapshot = store.snapshot();
  lines.merge(neighbourLines(snapshot));
  lines.merge(routeLines(snapshot));
  return lines;
}

}  // namespace Mirror::Test

#pragma once
// Routes as lines of text: "VRF PREFIX type TYPE/PREFERENCE [not persistent] [group] metric METRIC HOP@INTERFACE ...",
// those in the store, and those that must be there for a kernel.

#include <map>
#include <set>
#include <string>

#include "mirror/testing/FakeKernel.h"
#include "quillo/Mount.h"
#include "quillo/tables/FecRecord.h"
#include "quillo/tables/RouteRecord.h"

namespace Mirror::Test {

using RouteLines = std::set<std::string>;

inline std::string viaText(const std::set<std::string>& vias) {
  std::string text;
  for (const auto& via : vias) text += " " + via;
  return text;
}

template <class PrefixType>
void addRoutes(RouteLines& lines, const Quillo::Snapshot& snapshot, std::map<std::string, std::string>& fecs,
               std::set<std::string>& used) {
  for (auto scan = snapshot.scan(Quillo::routeTable<PrefixType>); scan.valid(); scan.next()) {
    Vrf::VrfIdMap::VrfId vrfId;
    Quillo::BasicRoute<PrefixType> route;
    if (Quillo::decodeRouteKey(scan.key(), vrfId, route.prefix) || Quillo::decodeRoute(scan.value(), route)) {
      lines.insert("damaged route");
      continue;
    }
    const std::string fec = vrfId.stringValue() + " " + route.fecId.stringValue();
    used.insert(fec);
    lines.insert(vrfId.stringValue() + " " + route.prefix.stringValue() + " type " +
                 std::to_string(route.routeType.value()) + "/" + std::to_string(route.routePreference.value()) +
                 (route.isPersistent ? "" : " not persistent") + (route.isNexthopGroup ? " group" : "") +
                 " metric " + std::to_string(route.metric.value()) +
                 (fecs.contains(fec) ? fecs.at(fec) : " without its FEC"));
  }
}

// With a line for each FEC that nobody refers to, or that has the vias of another one.
inline RouteLines routeLines(const std::string& store) {
  const auto mount = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{store});
  mount->refresh();
  const auto snapshot = mount->snapshot();
  RouteLines lines;
  std::map<std::string, std::string> fecs;
  std::set<std::string> used, known;
  for (auto scan = snapshot.scan(Quillo::TableId::fec); scan.valid(); scan.next()) {
    Vrf::VrfIdMap::VrfId vrfId;
    Quillo::Fib::Fec fec;
    if (Quillo::decodeFecKey(scan.key(), vrfId, fec.fecId) || Quillo::decodeFec(scan.value(), fec)) {
      lines.insert("damaged FEC");
      continue;
    }
    std::set<std::string> vias;
    for (const auto& via : fec.via) vias.insert(via.hop.stringValue() + "@" + via.intfId.text());
    const std::string text = viaText(vias);
    fecs[vrfId.stringValue() + " " + fec.fecId.stringValue()] = text;
    if (!known.insert(vrfId.stringValue() + text).second) lines.insert("two FECs with" + text);
  }
  addRoutes<Vantu::Prefix>(lines, snapshot, fecs, used);
  addRoutes<Vantu::Ip6Prefix>(lines, snapshot, fecs, used);
  for (const auto& [fec, text] : fecs) {
    if (!used.contains(fec)) lines.insert("unused FEC" + text);
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
  return std::to_string(route.isIpv6() ? origin.type6 : origin.type) + "/" + std::to_string(origin.preference) +
         (route.protocol == RTPROT_BOOT ? " not persistent" : "") + (isGroup ? " group" : "");
}

// What the route forwards on; empty when that is nothing.
inline std::set<std::string> expectedVias(const FakeKernel& kernel, const TestRoute& route,
                                          const std::string& scope) {
  const std::string none = route.isIpv6() ? "::" : "0.0.0.0";
  if (route.type != RTN_UNICAST) return {none + "@"};
  std::vector<TestHop> hops = route.hops;
  if (const auto object = kernel.routes.nexthops.find(route.nexthopId); object != kernel.routes.nexthops.end()) {
    hops.clear();
    for (const auto member : object->second.members) hops.push_back(kernel.routes.nexthops.at(member).hop);
    if (hops.empty()) hops.push_back(object->second.hop);
  }
  std::set<std::string> vias;
  for (const auto& hop : hops) {
    const auto link = kernel.links.find(hop.ifIndex);
    if (hop.isDead || link == kernel.links.end()) continue;
    const std::string gateway =
        hop.gateway.empty() ? none : Vantu::IpGenAddr::fromString(hop.gateway).stringValue();
    vias.insert(gateway + "@" + scope + link->second.name);
  }
  return vias;
}

// The ids of the VRFs, by kernel table.
using VrfsByTable = std::multimap<std::uint32_t, unsigned>;

inline RouteLines expectedRouteLines(const FakeKernel& kernel, const VrfsByTable& vrfs,
                                     const std::string& scope = "") {
  std::map<std::string, std::pair<std::tuple<std::uint8_t, std::uint32_t>, std::string>> best;
  for (const auto& route : kernel.routes.list) {
    const auto vias = expectedVias(kernel, route, scope);
    if (vias.empty()) continue;
    const auto [first, last] = vrfs.equal_range(route.table);
    for (auto vrf = first; vrf != last; ++vrf) {
      const std::string key = std::to_string(vrf->second) + " " + route.prefix;
      const auto rank = std::make_tuple(route.tos, route.metric);
      if (best.contains(key) && best.at(key).first <= rank) continue;
      best[key] = {rank,
                   key + " type " + typeOf(route) + " metric " + std::to_string(route.metric) + viaText(vias)};
    }
  }
  RouteLines lines;
  for (const auto& [key, entry] : best) lines.insert(entry.second);
  return lines;
}

}  // namespace Mirror::Test

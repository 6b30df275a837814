#include "ctl/ReadableRecords.h"

#include <array>
#include <string_view>

#include "quillo/tables/RouteOrigin.h"
#include "varnix/Document.h"

namespace Ctl {
namespace {

using Quillo::TableId;
using Quillo::Fib::Via;
using VrfId = StoreReader::VrfId;

namespace TypeNames {
constexpr RouteTypeName other{"other", "other"}, connected{"connected", "kernel"}, statical{"static", "static"},
    rip{"rip", "rip"}, isIs{"isIs", "isis"}, ospf{"ospf", "ospf"}, bgp{"bgp", "bgp"}, ospf3{"ospfv3", "ospf"},
    boot{"staticNonPersistent", "boot"}, group{"staticNexthopGroup", "static"}, attached{"attached", "attached"},
    vcs{"vcs", "vcs"}, internal{"internal", "internal"};
}  // namespace TypeNames

// By the number in the record, which differs between the IP versions.
constexpr auto names4 = [] {
  using namespace TypeNames;
  return std::array<RouteTypeName, 33>{
      other,     internal, internal, internal, internal, attached, other, statical, vcs,   internal, rip,
      connected, other,    bgp,      ospf,     ospf,     ospf,     ospf,  ospf,     ospf,  ospf,     bgp,
      bgp,       bgp,      isIs,     isIs,     group,    statical, ospf3, ospf3,    ospf3, ospf3,    ospf3};
}();
constexpr auto names6 = [] {
  using namespace TypeNames;
  return std::array<RouteTypeName, 17>{other, internal,  internal, attached, statical, internal,
                                       rip,   connected, other,    bgp,      ospf,     ospf,
                                       bgp,   isIs,      isIs,     group,    statical};
}();

template <class PrefixType>
constexpr bool isV6 = std::is_same_v<PrefixType, Vantu::Ip6Prefix>;

template <class PrefixType>
auto routingOf(StoreReader& store, const NamedVrf& vrf) {
  const auto& tree = store.tree();
  const Kel::Name name(vrf.name.stringValue());
  if constexpr (isV6<PrefixType>) {
    return vrf.name.isDefault() ? tree.routing6Config : tree.routing6VrfConfigDir->vrfConfig(name);
  } else {
    return vrf.name.isDefault() ? tree.routingConfig : tree.routingVrfConfigDir->vrfConfig(name);
  }
}

// The number of static routes, whose kind does not follow from the number.
template <class PrefixType>
constexpr unsigned staticType = isV6<PrefixType> ? Quillo::staticRoute.type6 : Quillo::staticRoute.type;

bool isDiscard(const Via& via) {
  return via.hop.isZero() && via.intfId.empty();
}

// A decoded key: the VRF (not of documents), the name for people, and the fields.
struct DecodedKey {
  VrfId vrfId;
  std::string text;
  Json fields;
};

template <class PrefixType>
const char* decodeRoutePrefix(Quillo::Bytes bytes, DecodedKey& key) {
  typename Quillo::RouteRecord<PrefixType>::Key route;
  if (const char* what = Quillo::decodeKey<Quillo::RouteRecord<PrefixType>>(bytes, route)) return what;
  key.vrfId = route.vrfId;
  key.text = "route " + route.prefix.stringValue();
  key.fields["prefix"] = route.prefix.stringValue();
  return nullptr;
}

template <Vantu::Af family>
const char* decodeNeighbour(Quillo::Bytes bytes, DecodedKey& key) {
  Arp::Table::ArpKey arp;
  if (const char* what = Quillo::decodeKey<Quillo::ArpRecord<family>>(bytes, arp)) return what;
  key.vrfId = arp.vrfId;
  key.text = fmt::format("neighbour {} dev {}", arp.addr.stringValue(), nameText(arp.intfId.text()));
  key.fields = {{"address", arp.addr.stringValue()}, {"interface", nameText(arp.intfId.text())}};
  return nullptr;
}

const char* decode(TableId table, Quillo::Bytes bytes, DecodedKey& key) {
  switch (table) {
    case TableId::varnix:
      key.text = "document " + nameText(bytes);
      key.fields["path"] = nameText(bytes);
      return nullptr;
    case TableId::arp:
      return decodeNeighbour<Vantu::ipv4_>(bytes, key);
    case TableId::neighbor:
      return decodeNeighbour<Vantu::ipv6_>(bytes, key);
    case TableId::route:
      return decodeRoutePrefix<Vantu::Prefix>(bytes, key);
    case TableId::route6:
      return decodeRoutePrefix<Vantu::Ip6Prefix>(bytes, key);
    case TableId::fec: {
      Quillo::FecRecord::Key fec;
      if (const char* what = Quillo::decodeKey<Quillo::FecRecord>(bytes, fec)) return what;
      key.vrfId = fec.vrfId;
      key.text = "next hops " + fec.fecId.stringValue();
      key.fields["fec"] = fec.fecId.stringValue();  // a text: programs read large numbers inexactly
      return nullptr;
    }
  }
  return "a table that this program does not know";
}

template <class PrefixType>
const char* addRoute(Quillo::Bytes value, Json& fields) {
  Quillo::BasicRoute<PrefixType> route;
  if (const char* what = Quillo::decodeValue<Quillo::RouteRecord<PrefixType>>(value, route)) return what;
  const auto type = route.routeType.value();
  fields["proto"] = routeTypeName<PrefixType>(type, route.isNexthopGroup, route.isPersistent).proto;
  fields["type"] = type;
  fields["preference"] = route.preference().value();
  fields["metric"] = route.metric.value();
  fields["persistent"] = route.isPersistent;
  fields["nexthopGroup"] = route.isNexthopGroup;
  fields["action"] = routeActionName(route.action);
  fields["fec"] = route.fecId.stringValue();
  return nullptr;
}

template <class PrefixType>
const char* routeFault(Quillo::Bytes key, Quillo::Bytes value) {
  using Record = Quillo::RouteRecord<PrefixType>;
  typename Record::Key routeKey;
  typename Record::Entry route;
  return Quillo::decodeRecord<Record>(key, value, routeKey, route);
}

const char* addValue(TableId table, Quillo::Bytes value, Json& fields) {
  switch (table) {
    case TableId::varnix: {
      auto document = Json::parse(value, nullptr, false);
      if (!document.is_object()) return "no JSON object";
      fields.update(document);
      return nullptr;
    }
    case TableId::arp:
    case TableId::neighbor: {
      Arp::Table::ArpEntry entry;
      if (const char* what = Quillo::decodeValue<Quillo::ArpRecord<Vantu::ipv4_>>(value, entry)) return what;
      fields["lladdr"] = entry.ethAddr.stringValue();
      fields["type"] = entry.status.isStatic ? "static" : "dynamic";
      return nullptr;
    }
    case TableId::route:
      return addRoute<Vantu::Prefix>(value, fields);
    case TableId::route6:
      return addRoute<Vantu::Ip6Prefix>(value, fields);
    case TableId::fec: {
      Quillo::Fib::Fec fec;
      if (const char* what = Quillo::decodeValue<Quillo::FecRecord>(value, fec)) return what;
      fields["nexthops"] = nextHopsJson(&fec.via, L3::VrfName());
      return nullptr;
    }
  }
  return "a table that this program does not know";
}

}  // namespace

template <class PrefixType>
RouteTypeName routeTypeName(unsigned type, bool isNexthopGroup, bool isPersistent) {
  if (type == staticType<PrefixType>)
    return isNexthopGroup ? TypeNames::group : isPersistent ? TypeNames::statical : TypeNames::boot;
  if constexpr (isV6<PrefixType>) {
    return type < names6.size() ? names6[type] : TypeNames::other;
  } else {
    return type < names4.size() ? names4[type] : TypeNames::other;
  }
}

template <class PrefixType>
bool isCounted(unsigned type) {
  return isV6<PrefixType> ? type != 0 && type != 3 && type != 8 : type != 0 && type != 5 && type != 12;
}

template <class PrefixType>
RouteTypeName routeTypeName(StoreReader& store, const NamedVrf& vrf, const Quillo::BasicRoute<PrefixType>& route) {
  const unsigned type = route.routeType.value();
  bool isNexthopGroup = route.isNexthopGroup;
  bool isPersistent = route.isPersistent;
  if (type == staticType<PrefixType>) {
    const auto config = routingOf<PrefixType>(store, vrf);
    if (const auto* facts = config ? config->staticRoute({route.prefix, route.preference()}) : nullptr) {
      isNexthopGroup = facts->nexthopGroup();
      isPersistent = facts->persistent();
    }
  }
  return routeTypeName<PrefixType>(type, isNexthopGroup, isPersistent);
}

template RouteTypeName routeTypeName<Vantu::Prefix>(unsigned, bool, bool);
template RouteTypeName routeTypeName<Vantu::Ip6Prefix>(unsigned, bool, bool);
template bool isCounted<Vantu::Prefix>(unsigned);
template bool isCounted<Vantu::Ip6Prefix>(unsigned);
template RouteTypeName routeTypeName(StoreReader&, const NamedVrf&, const Quillo::BasicRoute<Vantu::Prefix>&);
template RouteTypeName routeTypeName(StoreReader&, const NamedVrf&, const Quillo::BasicRoute<Vantu::Ip6Prefix>&);

const std::vector<Via>* NextHops::find(Quillo::Snapshot& snapshot, VrfId vrfId, Quillo::Fib::FecId fecId) {
  if (fecId == Quillo::Fib::FecId()) return nullptr;
  vrfId = store_.fecVrf(vrfId);
  if (fec_.exists() && vrfId == vrfId_ && fecId == fec_.fecId) return &fec_.via;
  fec_.clear();
  const auto key = Quillo::encodeKey<Quillo::FecRecord>({vrfId, fecId});
  try {
    const auto value = snapshot.get(TableId::fec, key);
    if (!value) return nullptr;
    if (const char* what = Quillo::decodeValue<Quillo::FecRecord>(*value, fec_)) {
      store_.noteDamage(TableId::fec, key, what);
      return nullptr;
    }
  } catch (const Pesk::CorruptionDetectedException& damage) {
    store_.noteDamage(TableId::fec, key, damage.what());
    return nullptr;
  }
  vrfId_ = vrfId;
  fec_.fecId = fecId;
  return &fec_.via;
}

std::string hopText(const Via& via, Routing::Fib::RouteAction action) {
  if (action != Routing::Fib::RouteAction::forward) return std::string(routeActionName(action));
  return isDiscard(via) ? "discard" : via.hop.isZero() ? "on-link" : via.hop.stringValue();
}

Json nextHopsJson(const std::vector<Via>* vias, const L3::VrfName& vrf) {
  auto hops = Json::array();
  if (!vias) return hops;
  for (const auto& via : *vias) {
    auto hop = Json::object();
    if (!via.hop.isZero()) hop["via"] = via.hop.stringValue();
    if (!via.intfId.empty()) hop["dev"] = devOf(via.intfId, vrf);
    if (isDiscard(via)) hop["discard"] = true;
    hops.push_back(std::move(hop));
  }
  return hops;
}

std::string keyText(StoreReader& store, TableId table, const std::string& key) {
  DecodedKey decoded;
  if (const char* what = decode(table, key, decoded)) {
    return fmt::format("key \"{}\" of table {} ({})", Quillo::printableKey(key), Quillo::tableInfo(table).name,
                       what);
  }
  if (table == TableId::varnix) return decoded.text;
  return decoded.text + " in VRF " + store.vrfText(decoded.vrfId);
}

Json keyJson(TableId table, Quillo::Bytes key, const char*& what) {
  DecodedKey decoded;
  what = decode(table, key, decoded);
  return what ? Json() : decoded.fields;
}

const char* recordFault(TableId table, Quillo::Bytes key, Quillo::Bytes value) {
  switch (table) {
    case TableId::route:
      return routeFault<Vantu::Prefix>(key, value);
    case TableId::route6:
      return routeFault<Vantu::Ip6Prefix>(key, value);
    default: {
      DecodedKey decoded;
      const char* what = decode(table, key, decoded);
      Json fields;
      return what ? what : addValue(table, value, fields);
    }
  }
}

Json recordJson(StoreReader& store, TableId table, Quillo::Bytes key, Quillo::Bytes value, const char*& what) {
  DecodedKey decoded;
  what = decode(table, key, decoded);
  if (what) return nullptr;
  Json record{{"table", Quillo::tableInfo(table).name}};
  if (table != TableId::varnix) record["vrf"] = store.vrfText(decoded.vrfId);
  record.update(decoded.fields);
  what = addValue(table, value, record);
  return what ? Json() : record;
}

}  // namespace Ctl

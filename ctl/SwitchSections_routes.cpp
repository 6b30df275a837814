#include <algorithm>

#include "ctl/AddressSteps.h"
#include "ctl/SwitchFile.h"
#include "ctl/SwitchSections.h"
#include "quillo/tables/FecIds.h"
#include "quillo/tables/RouteOrigin.h"

namespace Ctl {

namespace {

using Quillo::Fib::FecId;
using Quillo::Fib::Via;

constexpr const char* viaForms =
    "write 'ADDRESS INTERFACE', an interface for an on-link route, or blackhole; several as a list";
constexpr const char* prefixForm = "write it as ADDRESS/LENGTH, such as 10.0.0.0/8";

class RouteReader : YamlFields {
 public:
  RouteReader(const YamlFields& fields, UsedInterfaces& used) : YamlFields(fields), used_(used) {}

  void readRoute(const YamlNode& node, VrfEntry& vrf, const std::string& path) {
    checkKeys(node, path,
              {"prefix", "count", "via", "fec", "proto", "type", "metric", "preference", "persistent",
               "nexthopGroup", "action"});
    const auto* prefix = node.value("prefix");
    if (!prefix) fail(node, path, "a route has no prefix", "write 'prefix: ADDRESS/LENGTH'");
    if (prefix->text.find(':') == std::string::npos) {
      readRouteOf<Vantu::Prefix>(node, *prefix, vrf, vrf.prefixes, path);
    } else {
      readRouteOf<Vantu::Ip6Prefix>(node, *prefix, vrf, vrf.prefixes6, path);
    }
  }

  template <class PrefixType>
  void readRouteOf(const YamlNode& node, const YamlNode& prefixNode, VrfEntry& vrf,
                   absl::btree_set<PrefixType>& known, const std::string& path) {
    constexpr bool isIpv6 = std::is_same_v<PrefixType, Vantu::Ip6Prefix>;
    const std::string key = path + ".prefix";
    const auto from = text(prefixNode, key, prefixForm, [](const std::string& given) {
      return PrefixType(std::remove_cvref_t<decltype(PrefixType().addrWithMask())>::fromString(given));
    });
    Quillo::BasicRoute<PrefixType> route;
    if (const auto* metric = node.value("metric")) {
      route.metric = Routing::RouteMetric(number<std::uint32_t>(*metric, path + ".metric"));
    }
    readOrigin(node, path, isIpv6, route);
    route.isPersistent = flag(node.value("persistent"), path + ".persistent", true);
    route.isNexthopGroup = flag(node.value("nexthopGroup"), path + ".nexthopGroup", false);
    route.action = readAction(node, path);
    route.fecId = readFec(node, vrf, path, isIpv6 ? Vantu::ipv6_ : Vantu::ipv4_);
    const std::uint32_t prefixes = count(node, path);
    for (std::uint32_t step = 0; step < prefixes; ++step) {
      route.prefix = text(prefixNode, key, prefixForm,
                          [&](const std::string&) { return PrefixType(plus(from.addrWithMask(), step)); });
      const std::size_t before = known.size();
      known.insert(known.end(), route.prefix);
      if (known.size() == before) {
        fail(prefixNode, key, fmt::format("a route to {} is there twice", route.prefix.stringValue()),
             "remove one of them");
      }
      vrf.tables.routesOf<PrefixType>().push_back(route);
    }
  }

  template <class Route>
  void readOrigin(const YamlNode& node, const std::string& path, bool isIpv6, Route& route) const {
    const auto* proto = node.value("proto");
    const auto* type = node.value("type");
    Quillo::RouteOrigin origin = type ? Quillo::otherRoute : Quillo::staticRoute;
    if (proto && type) fail(*type, path + ".type", "the route has proto too", "remove one of them");
    if (proto) {
      const auto at = std::find_if(Quillo::routeOrigins.begin(), Quillo::routeOrigins.end(),
                                   [&](const auto& known) { return known.name == proto->text; });
      if (at == Quillo::routeOrigins.end()) {
        std::vector<std::string_view> names;
        names.reserve(Quillo::routeOrigins.size());
        for (const auto& known : Quillo::routeOrigins) names.push_back(known.name);
        fail(*proto, path + ".proto", fmt::format("'{}' is no protocol here", Varnix::escapeBytes(proto->text)),
             fmt::format("use {}", fmt::join(names, ", ")));
      }
      origin = *at;
    }
    auto number8 = isIpv6 ? origin.type6 : origin.type;
    if (type) number8 = number<std::uint8_t>(*type, path + ".type", 1);
    route.routeType = Routing::Fib::RouteType(number8);
    const auto* preference = node.value("preference");
    route.routePreference = Routing::RoutePreference(
        preference ? number<std::uint8_t>(*preference, path + ".preference") : origin.preference);
  }

  Routing::Fib::RouteAction readAction(const YamlNode& node, const std::string& path) const {
    using Routing::Fib::RouteAction;
    if (const auto* action = node.value("action")) {
      const auto& names = Routing::Fib::routeActionNames;
      const auto at = std::find(names.begin(), names.end(), action->text);
      if (at == names.end()) {
        fail(*action, path + ".action", fmt::format("'{}' is no action", Varnix::escapeBytes(action->text)),
             fmt::format("use {}", fmt::join(names, ", ")));
      }
      return static_cast<RouteAction>(at - names.begin());
    }
    const auto* via = node.value("via");
    const bool leadsNowhere = via && via->kind == YamlNode::Kind::scalar && via->text == blackholeWord;
    return leadsNowhere ? RouteAction::blackhole : RouteAction::forward;
  }

  FecId readFec(const YamlNode& node, VrfEntry& vrf, const std::string& path, Vantu::Af af) {
    const auto* via = node.value("via");
    const auto* fec = node.value("fec");
    if (!via == !fec) fail(node, path, via ? "the route has via and fec" : "the route has no via", viaForms);
    if (fec) {
      const FecId id(number<std::uint64_t>(*fec, path + ".fec"));
      if (id != FecId()) vrf.wanted.try_emplace(id, fec->line);
      return id;
    }
    auto& known = vrf.byText[af == Vantu::ipv6_];
    if (via->kind == YamlNode::Kind::scalar) {
      if (const auto at = known.find(via->text); at != known.end()) return at->second;
    }
    const FecId id = fecOf(vrf.tables, vias(*via, path + ".via", af));
    if (via->kind == YamlNode::Kind::scalar) known.emplace(via->text, id);
    return id;
  }

  static FecId fecOf(VrfTables& tables, const std::vector<Via>& vias) {
    for (FecId id = Quillo::fecIdOf(vias);; id = FecId(id.value() + 1)) {
      if (id == FecId()) continue;
      const auto [at, isNew] = tables.fecs.try_emplace(id, vias);
      if (isNew || at->second == vias) return id;
    }
  }

  std::vector<Via> vias(const YamlNode& node, const std::string& path, Vantu::Af af) {
    std::vector<Via> result;
    if (node.kind == YamlNode::Kind::list) {
      for (const auto& item : node.items) result.push_back(viaOf(item, path, af));
    } else {
      result.push_back(viaOf(node, path, af));
    }
    Quillo::sortVias(result);
    checkVias(node, path, result);
    return result;
  }

  void checkVias(const YamlNode& node, std::string_view path, const std::vector<Via>& vias) const {
    if (vias.size() <= Quillo::Fib::Fec::maxVias) return;
    fail(node, path, fmt::format("{} next hops are too many", vias.size()),
         fmt::format("write at most {}", Quillo::Fib::Fec::maxVias));
  }

  // `af`: of the route, which an on-link via takes; unknown where the via must have an address.
  Via viaOf(const YamlNode& node, const std::string& path, Vantu::Af af) {
    Via via;
    if (af != Vantu::unknown_) {
      via.hop = af == Vantu::ipv6_ ? Vantu::IpGenAddr(Vantu::Ip6Addr()) : Vantu::IpGenAddr(Vantu::IpAddr());
    }
    if (node.kind == YamlNode::Kind::map) {
      checkKeys(node, path, {"address", "interface"});
      if (const auto* address = node.value("address")) {
        via.hop = text(*address, path + ".address", viaForms, hopFromText);
      }
      if (const auto* name = node.value("interface")) via.intfId = interfaceName(*name, path + ".interface");
    } else if (node.kind != YamlNode::Kind::scalar || node.text.empty()) {
      fail(node, path, "it is no next hop", viaForms);
    } else if (node.text != blackholeWord) {
      YamlNode name = node;
      const std::size_t blank = node.text.find(' ');
      try {
        via.hop = hopFromText(node.text.substr(0, blank));
        name.text = blank == std::string::npos ? "" : node.text.substr(blank + 1);
      } catch (const Kel::RangeException&) {
        if (blank != std::string::npos) {
          fail(node, path, fmt::format("'{}' is no next hop", Varnix::escapeBytes(node.text)), viaForms);
        }
      }
      if (!name.text.empty()) via.intfId = interfaceName(name, path);
    }
    if (!via.hop.isSet()) fail(node, path, "the next hop has no address", "write it as 'ADDRESS INTERFACE'");
    if (via.intfId.isValid()) used_.try_emplace(via.intfId, node.line, path);
    return via;
  }

  static Vantu::IpGenAddr hopFromText(const std::string& given) {
    if (given.empty()) throw Kel::RangeException("the address is empty");
    return Vantu::IpGenAddr::fromString(given);
  }

  void readNeighbour(const YamlNode& node, VrfEntry& vrf, const std::string& path) {
    checkKeys(node, path, {"address", "interface", "mac", "static", "count"});
    const auto* address = node.value("address");
    const auto* name = node.value("interface");
    const auto* mac = node.value("mac");
    if (!address || !name || !mac) {
      fail(node, path, "a neighbour has address, interface and mac", "write all three");
    }
    constexpr const char* addressAdvice = "write an IPv4 or IPv6 address";
    const auto first = text(*address, path + ".address", addressAdvice, hopFromText);
    const auto firstMac = text(*mac, path + ".mac", "write it as 02:00:00:00:00:01", Vantu::EthAddr::fromString);
    const auto intfId = interfaceName(*name, path + ".interface");
    const bool isStatic = flag(node.value("static"), path + ".static", false);
    used_.try_emplace(intfId, name->line, path + ".interface");
    const std::uint32_t neighbours = count(node, path);
    for (std::uint32_t step = 0; step < neighbours; ++step) {
      Arp::Table::ArpEntry entry;
      entry.key.intfId = intfId;
      text(*address, path + ".address", addressAdvice, [&](const std::string&) {
        entry.key.addr = first.af() == Vantu::ipv4_ ? Vantu::IpGenAddr(plus(first.v4(), step, 32))
                                                    : Vantu::IpGenAddr(plus(first.v6(), step, 128));
        entry.ethAddr = Vantu::EthAddr(plusBytes(firstMac.bytes(), step, 0));
        return 0;
      });
      entry.status.isStatic = isStatic;
      if (!vrf.neighbourKeys.emplace(entry.key.addr, intfId).second) {
        fail(*address, path + ".address",
             fmt::format("the neighbour {} is there twice on its interface", entry.key.addr.stringValue()),
             "remove one of them");
      }
      vrf.neighbours.push_back(std::move(entry));
    }
  }

  void readFecs(const YamlNode& node, VrfEntry& vrf, const std::string& path) {
    checkKind(node, YamlNode::Kind::list, path, "begin each FEC with '- {id: ...'");
    for (const auto& item : node.items) {
      checkKeys(item, path, {"id", "vias"});
      const auto* id = item.value("id");
      const auto* list = item.value("vias");
      if (!id || !list || list->kind != YamlNode::Kind::list) {
        fail(item, path, "a FEC has an id and a list of vias", "write '- {id: 1, vias: [10.0.0.2 Ethernet1]}'");
      }
      const FecId fecId(number<std::uint64_t>(*id, path + ".id", 1));
      std::vector<Via> vias;
      for (const auto& via : list->items) vias.push_back(viaOf(via, path + ".vias", Vantu::unknown_));
      checkVias(*list, path + ".vias", vias);
      const auto [at, isNew] = vrf.tables.fecs.try_emplace(fecId, vias);
      if (!isNew && at->second != vias) {
        fail(*id, path + ".id", fmt::format("another FEC has the id {}", fecId.value()), "write another number");
      }
    }
  }

 private:
  UsedInterfaces& used_;
};

}  // namespace

void readRoute(const YamlFields& fields, const YamlNode& node, const std::string& path, VrfEntry& vrf,
               UsedInterfaces& used) {
  RouteReader(fields, used).readRoute(node, vrf, path);
}

void readNeighbour(const YamlFields& fields, const YamlNode& node, const std::string& path, VrfEntry& vrf,
                   UsedInterfaces& used) {
  RouteReader(fields, used).readNeighbour(node, vrf, path);
}

void readFecs(const YamlFields& fields, const YamlNode& node, const std::string& path, VrfEntry& vrf,
              UsedInterfaces& used) {
  RouteReader(fields, used).readFecs(node, vrf, path);
}

void readStaticRoute(const YamlFields& fields, const YamlNode& node, const std::string& path, VrfSpec& spec) {
  fields.checkKeys(node, path, {"prefix", "preference", "nexthopGroup", "persistent"});
  const auto* prefix = node.value("prefix");
  if (!prefix) fields.fail(node, path, "a static route has no prefix", "write 'prefix: ADDRESS/LENGTH'");
  const auto* preference = node.value("preference");
  const Routing::RoutePreference distance(
      preference ? fields.number<std::uint8_t>(*preference, path + ".preference") : Quillo::staticRoute.preference);
  const Routing::StaticRouteFacts facts(fields.flag(node.value("nexthopGroup"), path + ".nexthopGroup", false),
                                        fields.flag(node.value("persistent"), path + ".persistent", true));
  const bool isNew =
      prefix->text.find(':') == std::string::npos
          ? spec.staticRoutes
                .try_emplace(
                    {fields.text(*prefix, path + ".prefix", prefixForm, Vantu::Prefix::fromString), distance},
                    facts)
                .second
          : spec.staticRoutes6
                .try_emplace(
                    {fields.text(*prefix, path + ".prefix", prefixForm, Vantu::Ip6Prefix::fromString), distance},
                    facts)
                .second;
  if (!isNew) fields.fail(node, path, "the route is there twice", "remove one of them");
}

}  // namespace Ctl

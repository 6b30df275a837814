#include "ctl/SwitchFile.h"

#include <absl/container/btree_set.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <unordered_map>

#include "ctl/YamlText.h"
#include "kel/System.h"
#include "quillo/tables/FecIds.h"
#include "quillo/tables/RouteOrigin.h"
#include "varnix/ByteText.h"
#include "varnix/Document.h"
#include "varnix/TreePlaces.h"

namespace Ctl {

namespace {

using Keys = std::initializer_list<std::string_view>;
using Quillo::Fib::FecId;
using Quillo::Fib::Via;

constexpr const char* viaForms =
    "write 'ADDRESS INTERFACE', an interface for an on-link route, or blackhole; several as a list";
constexpr std::uint32_t maxCount = 16'000'000;

// ---- numbers beside addresses, for keys with a count

Vantu::IpAddr plus(const Vantu::IpAddr& address, std::uint64_t steps, unsigned length) {
  const std::uint64_t value = address.value() + (length == 0 ? 0 : steps << (32 - length));
  if (value > 0xffffffff) throw Kel::RangeException("the addresses end before the count does");
  return Vantu::IpAddr(static_cast<std::uint32_t>(value));
}

// Adds to big-endian bytes, of which the last `ignored` bits are no part of the number.
template <std::size_t size>
std::array<std::uint8_t, size> plusBytes(std::array<std::uint8_t, size> bytes, std::uint64_t steps,
                                         unsigned ignored) {
  std::uint64_t carry = steps << (ignored % 8);
  for (std::size_t at = size - ignored / 8; at-- > 0 && carry > 0;) {
    carry += bytes[at];
    bytes[at] = static_cast<std::uint8_t>(carry & 0xff);
    carry >>= 8;
  }
  if (carry > 0) throw Kel::RangeException("the addresses end before the count does");
  return bytes;
}

Vantu::Ip6Addr plus(const Vantu::Ip6Addr& address, std::uint64_t steps, unsigned length) {
  return length == 0 ? address : Vantu::Ip6Addr(plusBytes(address.bytes(), steps, 128 - length));
}

template <class Address>
Vantu::AddrWithMask<Address> plus(const Vantu::AddrWithMask<Address>& address, std::uint64_t steps) {
  return {plus(address.address(), steps, address.length()), address.length()};
}

// "Ethernet1" and 3 give "Ethernet4".
std::string plusNumber(const std::string& name, std::uint32_t steps) {
  if (steps == 0) return name;
  const std::size_t digits = name.find_last_not_of("0123456789") + 1;
  const auto number = Kel::numberFromText<std::uint32_t>(std::string_view(name).substr(digits));
  if (!number) throw Kel::RangeException("a name of several interfaces ends with the first one's number");
  return name.substr(0, digits) + std::to_string(*number + steps);
}

// ---- reading

class SwitchReader {
 public:
  explicit SwitchReader(const SwitchReading& reading) : reading_(reading) {}

  SwitchState read(const std::string& text) {
    const YamlNode root = yamlFromText(
        text, {.file = reading_.file,
               .take = [this](const YamlPath& path, const YamlNode& entry) { return take(path, entry); },
               .progress = reading_.progress});
    if (root.kind == YamlNode::Kind::null)
      fail(1, "the file", "it is empty", "write 'vrfs:' and the VRFs below it");
    checkKeys(root, "the file", {"fecMode", "vrfs", "absentInterfaces", "documents"});
    if (const auto* mode = root.value("fecMode")) {
      state_.tree.l3Config->fecModeIs(word<Quillo::Fib::FecMode>(*mode, "fecMode", fecModePrefix));
    }
    if (const auto* vrfs = root.value("vrfs")) readVrfs(*vrfs);
    vrfs_.try_emplace(L3::VrfName());
    assignIds();
    assignIfIndexes();
    if (const auto* names = root.value("absentInterfaces")) readAbsent(*names);
    checkUsed();
    build();
    if (const auto* documents = root.value("documents")) readDocuments(*documents);
    return std::move(state_);
  }

 private:
  struct InterfaceEntry {
    InterfaceSpec spec;
    std::array<std::vector<MovingCounters::Counter>, 2> moving;
    int line = 0;
  };
  struct VrfEntry {
    VrfSpec spec{.id = VrfId()};  // unknown unless the file has it
    int line = 0;
    std::vector<InterfaceEntry> interfaces;
    std::vector<Arp::Table::ArpEntry> neighbours;  // without a VRF id
    VrfTables tables;
    absl::btree_set<Vantu::Prefix> prefixes;
    absl::btree_set<Vantu::Ip6Prefix> prefixes6;
    std::set<std::pair<Vantu::IpGenAddr, Vantu::IntfId>> neighbourKeys;
    std::unordered_map<std::string, FecId> byText[2];  // FECs of one via, by IP version
    std::map<FecId, int> wanted;                       // by `fec:`, each with its first line
  };
  using Vrfs = std::map<L3::VrfName, VrfEntry>;

  // ---- messages

  [[noreturn]] void fail(int line, std::string_view key, std::string_view what, std::string_view advice) const {
    throw YamlException(fmt::format("{}:{}: {}: {}; {}", reading_.file, line, key, what, advice));
  }
  [[noreturn]] void fail(const YamlNode& node, std::string_view key, std::string_view what,
                         std::string_view advice) const {
    fail(node.line, key, what, advice);
  }
  static std::string pathOf(const L3::VrfName& name) { return "vrfs." + Varnix::escapeBytes(name.stringValue()); }

  // ---- values

  void checkKeys(const YamlNode& node, std::string_view path, Keys known) const {
    const auto list = [&] { return fmt::format("the keys are {}", fmt::join(known, ", ")); };
    if (node.kind != YamlNode::Kind::map) fail(node, path, "it has no keys", list());
    for (std::size_t at = 0; at < node.items.size(); at += 2) {
      const YamlNode& key = node.items[at];
      if (std::find(known.begin(), known.end(), key.text) == known.end()) {
        fail(key, path, fmt::format("'{}' is no key of it", Varnix::escapeBytes(key.text)), list());
      }
      for (std::size_t other = 0; other < at; other += 2) {
        if (node.items[other].text == key.text) {
          fail(key, path, fmt::format("'{}' is there twice", key.text), "remove one");
        }
      }
    }
  }

  void checkKind(const YamlNode& node, YamlNode::Kind kind, std::string_view path, std::string_view advice) const {
    if (node.kind == kind || node.kind == YamlNode::Kind::null) return;
    fail(node, path, kind == YamlNode::Kind::list ? "it is no list" : "it has no keys", advice);
  }

  template <class Read>
  auto text(const YamlNode& node, std::string_view path, std::string_view advice, const Read& from) const {
    if (node.kind != YamlNode::Kind::scalar) fail(node, path, "it is no text", advice);
    try {
      return from(node.text);
    } catch (const Kel::RangeException& error) {
      fail(node, path, error.what(), advice);
    }
  }

  template <class Number>
  Number number(const YamlNode& node, std::string_view path, Number least = 0,
                Number most = std::numeric_limits<Number>::max()) const {
    const auto value = Kel::numberFromText<Number>(node.text);
    if (node.kind != YamlNode::Kind::scalar || !value || *value < least || *value > most) {
      fail(node, path, fmt::format("'{}' is no number there", Varnix::escapeBytes(node.text)),
           fmt::format("use {} to {}", least, most));
    }
    return *value;
  }

  double decimal(const YamlNode& node, std::string_view path) const {
    double value = 0;
    const char* end = node.text.data() + node.text.size();
    const auto [stop, error] = std::from_chars(node.text.data(), end, value);
    if (node.kind != YamlNode::Kind::scalar || error != std::errc() || stop != end ||
        !(value >= 0 && value < 1e18)) {
      fail(node, path, fmt::format("'{}' is no number there", Varnix::escapeBytes(node.text)),
           "use a number of at least 0, such as 1500 or 0.5");
    }
    return value;
  }

  bool flag(const YamlNode* node, std::string_view path, bool absent) const {
    if (!node) return absent;
    if (node->text == "true" || node->text == "false") return node->text == "true";
    fail(*node, path, "it is neither", "use true or false");
  }

  template <class E>
  E word(const YamlNode& node, std::string_view path, std::string_view prefix) const {
    return wordOf<E>(node, node.text, path, prefix);
  }
  template <class E>
  E wordOf(const YamlNode& node, std::string_view given, std::string_view path, std::string_view prefix) const {
    std::optional<E> found;
    std::vector<std::string> words;
    boost::mp11::mp_for_each<boost::describe::describe_enumerators<E>>([&](auto d) {
      words.push_back(enumWord(d.value, prefix));
      if (words.back() == given) found = d.value;
    });
    if (node.kind == YamlNode::Kind::scalar && found) return *found;
    fail(node, path, fmt::format("'{}' is none of its words", Varnix::escapeBytes(given)),
         fmt::format("use {}", fmt::join(words, ", ")));
  }

  Vantu::IntfId interfaceName(const YamlNode& node, std::string_view path) const {
    const auto name = text(node, path, "write the interface's name",
                           [](const std::string& given) { return Vantu::IntfId(Varnix::unescapeBytes(given)); });
    if (!name.isValid()) fail(node, path, "the name is empty", "write the interface's name");
    return name;
  }

  L3::VrfName vrfName(const YamlNode& node) const {
    constexpr const char* advice = "use 1 to 100 bytes";
    if (node.kind != YamlNode::Kind::scalar || node.text.empty()) fail(node, "vrfs", "a VRF has no name", advice);
    return text(node, "vrfs", advice,
                [](const std::string& given) { return L3::VrfName(Varnix::unescapeBytes(given)); });
  }

  std::uint32_t count(const YamlNode& node, std::string_view path) const {
    const auto* given = node.value("count");
    return given ? number<std::uint32_t>(*given, fmt::format("{}.count", path), 1, maxCount) : 1;
  }

  // ---- the entries of long lists

  bool take(const YamlPath& path, const YamlNode& entry) {
    if (path.size() != 3 || path[0] != "vrfs" || (path[2] != "routes" && path[2] != "neighbours")) return false;
    if (path[1] != lastVrf_ || !lastEntry_) {
      YamlNode key{.kind = YamlNode::Kind::scalar, .line = entry.line, .text = std::string(path[1])};
      const auto name = vrfName(key);
      lastEntry_ = &vrfs_[name];
      lastVrf_ = path[1];
      lastPath_ = pathOf(name);
    }
    if (path[2] == "routes") {
      readRoute(entry, *lastEntry_, lastPath_ + ".routes");
    } else {
      readNeighbour(entry, *lastEntry_, lastPath_ + ".neighbours");
    }
    return true;
  }

  void readRoute(const YamlNode& node, VrfEntry& vrf, const std::string& path) {
    checkKeys(
        node, path,
        {"prefix", "count", "via", "fec", "proto", "type", "metric", "preference", "persistent", "nexthopGroup"});
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
    constexpr const char* prefixAdvice = "write it as ADDRESS/LENGTH, such as 10.0.0.0/8";
    const std::string key = path + ".prefix";
    const auto from = text(prefixNode, key, prefixAdvice, [](const std::string& given) {
      return PrefixType(std::remove_cvref_t<decltype(PrefixType().addrWithMask())>::fromString(given));
    });
    Quillo::BasicRoute<PrefixType> route;
    if (const auto* metric = node.value("metric")) {
      route.metric = Routing::RouteMetric(number<std::uint32_t>(*metric, path + ".metric"));
    }
    readOrigin(node, path, isIpv6, route);
    route.isPersistent = flag(node.value("persistent"), path + ".persistent", true);
    route.isNexthopGroup = flag(node.value("nexthopGroup"), path + ".nexthopGroup", false);
    route.fecId = readFec(node, vrf, path, isIpv6 ? Vantu::ipv6_ : Vantu::ipv4_);
    const std::uint32_t prefixes = count(node, path);
    for (std::uint32_t step = 0; step < prefixes; ++step) {
      route.prefix = text(prefixNode, key, prefixAdvice,
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

  // ---- VRFs

  void readVrfs(const YamlNode& node) {
    checkKind(node, YamlNode::Kind::map, "vrfs", "write the names of VRFs below it, each with a colon");
    std::set<L3::VrfName> seen;
    for (std::size_t at = 0; at < node.items.size(); at += 2) {
      const L3::VrfName name = vrfName(node.items[at]);
      if (!seen.insert(name).second) {
        fail(node.items[at], pathOf(name), "the VRF is there twice", "put both together");
      }
      VrfEntry& vrf = vrfs_[name];
      vrf.spec.name = name;
      vrf.line = node.items[at].line;
      order_.push_back(&vrf);
      if (node.items[at + 1].kind != YamlNode::Kind::null) readVrf(node.items[at + 1], vrf, pathOf(name));
    }
  }

  void readVrf(const YamlNode& node, VrfEntry& vrf, const std::string& path) {
    checkKeys(node, path,
              {"id", "routeDistinguisher", "namespace", "kernelTable", "forwarding", "staticRoutes", "interfaces",
               "neighbours", "routes", "fecs"});
    VrfSpec& spec = vrf.spec;
    for (const char* key : {"id", "routeDistinguisher", "namespace", "kernelTable"}) {
      const auto* value = node.value(key);
      if (value && spec.name.isDefault()) {
        fail(*value, fmt::format("{}.{}", path, key), "the default VRF has none", "remove the line");
      }
    }
    if (const auto* id = node.value("id")) {
      spec.id = VrfId(number<std::uint32_t>(*id, path + ".id", 1, VrfId::unknownValue - 1));
      checkUnique(idsUsed_, spec.id.value(), *id, path + ".id", path);
    }
    if (const auto* value = node.value("routeDistinguisher")) {
      spec.routeDistinguisher =
          text(*value, path + ".routeDistinguisher", "write it as \"65000:1\" or \"192.0.2.1:1\"",
               Vantu::RouteDistinguisher::fromString);
    }
    spec.isNamespace = flag(node.value("namespace"), path + ".namespace", false);
    if (const auto* table = node.value("kernelTable")) {
      spec.kernelTable = number<std::uint32_t>(*table, path + ".kernelTable");
    }
    if (const auto* forwarding = node.value("forwarding")) {
      const std::string key = path + ".forwarding";
      checkKeys(*forwarding, key, {"ipv4", "ipv6"});
      spec.forwards4 = flag(forwarding->value("ipv4"), key + ".ipv4", true);
      spec.forwards6 = flag(forwarding->value("ipv6"), key + ".ipv6", true);
    }
    if (const auto* routes = node.value("staticRoutes")) {
      checkKind(*routes, YamlNode::Kind::list, path + ".staticRoutes", "begin each route with '- prefix: ...'");
      for (const auto& route : routes->items) readStaticRoute(route, spec, path + ".staticRoutes");
    }
    if (const auto* interfaces = node.value("interfaces")) {
      checkKind(*interfaces, YamlNode::Kind::map, path + ".interfaces",
                "write the names below it, each with a colon");
      for (std::size_t at = 0; at < interfaces->items.size(); at += 2) {
        readInterfaces(interfaces->items[at], interfaces->items[at + 1], vrf, path + ".interfaces");
      }
    }
    for (const char* key : {"neighbours", "routes"}) {
      if (const auto* list = node.value(key)) {
        checkKind(*list, YamlNode::Kind::list, fmt::format("{}.{}", path, key), "begin each entry with '- {'");
      }
    }
    if (const auto* fecs = node.value("fecs")) readFecs(*fecs, vrf, path + ".fecs");
  }

  template <class Number>
  void checkUnique(std::map<Number, std::string>& used, Number value, const YamlNode& node, std::string_view key,
                   const std::string& owner) const {
    const auto [at, isNew] = used.try_emplace(value, owner);
    if (!isNew)
      fail(node, key, fmt::format("{} has {} already", at->second, value), "write another number, or none");
  }

  void readStaticRoute(const YamlNode& node, VrfSpec& spec, const std::string& path) const {
    checkKeys(node, path, {"prefix", "preference", "nexthopGroup", "persistent"});
    const auto* prefix = node.value("prefix");
    if (!prefix) fail(node, path, "a static route has no prefix", "write 'prefix: ADDRESS/LENGTH'");
    const auto* preference = node.value("preference");
    const Routing::RoutePreference distance(preference ? number<std::uint8_t>(*preference, path + ".preference")
                                                       : Quillo::staticRoute.preference);
    const Routing::StaticRouteFacts facts(flag(node.value("nexthopGroup"), path + ".nexthopGroup", false),
                                          flag(node.value("persistent"), path + ".persistent", true));
    constexpr const char* advice = "write it as ADDRESS/LENGTH, such as 10.0.0.0/8";
    const bool isNew =
        prefix->text.find(':') == std::string::npos
            ? spec.staticRoutes
                  .try_emplace({text(*prefix, path + ".prefix", advice, Vantu::Prefix::fromString), distance},
                               facts)
                  .second
            : spec.staticRoutes6
                  .try_emplace({text(*prefix, path + ".prefix", advice, Vantu::Ip6Prefix::fromString), distance},
                               facts)
                  .second;
    if (!isNew) fail(node, path, "the route is there twice", "remove one of them");
  }

  // ---- interfaces

  void readInterfaces(const YamlNode& keyNode, const YamlNode& node, VrfEntry& vrf, const std::string& above) {
    const Vantu::IntfId first = interfaceName(keyNode, above);
    const std::string path = above + "." + Varnix::escapeBytes(first.text());
    InterfaceEntry entry;
    std::uint32_t interfaces = 1;
    entry.spec.id = first;
    entry.line = keyNode.line;
    if (node.kind != YamlNode::Kind::null) {
      checkKeys(node, path, {"count", "ifIndex", "state", "mac", "addresses", "counters"});
      interfaces = count(node, path);
      readInterface(node, entry, path);
    }
    for (std::uint32_t step = 0; step < interfaces; ++step) {
      InterfaceEntry one = entry;
      text(keyNode, path, "lower the count, or write the interfaces out", [&](const std::string&) {
        one.spec.id = Vantu::IntfId(plusNumber(first.text(), step));
        if (!entry.spec.mac.isZero()) one.spec.mac = Vantu::EthAddr(plusBytes(entry.spec.mac.bytes(), step, 0));
        for (auto& address : one.spec.ipv4) address = plus(address, step);
        for (auto& [address, state] : one.spec.ipv6) address = plus(address, step);
        return 0;
      });
      if (!names_.emplace(one.spec.id).second) {
        fail(keyNode, path, fmt::format("the interface {} is there twice", Varnix::escapeBytes(one.spec.id.text())),
             "remove one; an interface is in one VRF");
      }
      if (one.spec.ifIndex > 0) {
        one.spec.ifIndex += step;
        checkUnique(ifIndexesUsed_, one.spec.ifIndex, keyNode, path + ".ifIndex", one.spec.id.text());
      }
      vrf.interfaces.push_back(std::move(one));
    }
  }

  void readInterface(const YamlNode& node, InterfaceEntry& entry, const std::string& path) const {
    InterfaceSpec& spec = entry.spec;
    if (const auto* ifIndex = node.value("ifIndex")) {
      spec.ifIndex = number<std::uint32_t>(*ifIndex, path + ".ifIndex", 1, 0x7fffffff);
    }
    if (const auto* state = node.value("state")) {
      spec.state = word<Interface::OperStatus>(*state, path + ".state", operStatusPrefix);
    }
    if (const auto* mac = node.value("mac")) {
      spec.mac = text(*mac, path + ".mac", "write it as 02:00:00:00:00:01", Vantu::EthAddr::fromString);
    }
    if (const auto* addresses = node.value("addresses")) {
      const std::string key = path + ".addresses";
      checkKind(*addresses, YamlNode::Kind::list, key, "write them as [10.0.0.1/24, 2001:db8::1/64]");
      for (const auto& address : addresses->items) readAddress(address, spec, key);
    }
    if (const auto* counters = node.value("counters")) {
      checkKeys(*counters, path + ".counters", {"ipv4", "ipv6"});
      for (const std::size_t version : {0U, 1U}) {
        const char* key = version == 0 ? "ipv4" : "ipv6";
        if (const auto* given = counters->value(key)) {
          readCounters(*given, fmt::format("{}.counters.{}", path, key), entry, version);
        }
      }
    }
  }

  void readAddress(const YamlNode& node, InterfaceSpec& spec, const std::string& path) const {
    constexpr const char* advice =
        "write it as ADDRESS/LENGTH, such as 10.0.0.1/24; an IPv6 address may have a state";
    const std::size_t blank = node.text.find(' ');
    const std::string address = node.text.substr(0, blank);
    bool isNew = true;
    if (address.find(':') == std::string::npos) {
      const auto ipv4 = text(node, path, advice, Vantu::IpAddrWithMask::fromString);
      if (ipv4.address().isZero()) fail(node, path, "0.0.0.0 is no address of an interface", advice);
      isNew = std::find(spec.ipv4.begin(), spec.ipv4.end(), ipv4) == spec.ipv4.end();
      spec.ipv4.push_back(ipv4);
    } else {
      const auto ipv6 =
          text(node, path, advice, [&](const auto&) { return Vantu::Ip6AddrWithMask::fromString(address); });
      const auto state = blank == std::string::npos
                             ? Ip6::addressStatePreferred
                             : wordOf<Ip6::AddressState>(node, std::string_view(node.text).substr(blank + 1), path,
                                                         addressStatePrefix);
      isNew =
          std::none_of(spec.ipv6.begin(), spec.ipv6.end(), [&](const auto& known) { return known.first == ipv6; });
      spec.ipv6.emplace_back(ipv6, state);
    }
    if (!isNew) fail(node, path, fmt::format("{} is there twice", address), "remove one");
  }

  void readCounters(const YamlNode& node, const std::string& path, InterfaceEntry& entry,
                    std::size_t version) const {
    static const auto fields = *Kel::toDatum(Ip::IntfCounters()).getIf<Kel::Datum::Object>();
    if (node.kind != YamlNode::Kind::map)
      fail(node, path, "it has no keys", "write 'inOctets: 1000' and so on below it");
    CounterSpec spec{.counters = {}, .discontinuityTime = now_, .utcOffset = Kel::System::utcOffset()};
    std::map<std::string, MovingCounters::Counter> given;
    std::set<std::string_view> seen;
    for (std::size_t at = 0; at < node.items.size(); at += 2) {
      const std::string& name = node.items[at].text;
      const YamlNode& value = node.items[at + 1];
      if (!seen.insert(name).second)
        fail(node.items[at], path, fmt::format("'{}' is there twice", name), "remove one");
      if (name == "discontinuityTime") {
        spec.discontinuityTime = decimal(value, path + "." + name);
      } else if (name == "utcOffset") {
        spec.utcOffset = decimal(value, path + "." + name);
      } else if (std::none_of(fields.begin(), fields.end(),
                              [&](const auto& field) { return field.first == name; })) {
        std::vector<std::string_view> names;
        for (const auto& field : fields) names.push_back(field.first);
        fail(node.items[at], path, fmt::format("'{}' is no counter", Varnix::escapeBytes(name)),
             fmt::format("the counters are {}", fmt::join(names, ", ")));
      } else {
        given[name] = readCounter(value, path + "." + name);
      }
    }
    deriveUnicast(given);
    auto& counters = entry.moving[version];
    Kel::Datum::Object values;
    for (const auto& [name, zero] : fields) {
      auto counter = given[name];
      counter.name = name;
      values.emplace_back(name, counter.start);
      counters.push_back(std::move(counter));
    }
    if (std::none_of(counters.begin(), counters.end(), [](const auto& counter) { return counter.perSecond > 0; })) {
      counters.clear();
    }
    spec.counters = Kel::fromDatum<Ip::IntfCounters>(Kel::Datum(std::move(values)));
    entry.spec.counters[version] = spec;
  }

  MovingCounters::Counter readCounter(const YamlNode& node, const std::string& path) const {
    MovingCounters::Counter counter;
    if (node.kind != YamlNode::Kind::map) {
      counter.start = number<std::uint64_t>(node, path);
      return counter;
    }
    checkKeys(node, path, {"start", "perSecond"});
    if (const auto* start = node.value("start")) counter.start = number<std::uint64_t>(*start, path + ".start");
    if (const auto* rate = node.value("perSecond")) counter.perSecond = decimal(*rate, path + ".perSecond");
    return counter;
  }

  // Unicast is the total less multicast, unless it is given.
  static void deriveUnicast(std::map<std::string, MovingCounters::Counter>& given) {
    for (const std::string way : {"in", "out"}) {
      for (const std::string unit : {"Pkts", "Octets"}) {
        if (given.contains(way + "Ucast" + unit)) continue;
        const auto& all = given[way + unit];
        const auto& multicast = given[way + "Mcast" + unit];
        auto& unicast = given[way + "Ucast" + unit];
        unicast.start = all.start - std::min(all.start, multicast.start);
        unicast.perSecond = all.perSecond - std::min(all.perSecond, multicast.perSecond);
      }
    }
  }

  // ---- what only a dump needs

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

  void readAbsent(const YamlNode& node) {
    checkKind(node, YamlNode::Kind::list, "absentInterfaces", "write the names as a list");
    for (const auto& name : node.items) names_.insert(interfaceName(name, "absentInterfaces"));
  }

  void readDocuments(const YamlNode& node) {
    checkKind(node, YamlNode::Kind::list, "documents", "begin each document with '- path: ...'");
    const Varnix::TreePlaces places(state_.tree.root, state_.tree.openDirs());
    std::vector<std::pair<const YamlNode*, Kel::Ptr<Kel::Entity>>> entities;
    std::vector<const YamlNode*> absent;
    for (const auto& item : node.items) {
      checkKeys(item, "documents", {"path", "absent", "type", "attributes"});
      if (flag(item.value("absent"), "documents.absent", false)) {
        absent.push_back(&item);
      } else {
        entities.emplace_back(&item, documentEntity(item, places));
      }
    }
    for (const bool isForReferences : {false, true}) {
      for (const auto& [item, entity] : entities) {
        if (const auto* attributes = item->value("attributes")) {
          setAttributes(*attributes, *entity, places, isForReferences);
        }
      }
    }
    for (const auto* item : absent) {
      const std::string path = documentPath(*item);
      const auto place = places.find(path);
      if (!place.owner) fail(*item, "documents.path", "no document there can be absent", "remove the entry");
      Varnix::TreePlaces::remove(path, place);
    }
  }

  std::string documentPath(const YamlNode& item) const {
    const auto* path = item.value("path");
    if (!path)
      fail(item, "documents", "a document has no path", "write 'path: ...', as docs/architecture.md shows");
    return text(*path, "documents.path", "write the path as a dump does",
                [](const std::string& given) { return Varnix::unescapeBytes(given); });
  }

  Kel::Ptr<Kel::Entity> documentEntity(const YamlNode& item, const Varnix::TreePlaces& places) const {
    const std::string path = documentPath(item);
    if (const auto place = places.find(path); place.entity) return place.entity;
    const auto* type = item.value("type");
    std::string obstacle;
    const auto place = places.make(path, type ? type->text : "", obstacle);
    if (!place.entity) fail(item, "documents.path", obstacle, "write path and type as a dump does");
    return place.entity;
  }

  void setAttributes(const YamlNode& node, Kel::Entity& entity, const Varnix::TreePlaces& places,
                     bool isForReferences) const {
    const std::string path = "documents.attributes";
    checkKind(node, YamlNode::Kind::map, path, "write the attributes' names below it, each with a colon");
    for (std::size_t at = 0; at < node.items.size(); at += 2) {
      const YamlNode& value = node.items[at + 1];
      const auto* attribute = entity.kelTypeInfo().find(node.items[at].text);
      if (!attribute || !Varnix::isDocumentAttribute(*attribute)) {
        fail(node.items[at], path,
             fmt::format("'{}' is no attribute of {}", Varnix::escapeBytes(node.items[at].text),
                         entity.kelTypeInfo().name()),
             "remove the line");
      }
      const std::string key = path + "." + attribute->name;
      const bool isReference = attribute->kind == Kel::AttributeKind::reference;
      if (isReference != isForReferences) continue;
      try {
        if (!isReference) {
          attribute->fromDatum(entity, datumOf(value));
          continue;
        }
        const bool isNull = value.kind == YamlNode::Kind::null;
        const auto target = isNull ? nullptr : places.find(Varnix::unescapeBytes(value.text)).entity;
        if (!isNull && !target) fail(value, key, "there is no document at this path", "write a path, or null");
        attribute->referenceIs(entity, target);
      } catch (const YamlException&) {
        throw;
      } catch (const Kel::Exception& error) {
        fail(value, key, Varnix::escapeBytes(error.what()), "write the value as a dump does");
      }
    }
  }

  static Kel::Datum datumOf(const YamlNode& node) {
    if (node.kind == YamlNode::Kind::null) return {};
    if (node.kind == YamlNode::Kind::list) {
      Kel::Datum::List list;
      for (const auto& item : node.items) list.push_back(datumOf(item));
      return {std::move(list)};
    }
    if (node.kind == YamlNode::Kind::map) {
      Kel::Datum::Object object;
      for (std::size_t at = 0; at < node.items.size(); at += 2) {
        object.emplace_back(Varnix::unescapeBytes(node.items[at].text), datumOf(node.items[at + 1]));
      }
      return {std::move(object)};
    }
    if (!node.isQuoted) {
      if (node.text == "true" || node.text == "false") return {node.text == "true"};
      if (const auto number = Kel::numberFromText<std::uint64_t>(node.text)) return {*number};
      if (const auto number = Kel::numberFromText<std::int64_t>(node.text)) return {*number};
      double number = 0;
      const char* end = node.text.data() + node.text.size();
      const auto [stop, error] = std::from_chars(node.text.data(), end, number);
      if (error == std::errc() && stop == end) return {number};
    }
    return {Varnix::unescapeBytes(node.text)};
  }

  // ---- the whole

  void assignIds() {
    vrfs_[L3::VrfName()].spec.id = VrfId(0);
    std::uint32_t next = 1;
    for (VrfEntry* vrf : order_) {
      if (vrf->spec.id.isKnown()) continue;
      while (idsUsed_.contains(next)) ++next;
      vrf->spec.id = VrfId(next++);
    }
  }

  void assignIfIndexes() {
    std::uint32_t next = 1;
    for (VrfEntry* vrf : order_) {
      for (auto& interface : vrf->interfaces) {
        if (interface.spec.ifIndex > 0) continue;
        while (ifIndexesUsed_.contains(next)) ++next;
        interface.spec.ifIndex = next++;
      }
    }
  }

  void checkUsed() const {
    for (const auto& [id, place] : used_) {
      if (names_.contains(id)) continue;
      fail(place.first, place.second, fmt::format("there is no interface '{}'", Varnix::escapeBytes(id.text())),
           "add it to the interfaces of a VRF, or correct the name");
    }
  }

  void build() {
    for (auto& [name, vrf] : vrfs_) {
      addVrf(state_.tree, vrf.spec);
      for (auto& interface : vrf.interfaces) {
        addInterface(state_.tree, name, interface.spec);
        for (const std::size_t version : {0U, 1U}) {
          if (interface.moving[version].empty()) continue;
          state_.moving.push_back(
              {statsOf(state_.tree, version)->intfStats(interface.spec.id), std::move(interface.moving[version])});
        }
      }
      for (auto& neighbour : vrf.neighbours) {
        neighbour.key.vrfId = vrf.spec.id;
        state_.neighbours.push_back(std::move(neighbour));
      }
      auto& tables = state_.tables[vrf.spec.id];
      tables.routes = std::move(vrf.tables.routes);
      tables.routes6 = std::move(vrf.tables.routes6);
    }
    for (auto& [name, vrf] : vrfs_) {
      auto& fecs = state_.tables[state_.fecVrf(vrf.spec.id)].fecs;
      fecs.merge(vrf.tables.fecs);
      for (const auto& [id, vias] : vrf.tables.fecs) {  // in fecs already: unified mode
        if (fecs.at(id) == vias) continue;
        fail(vrf.line, pathOf(name) + ".fecs", fmt::format("another VRF has another FEC {}", id.value()),
             "write another number, since unified mode has one table of FECs");
      }
    }
    for (const auto& [name, vrf] : vrfs_) {
      const auto& fecs = state_.tables[state_.fecVrf(vrf.spec.id)].fecs;
      for (const auto& [id, line] : vrf.wanted) {
        if (fecs.contains(id)) continue;
        fail(line, pathOf(name) + ".routes.fec", fmt::format("there is no FEC {}", id.value()),
             "add it to the VRF's fecs, or write the next hops as via");
      }
    }
  }

  const SwitchReading& reading_;
  SwitchState state_;
  Vrfs vrfs_;
  std::vector<VrfEntry*> order_;  // as in the file
  std::map<std::uint32_t, std::string> idsUsed_;
  std::map<std::uint32_t, std::string> ifIndexesUsed_;
  std::set<Vantu::IntfId> names_;                              // of interfaces, and of absent ones
  std::map<Vantu::IntfId, std::pair<int, std::string>> used_;  // by vias and neighbours: line and key
  std::string lastVrf_, lastPath_;                             // of the last entry of a long list
  VrfEntry* lastEntry_ = nullptr;
  const Kel::Seconds now_ = Kel::System::currentTime();
};

}  // namespace

SwitchState switchFromText(const std::string& text, const SwitchReading& reading) {
  return SwitchReader(reading).read(text);
}

bool isAmbiguousVia(std::string_view interface) {
  if (interface == blackholeWord || interface.find(' ') != std::string_view::npos) return true;
  try {
    Vantu::IpGenAddr::fromString(interface);
    return true;
  } catch (const Kel::RangeException&) {
    return false;
  }
}

}  // namespace Ctl

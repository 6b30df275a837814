#include <algorithm>

#include "ctl/SwitchFile.h"
#include "ctl/SwitchSections.h"
#include "kel/System.h"

namespace Ctl {

namespace {

class InterfaceReader : YamlFields {
 public:
  InterfaceReader(const YamlFields& fields, Kel::Seconds now) : YamlFields(fields), now_(now) {}

  void readInterface(const YamlNode& node, InterfaceEntry& entry, const std::string& path) const {
    InterfaceSpec& spec = entry.spec;
    if (const auto* ifIndex = node.value("ifIndex")) {
      spec.ifIndex = number<std::uint32_t>(*ifIndex, path + ".ifIndex", 1, mostIfIndex);
    }
    if (const auto* state = node.value("state")) {
      spec.state = word<Interface::OperStatus>(*state, path + ".state", operStatusPrefix);
    }
    readLink(node, spec, path);
    if (const auto* mac = node.value("mac")) {
      spec.mac = text(*mac, path + ".mac", "write it as 02:00:00:00:00:01", Vantu::EthAddr::fromString);
    }
    if (const auto* addresses = node.value("addresses")) {
      const std::string key = path + ".addresses";
      checkKind(*addresses, YamlNode::Kind::list, key, "write them as [10.0.0.1/24, 2001:db8::1/64]");
      for (const auto& address : addresses->items) readAddress(address, spec, key);
    }
    if (const auto* counters = node.value("counters")) {
      checkKeys(*counters, path + ".counters", {"ipv4", "ipv6", "link"});
      for (const std::size_t version : {0U, 1U}) {
        const char* key = version == 0 ? "ipv4" : "ipv6";
        if (const auto* given = counters->value(key)) {
          readCounters(*given, fmt::format("{}.counters.{}", path, key), entry, version);
        }
      }
      if (const auto* given = counters->value("link")) readLinkCounters(*given, path + ".counters.link", entry);
    }
  }

  // What only IF-MIB has of an interface.
  void readLink(const YamlNode& node, InterfaceSpec& spec, const std::string& path) const {
    const auto readNumber = [&](const char* key, std::uint32_t& into) {
      const auto* given = node.value(key);
      if (given != nullptr) into = number<std::uint32_t>(*given, fmt::format("{}.{}", path, key));
    };
    readNumber("ifType", spec.ifType);
    readNumber("mtu", spec.mtu);
    readNumber("speed", spec.speed);
    readNumber("lowerIfIndex", spec.lowerIfIndex);
    readNumber("upperIfIndex", spec.upperIfIndex);
    if (const auto* status = node.value("adminStatus")) {
      spec.adminStatus = word<Interface::AdminStatus>(*status, path + ".adminStatus", adminStatusPrefix);
    }
    if (const auto* duplex = node.value("duplex")) {
      spec.duplex = word<Interface::Duplex>(*duplex, path + ".duplex", duplexPrefix);
    }
    if (const auto* alias = node.value("alias")) {
      spec.alias = text(*alias, path + ".alias", "write a backslash as \\x5c", Varnix::unescapeBytes);
    }
    spec.promiscuous = flag(node.value("promiscuous"), path + ".promiscuous", false);
    spec.connectorPresent = flag(node.value("connectorPresent"), path + ".connectorPresent", false);
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

  using Counter = MovingCounters::Counter;
  using Given = std::map<std::string, Counter, std::less<>>;

  void readCounters(const YamlNode& node, const std::string& path, InterfaceEntry& entry,
                    std::size_t version) const {
    static const auto names = fieldNames<Ip::IntfCounters>();
    CounterSpec spec{.counters = {}, .discontinuityTime = now_, .utcOffset = Kel::System::utcOffset()};
    auto given = readGiven(node, path, names, [&](const std::string& name, const YamlNode& value) {
      if (name != "discontinuityTime" && name != "utcOffset") return false;
      (name == "utcOffset" ? spec.utcOffset : spec.discontinuityTime) = decimal(value, path + "." + name);
      return true;
    });
    deriveUnicast(given);
    spec.counters = start<Ip::IntfCounters>(given, entry.moving[version]);
    entry.spec.counters[version] = spec;
  }

  void readLinkCounters(const YamlNode& node, const std::string& path, InterfaceEntry& entry) const {
    static const std::vector<std::string_view> names(linkCounterNames.begin(), linkCounterNames.end());
    auto given = readGiven(node, path, names, [](const auto&, const auto&) { return false; });
    given["inMcastPkts"] = given["inMulticastPkts"];
    given["inPkts"] = sum(given["inUcastPkts"], given["inMulticastPkts"]);
    given["outPkts"] = given["outUcastPkts"];
    entry.spec.linkCounters = start<Interface::LinkCounters>(given, entry.linkMoving);
  }

  template <class Counters>
  static std::vector<std::string_view> fieldNames() {
    static const auto fields = *Kel::toDatum(Counters()).template getIf<Kel::Datum::Object>();
    std::vector<std::string_view> names;
    names.reserve(fields.size());
    for (const auto& field : fields) names.push_back(field.first);
    return names;
  }

  // Reads a map of counters. `readOther` returns false for a key that it does not know either.
  template <class ReadOther>
  Given readGiven(const YamlNode& node, const std::string& path, const std::vector<std::string_view>& names,
                  ReadOther readOther) const {
    if (node.kind != YamlNode::Kind::map)
      fail(node, path, "it has no keys", "write 'inOctets: 1000' and so on below it");
    Given given;
    std::set<std::string_view> seen;
    for (std::size_t at = 0; at < node.items.size(); at += 2) {
      const std::string& name = node.items[at].text;
      const YamlNode& value = node.items[at + 1];
      if (!seen.insert(name).second)
        fail(node.items[at], path, fmt::format("'{}' is there twice", name), "remove one");
      if (readOther(name, value)) continue;
      if (std::find(names.begin(), names.end(), name) == names.end()) {
        fail(node.items[at], path, fmt::format("'{}' is no counter", Varnix::escapeBytes(name)),
             fmt::format("the counters are {}", fmt::join(names, ", ")));
      }
      given[name] = readCounter(value, path + "." + name);
    }
    return given;
  }

  // The counters at the start. If one of them moves, `moving` gets all of them.
  template <class Counters>
  static Counters start(const Given& given, std::vector<Counter>& moving) {
    Kel::Datum::Object values;
    for (const auto& name : fieldNames<Counters>()) {
      const auto at = given.find(name);
      Counter counter = at == given.end() ? Counter() : at->second;
      counter.name = name;
      values.emplace_back(counter.name, counter.start);
      moving.push_back(std::move(counter));
    }
    if (std::none_of(moving.begin(), moving.end(), [](const auto& counter) { return counter.perSecond > 0; })) {
      moving.clear();
    }
    return Kel::fromDatum<Counters>(Kel::Datum(std::move(values)));
  }

  static Counter sum(const Counter& a, const Counter& b) {
    return {.name = {}, .start = a.start + b.start, .perSecond = a.perSecond + b.perSecond};
  }

  Counter readCounter(const YamlNode& node, const std::string& path) const {
    Counter counter;
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
  static void deriveUnicast(Given& given) {
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

 private:
  Kel::Seconds now_;
};

}  // namespace

void readInterface(const YamlFields& fields, const YamlNode& node, const std::string& path, Kel::Seconds now,
                   InterfaceEntry& entry) {
  InterfaceReader(fields, now).readInterface(node, entry, path);
}

}  // namespace Ctl

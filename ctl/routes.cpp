// The commands routes and fib.

#include <array>
#include <map>
#include <optional>

#include "ctl/Commands.h"
#include "ctl/Output.h"
#include "ctl/ReadableRecords.h"
#include "ctl/StoreReader.h"

namespace Ctl {
namespace {

using Quillo::BasicRoute;
using Vantu::Ip6Prefix;
using Vantu::Prefix;

// What routes to list: all, one prefix (or with `isLonger` all in it), or the longest match of an address.
struct Filter {
  std::optional<Prefix> prefix;
  std::optional<Ip6Prefix> prefix6;
  bool isAddress = false;
  bool isLonger = false;

  bool isAll() const { return !prefix && !prefix6; }
  template <class PrefixType>
  const std::optional<PrefixType>& of() const {
    if constexpr (std::is_same_v<PrefixType, Ip6Prefix>) {
      return prefix6;
    } else {
      return prefix;
    }
  }
};

template <class PrefixType>
std::optional<PrefixType> prefixFromText(const std::string& text, bool isAddress) {
  try {
    return PrefixType::fromString(isAddress ? text + (text.find(':') == std::string::npos ? "/32" : "/128") : text);
  } catch (const Kel::RangeException&) {
    return std::nullopt;
  }
}

// False when the text is neither a prefix nor an address.
bool parseFilter(const std::string& text, Filter& filter) {
  filter.isAddress = text.find('/') == std::string::npos;
  filter.prefix = prefixFromText<Prefix>(text, filter.isAddress);
  filter.prefix6 = prefixFromText<Ip6Prefix>(text, filter.isAddress);
  return !filter.isAll();
}

// Lists routes of the VRFs, in pieces.
class RouteList {
 public:
  RouteList(StoreReader& store, Rows& rows) : store_(store), rows_(rows), hops_(store) {}

  template <class PrefixType>
  void list(const NamedVrf& vrf, const Filter& filter) {
    const auto& wanted = filter.of<PrefixType>();
    if (!filter.isAll() && !wanted) return;
    if (!wanted || filter.isLonger) {
      walk<PrefixType>(vrf, wanted);
    } else {
      find<PrefixType>(vrf, *wanted, filter.isAddress ? 0 : wanted->length());
    }
    rows_.flush();
  }

 private:
  // All routes of the VRF, or those inside a prefix.
  template <class PrefixType>
  void walk(const NamedVrf& vrf, const std::optional<PrefixType>& outer) {
    const auto from = outer ? Quillo::encodeKey<Quillo::RouteRecord<PrefixType>>({vrf.id, *outer}) : "";
    const auto visit = [&](Quillo::Snapshot& snapshot, const Quillo::Scan& scan) {
      typename Quillo::RouteRecord<PrefixType>::Key key;
      if (const char* what = Quillo::decodeKey<Quillo::RouteRecord<PrefixType>>(scan.key(), key)) {
        store_.noteDamage(Quillo::RouteRecord<PrefixType>::table, scan.key(), what);
        return true;
      }
      const auto& prefix = key.prefix;
      if (outer && prefix.address().mask(outer->length()) != outer->address()) return false;
      show(snapshot, vrf, prefix, scan.key(), scan.value());
      return true;
    };
    store_.scan(Quillo::RouteRecord<PrefixType>::table, Quillo::vrfKey(vrf.id), from, visit,
                [&] { rows_.flush(); });
  }

  // The longest of the prefixes that contain `wanted` and are not shorter than `least`.
  template <class PrefixType>
  void find(const NamedVrf& vrf, const PrefixType& wanted, unsigned least) {
    auto snapshot = store_.mount()->snapshot();
    for (unsigned length = wanted.length() + 1; length-- > least;) {
      const PrefixType prefix(wanted.address(), length);
      const auto key = Quillo::encodeKey<Quillo::RouteRecord<PrefixType>>({vrf.id, prefix});
      try {
        const auto value = snapshot.get(Quillo::RouteRecord<PrefixType>::table, key);
        if (!value) continue;
        show(snapshot, vrf, prefix, key, std::string(*value));
        return;
      } catch (const Pesk::CorruptionDetectedException& damage) {
        store_.noteDamage(Quillo::RouteRecord<PrefixType>::table, key, damage.what());
        return;  // a shorter prefix would be a wrong answer
      }
    }
  }

  template <class PrefixType>
  void show(Quillo::Snapshot& snapshot, const NamedVrf& vrf, const PrefixType& prefix, Quillo::Bytes key,
            Quillo::Bytes value) {
    BasicRoute<PrefixType> route;
    if (const char* what = Quillo::decodeValue<Quillo::RouteRecord<PrefixType>>(value, route)) {
      store_.noteDamage(Quillo::RouteRecord<PrefixType>::table, key, what);
      return;
    }
    route.prefix = prefix;
    const char* proto = routeTypeName(store_, vrf, route).proto;
    const auto* vias = hops_.find(snapshot, vrf.id, route.fecId);
    const auto hopCells = [&](std::size_t i) {
      if (!vias || vias->empty()) return std::pair<std::string, std::string>("-", "-");
      const auto& via = (*vias)[i];
      return std::pair(hopText(via, route.action), via.intfId.empty() ? "-" : devOf(via.intfId, vrf.name));
    };
    rows_.add(
        [&] {
          const auto [via, dev] = hopCells(0);
          return Rows::Cells{vrf.text(),
                             prefix.stringValue(),
                             proto,
                             std::to_string(route.preference().value()),
                             std::to_string(route.metric.value()),
                             via,
                             dev};
        },
        [&] {
          return Json{{"vrf", vrf.text()},
                      {"prefix", prefix.stringValue()},
                      {"proto", proto},
                      {"preference", route.preference().value()},
                      {"metric", route.metric.value()},
                      {"action", routeActionName(route.action)},
                      {"nexthops", nextHopsJson(vias, vrf.name)}};
        });
    for (std::size_t i = 1; !rows_.isJson() && vias && i < vias->size(); ++i) {
      const auto [via, dev] = hopCells(i);
      rows_.continueRow({"", "", "", "", "", via, dev});
    }
  }

  StoreReader& store_;
  Rows& rows_;
  NextHops hops_;
};

Exit listRoutes(const Options& options, const std::string& vrfName, const std::vector<std::string>& words,
                bool isLonger) {
  StoreReader store(options.store);
  std::string name = vrfName;
  std::string prefix;
  for (const auto& word : words) {
    Filter ignored;
    if (prefix.empty() && parseFilter(word, ignored)) {
      prefix = word;
    } else if (name.empty() && (words.size() == 2 || store.isVrf(word) || word.find('/') == std::string::npos)) {
      name = word;
    } else {
      throw Failure(Exit::unknown,
                    fmt::format("'{}' is neither a VRF nor a prefix; write 10.0.0.0/8, 2001:db8::/32 or an address",
                                nameText(word)));
    }
  }
  Filter filter;
  filter.isLonger = isLonger;
  if (!prefix.empty()) parseFilter(prefix, filter);
  if (isLonger && filter.isAll()) throw Failure(Exit::unknown, "--longer needs a prefix, such as 10.0.0.0/8");
  const auto vrfs = store.select(name);
  Rows rows(options,
            {{"VRF"}, {"PREFIX"}, {"PROTO"}, {"PREF", Rows::number}, {"METRIC", Rows::number}, {"VIA"}, {"DEV"}});
  RouteList list(store, rows);
  for (const auto& vrf : vrfs) {
    list.list<Prefix>(vrf, filter);
    list.list<Ip6Prefix>(vrf, filter);
  }
  rows.finish();
  const Exit exit = store.finish();
  if (exit != Exit::ok || rows.count() > 0 || filter.isAll()) return exit;
  fmt::print(stderr, "quorinctl: no route {} {} in {}\n",
             filter.isAddress ? "to"
             : isLonger       ? "inside"
                              : "for",
             prefix, name.empty() ? "any VRF" : "VRF " + nameText(name));
  return Exit::warning;
}

// ---- fib

// The counts of one VRF and IP version, as the FIB statistics have them: routes, and hosts that are neighbours.
template <class PrefixType>
std::map<std::string, std::uint64_t> countFib(StoreReader& store, const NamedVrf& vrf) {
  std::map<std::string, std::uint64_t> counts;
  using RouteRecord = Quillo::RouteRecord<PrefixType>;
  const auto table = Quillo::RouteRecord<PrefixType>::table;
  const auto prefixOfVrf = Quillo::vrfKey(vrf.id);
  store.scan(table, prefixOfVrf, "", [&](const auto&, const Quillo::Scan& scan) {
    typename RouteRecord::Key key;
    BasicRoute<PrefixType> route;
    if (const char* what = Quillo::decodeRecord<RouteRecord>(scan.key(), scan.value(), key, route)) {
      store.noteDamage(table, scan.key(), what);
    } else if (isCounted<PrefixType>(route.routeType.value())) {
      ++counts[routeTypeName(store, vrf, route).mib];
    }
    return true;
  });
  constexpr bool isIp6 = std::is_same_v<PrefixType, Ip6Prefix>;
  using ArpRecord = Quillo::ArpRecord<isIp6 ? Vantu::ipv6_ : Vantu::ipv4_>;
  constexpr auto neighbours = ArpRecord::table;
  Vantu::IpGenAddr last;
  store.scan(neighbours, prefixOfVrf, "", [&](Quillo::Snapshot& snapshot, const Quillo::Scan& scan) {
    Arp::Table::ArpKey key;
    if (const char* what = Quillo::decodeKey<ArpRecord>(scan.key(), key)) {
      store.noteDamage(neighbours, scan.key(), what);
      return true;
    }
    if (key.addr == last || (isIp6 && key.addr.isLinkLocal())) return true;
    last = key.addr;
    PrefixType host;
    if constexpr (isIp6) {
      host = PrefixType(key.addr.v6(), 128);
    } else {
      host = PrefixType(key.addr.v4(), 32);
    }
    const auto hostKey = Quillo::encodeKey<RouteRecord>({vrf.id, host});
    try {
      BasicRoute<PrefixType> route;
      const auto value = snapshot.get(table, hostKey);
      const bool hasRoute = value && !Quillo::decodeValue<RouteRecord>(*value, route) &&
                            isCounted<PrefixType>(route.routeType.value());
      if (!hasRoute) ++counts["attached"];
    } catch (const Pesk::CorruptionDetectedException& damage) {
      store.noteDamage(table, hostKey, damage.what());
    }
    return true;
  });
  return counts;
}

Exit countRoutes(const Options& options, const std::string& vrfName) {
  StoreReader store(options.store);
  const auto vrfs = store.select(vrfName);
  Rows rows(options, {{"VRF"}, {"FAMILY"}, {"TYPE"}, {"ROUTES", Rows::number}});
  const auto add = [&](const NamedVrf& vrf, const char* family, const std::string& type, std::uint64_t count) {
    rows.add(
        [&] {
          return Rows::Cells{vrf.text(), family, type, countText(count)};
        },
        [&] {
          return Json{{"vrf", vrf.text()}, {"family", family}, {"type", type}, {"routes", count}};
        });
  };
  for (const auto& vrf : vrfs) {
    for (const bool isIp6 : {false, true}) {
      const char* family = isIp6 ? "ipv6" : "ipv4";
      const auto counts = isIp6 ? countFib<Ip6Prefix>(store, vrf) : countFib<Prefix>(store, vrf);
      std::uint64_t total = 0;
      for (const auto& [type, count] : counts) {
        add(vrf, family, type, count);
        total += count;
      }
      add(vrf, family, "total", total);
    }
    rows.flush();
  }
  rows.finish();
  return store.finish();
}

}  // namespace

Action addRoutes(CLI::App& app, const Options& options) {
  struct Arguments {
    std::string vrf;
    std::vector<std::string> words;
    bool isLonger = false;
  };
  auto arguments = std::make_shared<Arguments>();
  addVrfOption(app, arguments->vrf);
  app.add_option("ARGUMENT", arguments->words,
                 "A VRF, a prefix (that one route), an address (its longest match), or a VRF and one of these")
      ->type_name("[VRF] [PREFIX|ADDRESS]")
      ->expected(0, 2);
  app.add_flag("-l,--longer", arguments->isLonger, "All routes inside the prefix");
  return
      [&options, arguments] { return listRoutes(options, arguments->vrf, arguments->words, arguments->isLonger); };
}

Action addFib(CLI::App& app, const Options& options) {
  auto vrf = std::make_shared<std::string>();
  addVrfOption(app, *vrf);
  return [&options, vrf] { return countRoutes(options, *vrf); };
}

}  // namespace Ctl

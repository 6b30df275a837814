// The commands that list what the store has of VRFs, interfaces, addresses, neighbours and counters.

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "ctl/Commands.h"
#include "ctl/Output.h"
#include "ctl/ReadableRecords.h"
#include "ctl/StoreReader.h"

namespace Ctl {
namespace {

using Vantu::IntfId;

// An action that lists the objects of the VRFs that -V selects.
Action listing(CLI::App& app, const Options& options,
               void (*list)(StoreReader&, const std::vector<NamedVrf>&, Rows&), std::vector<Rows::Column> columns) {
  auto vrf = std::make_shared<std::string>();
  addVrfOption(app, *vrf);
  return [&options, vrf, list, columns = std::move(columns)] {
    StoreReader store(options.store);
    Rows rows(options, columns);
    list(store, store.select(*vrf), rows);
    rows.finish();
    return store.finish();
  };
}

// "preferred" of addressStatePreferred.
template <class Enum>
std::string wordOf(Enum value, std::string_view prefix) {
  std::string word = Kel::enumName(value);
  if (word.starts_with(prefix)) word.erase(0, prefix.size());
  if (!word.empty()) word[0] = static_cast<char>(std::tolower(word[0]));
  return word;
}

struct Interface {
  IntfId id;
  std::uint32_t ifIndex;
  std::string dev;
};

// The interfaces of a VRF in the order of ifIndex.
std::vector<Interface> interfacesOf(StoreReader& store, const NamedVrf& vrf) {
  std::vector<Interface> interfaces;
  for (const auto& [id, member] : store.tree().l3StatusDir->intfStatus()) {
    if (member->vrf() != vrf.name) continue;
    const auto status = store.tree().intfStatusDir->intfStatus(id);
    interfaces.push_back({id, status ? status->ifIndex() : 0, devOf(id, vrf.name)});
  }
  std::sort(interfaces.begin(), interfaces.end(), [](const Interface& a, const Interface& b) {
    return std::tie(a.ifIndex, a.id) < std::tie(b.ifIndex, b.id);
  });
  return interfaces;
}

// ---- vrfs

void listVrfs(StoreReader& store, const std::vector<NamedVrf>& vrfs, Rows& rows) {
  const auto& tree = store.tree();
  std::map<L3::VrfName, std::size_t> interfaces;
  for (const auto& [id, member] : tree.l3StatusDir->intfStatus()) ++interfaces[member->vrf()];
  for (const auto& vrf : vrfs) {
    const Kel::Name key(vrf.name.stringValue());
    const bool isDefault = vrf.name.isDefault();
    const auto local = tree.allVrfStatusLocal->vrf(vrf.name);
    const auto config = tree.allVrfConfig->vrfConfig(vrf.name);
    const auto routing = isDefault ? tree.routingConfig : tree.routingVrfConfigDir->vrfConfig(key);
    const auto routing6 = isDefault ? tree.routing6Config : tree.routing6VrfConfigDir->vrfConfig(key);
    const auto info = boost::dynamic_pointer_cast<Routing::VrfInfo>(tree.routingVrfInfoDir->entityPtr(key));
    const std::string kind = isDefault               ? "default"
                             : !local                ? "unknown"
                             : local->hasNamespace() ? "namespace"
                                                     : "device";
    const std::string state = local ? wordOf(local->state(), "vrfState") : isDefault ? "active" : "unknown";
    const std::string distinguisher = config ? config->routeDistinguisher().stringValue() : "";
    const bool forwards4 = routing && routing->routing();
    const bool forwards6 = routing6 && routing6->routing();
    const auto table = info ? info->kernelTable() : 0;
    const auto count = interfaces[vrf.name];
    rows.add(
        [&] {
          return Rows::Cells{vrf.text(),
                             vrf.id.stringValue(),
                             kind,
                             state,
                             distinguisher.empty() ? "-" : distinguisher,
                             forwards4 ? "yes" : "no",
                             forwards6 ? "yes" : "no",
                             table ? std::to_string(table) : "-",
                             std::to_string(count)};
        },
        [&] {
          Json object{{"vrf", vrf.text()}, {"id", vrf.id.value()}, {"kind", kind}, {"state", state}};
          if (!distinguisher.empty()) object["routeDistinguisher"] = distinguisher;
          object["ipv4Forwarding"] = forwards4;
          object["ipv6Forwarding"] = forwards6;
          if (table) object["kernelTable"] = table;
          object["interfaces"] = count;
          return object;
        });
  }
}

// ---- addresses

struct Address {
  Vantu::IpGenAddr address;
  unsigned length;
  std::string state;
};

// Those in effect, and those that are configured only, in the order of the address.
std::vector<Address> addressesOf(StoreReader& store, const IntfId& id) {
  const auto& tree = store.tree();
  std::map<std::pair<Vantu::IpGenAddr, unsigned>, std::string> states;
  const auto add4 = [&](const Vantu::IpAddrWithMask& primary, const auto& secondary, const char* state) {
    if (!primary.address().isZero()) states[{primary.address(), primary.length()}] = state;
    for (const auto& [address, present] : secondary) states[{address.address(), address.length()}] = state;
  };
  if (const auto config = tree.ipConfig->ipIntfConfig(id)) {
    add4(config->addrWithMask(), config->secondaryAddrWithMask(), "inaccessible");
  }
  if (const auto status = tree.ipStatus->ipIntfStatus(id)) {
    add4(status->activeAddrWithMask(), status->secondaryAddrWithMask(), "preferred");
  }
  if (const auto config = tree.ip6Config->intf(id)) {
    for (const auto& [address, info] : config->addr()) {
      const bool isUsable = info.state() == Ip6::addressStatePreferred || info.state() == Ip6::addressStateUnknown;
      states[{address.address(), address.length()}] =
          isUsable ? "inaccessible" : wordOf(info.state(), "addressState");
    }
  }
  if (const auto status = tree.ip6Status->intf(id)) {
    for (const auto& [address, info] : status->addr()) {
      states[{address.address(), address.length()}] = wordOf(info.state(), "addressState");
    }
  }
  std::vector<Address> addresses;
  addresses.reserve(states.size());
  for (const auto& [key, state] : states) addresses.push_back({key.first, key.second, state});
  return addresses;
}

std::string prefixText(const Address& address) {
  return fmt::format("{}/{}", address.address.stringValue(), address.length);
}

void listAddresses(StoreReader& store, const std::vector<NamedVrf>& vrfs, Rows& rows) {
  for (const auto& vrf : vrfs) {
    std::vector<std::pair<Address, Interface>> all;
    for (const auto& interface : interfacesOf(store, vrf)) {
      for (auto& address : addressesOf(store, interface.id)) all.emplace_back(std::move(address), interface);
    }
    std::stable_sort(all.begin(), all.end(), [](const auto& a, const auto& b) {
      return std::tie(a.first.address, a.first.length) < std::tie(b.first.address, b.first.length);
    });
    for (const auto& [address, interface] : all) {
      rows.add(
          [&, &address = address, &interface = interface] {
            return Rows::Cells{vrf.text(), prefixText(address), interface.dev, std::to_string(interface.ifIndex),
                               address.state};
          },
          [&, &address = address, &interface = interface] {
            return Json{{"vrf", vrf.text()},
                        {"address", address.address.stringValue()},
                        {"prefixLength", address.length},
                        {"dev", interface.dev},
                        {"ifIndex", interface.ifIndex},
                        {"state", address.state}};
          });
    }
    rows.flush();
  }
}

// ---- interfaces

void listInterfaces(StoreReader& store, const std::vector<NamedVrf>& vrfs, Rows& rows) {
  for (const auto& vrf : vrfs) {
    for (const auto& interface : interfacesOf(store, vrf)) {
      const auto status = store.tree().intfStatusDir->intfStatus(interface.id);
      const auto state = status ? wordOf(status->operStatus(), "operStatus") : "unknown";
      const auto lladdr = status && !status->ethAddr().isZero() ? status->ethAddr().stringValue() : "";
      std::string texts;
      auto list = Json::array();
      for (const auto& address : addressesOf(store, interface.id)) {
        texts += (texts.empty() ? "" : " ") + prefixText(address);
        list.push_back(prefixText(address));
      }
      rows.add(
          [&] {
            return Rows::Cells{vrf.text(), std::to_string(interface.ifIndex), interface.dev,
                               state,      lladdr.empty() ? "-" : lladdr,     texts};
          },
          [&] {
            return Json{{"vrf", vrf.text()},    {"ifIndex", interface.ifIndex},
                        {"dev", interface.dev}, {"interface", nameText(interface.id.text())},
                        {"state", state},       {"lladdr", lladdr},
                        {"addresses", list}};
          });
    }
  }
}

// ---- neighbours

// In the order of ipNetToPhysicalTable: by ifIndex, then by address.
using Neighbours = std::map<std::pair<std::uint32_t, Arp::Table::ArpKey>, Arp::Table::ArpEntry>;

template <Vantu::Af family>
void readNeighbours(StoreReader& store, const NamedVrf& vrf, Neighbours& neighbours) {
  using Record = Quillo::ArpRecord<family>;
  store.scan(Record::table, Quillo::vrfKey(vrf.id), "", [&](const auto&, const Quillo::Scan& scan) {
    Arp::Table::ArpEntry entry;
    if (const char* what = Quillo::decodeRecord<Record>(scan.key(), scan.value(), entry.key, entry)) {
      store.noteDamage(Record::table, scan.key(), what);
      return true;
    }
    const auto status = store.tree().intfStatusDir->intfStatus(entry.intfId());
    neighbours[{status ? status->ifIndex() : 0, entry.key}] = entry;
    return true;
  });
}

void listNeighbours(StoreReader& store, const std::vector<NamedVrf>& vrfs, Rows& rows) {
  for (const auto& vrf : vrfs) {
    Neighbours entries;
    readNeighbours<Vantu::ipv4_>(store, vrf, entries);
    readNeighbours<Vantu::ipv6_>(store, vrf, entries);
    for (const auto& [key, entry] : entries) {
      const auto dev = devOf(entry.intfId(), vrf.name);
      const char* type = entry.status.isStatic ? "static" : "dynamic";
      rows.add(
          [&, &entry = entry] {
            return Rows::Cells{vrf.text(), entry.addr().stringValue(), dev, entry.ethAddr.stringValue(), type};
          },
          [&, &key = key, &entry = entry] {
            return Json{{"vrf", vrf.text()},    {"address", entry.addr().stringValue()}, {"dev", dev},
                        {"ifIndex", key.first}, {"lladdr", entry.ethAddr.stringValue()}, {"type", type}};
          });
    }
    rows.flush();
  }
}

// ---- counters

void listCounters(StoreReader& store, const std::vector<NamedVrf>& vrfs, Rows& rows) {
  const auto& tree = store.tree();
  for (const auto& vrf : vrfs) {
    for (const auto& interface : interfacesOf(store, vrf)) {
      for (const auto& [family, all] :
           {std::pair("ipv4", tree.ipIntfStats), std::pair("ipv6", tree.ip6IntfStats)}) {
        const auto stats = all->intfStats(interface.id);
        if (!stats) continue;
        const auto& counters = stats->counters();
        // As seconds since 1970, like the time of every other line.
        const auto since = Kel::System::localTime(stats->discontinuityTime(), stats->utcOffset());
        rows.add(
            [&, family = family] {
              return Rows::Cells{vrf.text(),
                                 interface.dev,
                                 family,
                                 std::to_string(counters.inPkts()),
                                 std::to_string(counters.inOctets()),
                                 std::to_string(counters.outPkts()),
                                 std::to_string(counters.outOctets()),
                                 std::to_string(counters.inMcastPkts()),
                                 std::to_string(counters.outMcastPkts()),
                                 since > 0 ? timeText(since, false) : "-"};
            },
            [&, family = family] {
              return Json{{"vrf", vrf.text()},
                          {"dev", interface.dev},
                          {"ifIndex", interface.ifIndex},
                          {"family", family},
                          {"inPkts", counters.inPkts()},
                          {"inOctets", counters.inOctets()},
                          {"outPkts", counters.outPkts()},
                          {"outOctets", counters.outOctets()},
                          {"inUcastPkts", counters.inUcastPkts()},
                          {"inUcastOctets", counters.inUcastOctets()},
                          {"outUcastPkts", counters.outUcastPkts()},
                          {"outUcastOctets", counters.outUcastOctets()},
                          {"inMcastPkts", counters.inMcastPkts()},
                          {"inMcastOctets", counters.inMcastOctets()},
                          {"outMcastPkts", counters.outMcastPkts()},
                          {"outMcastOctets", counters.outMcastOctets()},
                          {"since", since}};
            });
      }
    }
  }
}

}  // namespace

void addVrfOption(CLI::App& app, std::string& vrf) {
  app.add_option("-V,--vrf", vrf, "Only this VRF; 'default' is the default one (all VRFs)")->type_name("VRF");
}

Action addVrfs(CLI::App& app, const Options& options) {
  return listing(app, options, listVrfs,
                 {{"VRF"},
                  {"ID", Rows::number},
                  {"KIND"},
                  {"STATE"},
                  {"RD"},
                  {"FORWARD4"},
                  {"FORWARD6"},
                  {"TABLE", Rows::number},
                  {"INTERFACES", Rows::number}});
}

Action addInterfaces(CLI::App& app, const Options& options) {
  return listing(app, options, listInterfaces,
                 {{"VRF"}, {"IFINDEX", Rows::number}, {"DEV"}, {"STATE"}, {"LLADDR"}, {"ADDRESSES"}});
}

Action addAddresses(CLI::App& app, const Options& options) {
  return listing(app, options, listAddresses,
                 {{"VRF"}, {"ADDRESS"}, {"DEV"}, {"IFINDEX", Rows::number}, {"STATE"}});
}

Action addNeighbours(CLI::App& app, const Options& options) {
  return listing(app, options, listNeighbours, {{"VRF"}, {"ADDRESS"}, {"DEV"}, {"LLADDR"}, {"TYPE"}});
}

Action addCounters(CLI::App& app, const Options& options) {
  return listing(app, options, listCounters,
                 {{"VRF"},
                  {"DEV"},
                  {"FAMILY"},
                  {"IN-PKTS", Rows::number},
                  {"IN-OCTETS", Rows::number},
                  {"OUT-PKTS", Rows::number},
                  {"OUT-OCTETS", Rows::number},
                  {"IN-MCAST", Rows::number},
                  {"OUT-MCAST", Rows::number},
                  {"SINCE"}});
}

}  // namespace Ctl

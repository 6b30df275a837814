#include "ctl/SwitchFile.h"

#include <set>

#include "ctl/AddressSteps.h"
#include "ctl/SwitchSections.h"
#include "kel/System.h"

namespace Ctl {

namespace {

class SwitchReader : YamlFields {
 public:
  explicit SwitchReader(const SwitchReading& reading) : YamlFields(reading.file), reading_(reading) {}

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
    if (const auto* documents = root.value("documents")) readDocuments(*this, *documents, state_.tree);
    return std::move(state_);
  }

 private:
  using Vrfs = std::map<L3::VrfName, VrfEntry>;

  static std::string pathOf(const L3::VrfName& name) { return "vrfs." + Varnix::escapeBytes(name.stringValue()); }

  L3::VrfName vrfName(const YamlNode& node) const {
    constexpr const char* advice = "use 1 to 100 bytes";
    if (node.kind != YamlNode::Kind::scalar || node.text.empty()) fail(node, "vrfs", "a VRF has no name", advice);
    return text(node, "vrfs", advice,
                [](const std::string& given) { return L3::VrfName(Varnix::unescapeBytes(given)); });
  }

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
      readRoute(*this, entry, lastPath_ + ".routes", *lastEntry_, used_);
    } else {
      readNeighbour(*this, entry, lastPath_ + ".neighbours", *lastEntry_, used_);
    }
    return true;
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
      for (const auto& route : routes->items) readStaticRoute(*this, route, path + ".staticRoutes", spec);
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
    if (const auto* fecs = node.value("fecs")) readFecs(*this, *fecs, path + ".fecs", vrf, used_);
  }

  template <class Number>
  void checkUnique(std::map<Number, std::string>& used, Number value, const YamlNode& node, std::string_view key,
                   const std::string& owner) const {
    const auto [at, isNew] = used.try_emplace(value, owner);
    if (!isNew)
      fail(node, key, fmt::format("{} has {} already", at->second, value), "write another number, or none");
  }

  // ---- interfaces

  void readInterfaces(const YamlNode& keyNode, const YamlNode& node, VrfEntry& vrf, const std::string& above) {
    const Vantu::IntfId first = interfaceName(keyNode, above);
    const std::string path = above + "." + Varnix::escapeBytes(first.text());
    InterfaceEntry entry;
    std::uint32_t interfaces = 1;
    entry.spec.id = first;
    if (node.kind != YamlNode::Kind::null) {
      checkKeys(node, path,
                {"count", "ifIndex", "state", "adminStatus", "ifType", "mtu", "mac", "alias", "speed", "duplex",
                 "promiscuous", "connectorPresent", "lowerIfIndex", "upperIfIndex", "addresses", "counters"});
      interfaces = count(node, path);
      readInterface(*this, node, path, now_, entry);
    }
    for (std::uint32_t step = 0; step < interfaces; ++step) {
      InterfaceEntry one = entry;
      text(keyNode, path, "lower the count, or write the interfaces out", [&](const std::string&) {
        one.spec.id = Vantu::IntfId(plusNumber(first.text(), step));
        if (one.spec.ifIndex > mostIfIndex - step) {
          throw Kel::RangeException("the ifIndexes end before the count does");
        }
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

  void readAbsent(const YamlNode& node) {
    checkKind(node, YamlNode::Kind::list, "absentInterfaces", "write the names as a list");
    for (const auto& name : node.items) names_.insert(interfaceName(name, "absentInterfaces"));
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
        if (!interface.linkMoving.empty()) {
          state_.moving.push_back(
              {state_.tree.intfCountersDir->intfCounters(interface.spec.id), std::move(interface.linkMoving)});
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
  std::set<Vantu::IntfId> names_;  // of interfaces, and of absent ones
  UsedInterfaces used_;
  std::string lastVrf_, lastPath_;  // of the last entry of a long list
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

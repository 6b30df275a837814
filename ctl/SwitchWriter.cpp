#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <unordered_map>

#include "ctl/SwitchFile.h"
#include "ctl/YamlFields.h"
#include "kel/Errors.h"
#include "quillo/tables/FecIds.h"
#include "quillo/tables/RouteOrigin.h"
#include "varnix/ByteText.h"
#include "varnix/Document.h"
#include "varnix/TreeWatch.h"

namespace Ctl {

namespace {

using Quillo::Fib::FecId;
using Quillo::Fib::Via;

constexpr std::size_t pieceBytes = 64 << 10;

// IPv6 addresses and MAC addresses in quotes, since some YAML readers take 12:34 for a number of base 60.
std::string quoted(const std::string& text) {
  return text.find(':') == std::string::npos ? text : "'" + text + "'";
}

std::string viaText(const Via& via, Vantu::Af af) {
  const std::string& interface = via.intfId.text();
  const bool isOnLink = via.hop.af() == af && via.hop.isZero();
  if (isOnLink && interface.empty()) return std::string(blackholeWord);
  const std::string escaped = Varnix::escapeBytes(interface);
  if (!interface.empty() && isAmbiguousVia(escaped)) {
    return fmt::format("{{address: {}, interface: {}}}", quoted(via.hop.stringValue()), yamlName(interface));
  }
  if (isOnLink) return yamlName(interface);
  if (interface.empty()) return quoted(via.hop.stringValue());
  const std::string name = yamlName(interface);
  if (via.hop.af() == Vantu::ipv4_ && name == escaped) return via.hop.stringValue() + " " + name;
  std::string text = "'" + via.hop.stringValue() + " ";
  for (const char byte : escaped) text.append(byte == '\'' ? 2 : 1, byte);
  return text + "'";
}

std::string viasText(const std::vector<Via>& vias, Vantu::Af af) {
  std::vector<std::string> texts;
  texts.reserve(vias.size());
  for (const auto& via : vias) texts.push_back(viaText(via, af));
  return fmt::format("[{}]", fmt::join(texts, ", "));
}

std::string datumText(const Kel::Datum& datum);

struct DatumWriter {
  std::string operator()(std::monostate) const { return "null"; }
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(const std::string& text) const {
    const std::string name = yamlName(text);
    return name[0] == '\'' ? name : "'" + name + "'";
  }
  std::string operator()(const Kel::Datum::List& list) const {
    std::vector<std::string> items;
    for (const auto& item : list) items.push_back(datumText(item));
    return fmt::format("[{}]", fmt::join(items, ", "));
  }
  std::string operator()(const Kel::Datum::Object& object) const {
    std::vector<std::string> items;
    for (const auto& [name, value] : object) items.push_back(yamlName(name) + ": " + datumText(value));
    return fmt::format("{{{}}}", fmt::join(items, ", "));
  }
  std::string operator()(auto number) const { return fmt::format("{}", number); }
};

std::string datumText(const Kel::Datum& datum) {
  return std::visit(DatumWriter{}, datum.storage());
}

class SwitchWriter {
 public:
  SwitchWriter(const SwitchState& state, const SwitchWriting& writing,
               const std::function<void(std::string_view)>& out)
      : state_(state), writing_(writing), out_(out) {}

  void write() {
    line("# A switch, as quorinctl dump wrote it. quorinctl load publishes it.");
    const auto mode = state_.tree.l3Config->fecMode();
    plain_.tree.l3Config->fecModeIs(mode);
    if (mode != Quillo::Fib::fecModeUnknown) line("fecMode: {}", enumWord(mode, fecModePrefix));
    collect();
    line("vrfs:");
    for (const auto& [id, vrf] : vrfs_) writeVrf(vrf);
    writeDocuments();
    writeAbsent();
    reportOthers();
    flush();
  }

 private:
  struct WrittenVrf {
    VrfSpec spec;
    std::vector<InterfaceSpec> interfaces;  // by ifIndex
  };

  template <class... Args>
  void line(fmt::format_string<Args...> format, Args&&... args) {
    fmt::format_to(std::back_inserter(buffer_), format, std::forward<Args>(args)...);
    buffer_ += '\n';
    if (buffer_.size() >= pieceBytes) flush();
  }
  void flush() {
    out_(buffer_);
    buffer_.clear();
  }
  void leftOut(const std::string& text) const {
    if (writing_.leftOut) writing_.leftOut(text);
  }

  // What the sections of VRFs can say; the rest becomes documents.
  void collect() {
    std::set<VrfId> ids;
    for (const auto& [name, id] : state_.tree.vrfNameStatus->vrfId()) {
      if (writing_.vrf && name != *writing_.vrf) continue;
      if (name.isDefault() != (id == VrfId(0)) || !id.isKnown() || !ids.insert(id).second) continue;
      vrfs_[id].spec = vrfSpec(state_.tree, name, id);
    }
    if (!writing_.vrf) vrfs_.try_emplace(VrfId(0));
    if (vrfs_.empty()) {
      throw Kel::RangeException(
          fmt::format("the store has an id for VRF '{}' that no VRF of its name can have, so a switch file cannot "
                      "express it; dump the whole switch",
                      Varnix::escapeBytes(writing_.vrf->stringValue())));
    }
    std::map<std::uint32_t, InterfaceSpec> byIndex;
    for (const auto& [id, status] : state_.tree.intfStatusDir->intfStatus()) {
      InterfaceSpec spec = interfaceSpec(state_.tree, id);
      if (spec.ifIndex == 0 || spec.ifIndex > 0x7fffffff) continue;
      for (auto& counters : spec.counters) {
        const auto isWritable = [](double value) { return value >= 0 && value < 1e18; };
        if (counters && !(isWritable(counters->discontinuityTime) && isWritable(counters->utcOffset)))
          counters.reset();
      }
      byIndex.try_emplace(spec.ifIndex, std::move(spec));
    }
    std::map<L3::VrfName, VrfId> byName;
    for (const auto& [id, vrf] : vrfs_) byName.emplace(vrf.spec.name, id);
    for (auto& [ifIndex, spec] : byIndex) {
      const auto config = state_.tree.l3ConfigDir->intfConfig(spec.id);
      const auto at = config ? byName.find(config->vrf()) : byName.end();
      if (at != byName.end()) vrfs_[at->second].interfaces.push_back(std::move(spec));
    }
  }

  void writeVrf(const WrittenVrf& vrf) {
    const VrfSpec& spec = vrf.spec;
    addVrf(plain_.tree, spec);
    line("  {}:", yamlName(spec.name.stringValue()));
    if (!spec.name.isDefault()) {
      line("    id: {}", spec.id.value());
      if (spec.routeDistinguisher.isSet())
        line("    routeDistinguisher: '{}'", spec.routeDistinguisher.stringValue());
      if (spec.isNamespace) line("    namespace: true");
      if (spec.kernelTable != VrfSpec().kernelTable) line("    kernelTable: {}", spec.kernelTable);
    }
    line("    forwarding: {{ipv4: {}, ipv6: {}}}", spec.forwards4, spec.forwards6);
    if (!spec.staticRoutes.empty() || !spec.staticRoutes6.empty()) line("    staticRoutes:");
    for (const auto& [key, facts] : spec.staticRoutes) writeStaticRoute(key, facts);
    for (const auto& [key, facts] : spec.staticRoutes6) writeStaticRoute(key, facts);
    if (!vrf.interfaces.empty()) line("    interfaces:");
    for (const auto& interface : vrf.interfaces) writeInterface(spec.name, interface);
    writeNeighbours(spec.id);
    const auto tables = state_.tables.find(spec.id);
    if (tables != state_.tables.end()) writeTables(spec.id, tables->second);
  }

  template <class Key>
  void writeStaticRoute(const Key& key, const Routing::StaticRouteFacts& facts) {
    line("      - {{prefix: {}, preference: {}, nexthopGroup: {}, persistent: {}}}",
         quoted(key.prefix().stringValue()), key.preference().value(), facts.nexthopGroup(), facts.persistent());
  }

  void writeInterface(const L3::VrfName& vrf, const InterfaceSpec& spec) {
    addInterface(plain_.tree, vrf, spec);
    known_.insert(spec.id);
    line("      {}:", yamlName(spec.id.text()));
    line("        ifIndex: {}", spec.ifIndex);
    if (spec.state != Interface::operStatusUp) line("        state: {}", enumWord(spec.state, operStatusPrefix));
    if (!spec.mac.isZero()) line("        mac: '{}'", spec.mac.stringValue());
    writeLink(spec);
    std::vector<std::string> addresses;
    for (const auto& address : spec.ipv4) addresses.push_back(address.stringValue());
    for (const auto& [address, state] : spec.ipv6) {
      const bool isPreferred = state == Ip6::addressStatePreferred;
      addresses.push_back(fmt::format("'{}{}'", address.stringValue(),
                                      isPreferred ? "" : " " + enumWord(state, addressStatePrefix)));
    }
    if (!addresses.empty()) line("        addresses: [{}]", fmt::join(addresses, ", "));
    if (!spec.counters[0] && !spec.counters[1] && !spec.linkCounters) return;
    line("        counters:");
    for (const std::size_t version : {0U, 1U}) {
      if (spec.counters[version]) writeCounters(version == 0 ? "ipv4" : "ipv6", *spec.counters[version]);
    }
    if (spec.linkCounters) writeLinkCounters(*spec.linkCounters);
  }

  void writeLink(const InterfaceSpec& spec) {
    const InterfaceSpec absent;
    const auto writeIf = [this](bool isGiven, const char* key, const auto& value) {
      if (isGiven) line("        {}: {}", key, value);
    };
    writeIf(spec.adminStatus != absent.adminStatus, "adminStatus", enumWord(spec.adminStatus, adminStatusPrefix));
    writeIf(spec.ifType != absent.ifType, "ifType", spec.ifType);
    writeIf(spec.mtu != absent.mtu, "mtu", spec.mtu);
    writeIf(spec.alias != absent.alias, "alias", yamlName(spec.alias));
    writeIf(spec.speed != absent.speed, "speed", spec.speed);
    writeIf(spec.duplex != absent.duplex, "duplex", enumWord(spec.duplex, duplexPrefix));
    writeIf(spec.promiscuous, "promiscuous", true);
    writeIf(spec.connectorPresent, "connectorPresent", true);
    writeIf(spec.lowerIfIndex != 0, "lowerIfIndex", spec.lowerIfIndex);
    writeIf(spec.upperIfIndex != 0, "upperIfIndex", spec.upperIfIndex);
  }

  void writeCounters(const char* version, const CounterSpec& spec) {
    std::string items;
    const auto fields = Kel::toDatum(spec.counters);
    for (const auto& [name, value] : *fields.getIf<Kel::Datum::Object>()) {
      items += fmt::format("{}: {}, ", name, datumText(value));
    }
    line("          {}: {{{}discontinuityTime: {}, utcOffset: {}}}", version, items, spec.discontinuityTime,
         spec.utcOffset);
  }

  void writeLinkCounters(const Interface::LinkCounters& counters) {
    const std::uint64_t values[] = {counters.inOctets(),    counters.inPkts() - counters.inMcastPkts(),
                                    counters.inMcastPkts(), counters.inDiscards(),
                                    counters.inErrors(),    counters.outOctets(),
                                    counters.outPkts(),     counters.outDiscards(),
                                    counters.outErrors()};
    static_assert(std::size(values) == linkCounterNames.size());
    std::vector<std::string> items;
    for (std::size_t at = 0; at < linkCounterNames.size(); ++at) {
      items.push_back(fmt::format("{}: {}", linkCounterNames[at], values[at]));
    }
    line("          link: {{{}}}", fmt::join(items, ", "));
  }

  void writeNeighbours(const VrfId& vrfId) {
    bool isFirst = true;
    for (const auto& entry : state_.neighbours) {
      if (entry.vrfId() != vrfId) continue;
      if (std::exchange(isFirst, false)) line("    neighbours:");
      used(entry.intfId());
      line("      - {{address: {}, interface: {}, mac: '{}'{}}}", quoted(entry.addr().stringValue()),
           yamlName(entry.intfId().text()), entry.ethAddr.stringValue(),
           entry.status.isStatic ? ", static: true" : "");
    }
  }

  void used(const Vantu::IntfId& id) {
    if (id.isValid() && !known_.contains(id)) absent_.insert(id);
  }

  // ---- routes and FECs

  struct FecUse {
    std::set<FecId> derived;  // a reader derives them from the vias
    std::set<FecId> named;    // routes name them
  };

  void writeTables(const VrfId& vrfId, const VrfTables& tables) {
    static const VrfTables none;
    const auto at = state_.tables.find(state_.fecVrf(vrfId));
    const auto& fecs = (at == state_.tables.end() ? none : at->second).fecs;
    FecUse use;
    if (!tables.routes.empty() || !tables.routes6.empty()) line("    routes:");
    writeRoutes(tables.routes, fecs, Vantu::ipv4_, use);
    writeRoutes(tables.routes6, fecs, Vantu::ipv6_, use);
    bool isFirst = true;
    // In unified mode, those of a single VRF are in the default VRF's table.
    const bool isOfAnother = &fecs != &tables.fecs && writing_.vrf;
    for (const auto& [id, vias] : isOfAnother ? fecs : tables.fecs) {
      if (isOfAnother ? !use.named.contains(id) : use.derived.contains(id)) continue;
      if (std::exchange(isFirst, false)) line("    fecs:");
      for (const auto& via : vias) used(via.intfId);
      line("      - {{id: {}, vias: {}}}", id.value(), viasText(vias, Vantu::unknown_));
    }
  }

  template <class Routes>
  void writeRoutes(const Routes& routes, const std::map<FecId, std::vector<Via>>& fecs, Vantu::Af af, FecUse& use) {
    std::unordered_map<std::uint64_t, std::string> texts;
    std::size_t lost = 0;
    for (const auto& route : routes) {
      const auto [text, isNew] = texts.try_emplace(route.fecId.value());
      if (isNew) {
        const auto at = fecs.find(route.fecId);
        text->second = at == fecs.end() ? "fec: 0" : fecText(at->first, at->second, af, use);
      }
      if (route.fecId != FecId() && text->second == "fec: 0") ++lost;
      writeRoute(route, af, text->second);
    }
    if (lost > 0)
      leftOut(fmt::format("{} {} routes have lost their next hops: the FECs that they name cannot be read", lost,
                          Vantu::afName(af)));
  }

  std::string fecText(const FecId& id, const std::vector<Via>& vias, Vantu::Af af, FecUse& use) {
    for (const auto& via : vias) used(via.intfId);
    auto sorted = vias;
    Quillo::sortVias(sorted);
    if (sorted != vias || vias.empty() || Quillo::fecIdOf(vias) != id) {
      use.named.insert(id);
      return fmt::format("fec: {}", id.value());
    }
    use.derived.insert(id);
    return "via: " + (vias.size() == 1 ? viaText(vias.front(), af) : viasText(vias, af));
  }

  template <class Route>
  void writeRoute(const Route& route, Vantu::Af af, const std::string& next) {
    std::string text = fmt::format("prefix: {}, {}", quoted(route.prefix.stringValue()), next);
    const auto out = std::back_inserter(text);
    const auto number = route.routeType.value();
    const auto origin =
        std::find_if(Quillo::routeOrigins.begin(), Quillo::routeOrigins.end(),
                     [&](const auto& known) { return number == (af == Vantu::ipv6_ ? known.type6 : known.type); });
    const bool isKnown = origin != Quillo::routeOrigins.end();
    if (isKnown) {
      fmt::format_to(out, ", proto: {}", origin->name);
    } else {
      fmt::format_to(out, ", type: {}", number);
    }
    if (!isKnown || route.preference().value() != origin->preference) {
      fmt::format_to(out, ", preference: {}", route.preference().value());
    }
    if (route.metric.value() != 0) fmt::format_to(out, ", metric: {}", route.metric.value());
    if (!route.isPersistent) text += ", persistent: false";
    if (route.isNexthopGroup) text += ", nexthopGroup: true";
    const auto usual = next == fmt::format("via: {}", blackholeWord) ? Routing::Fib::RouteAction::blackhole
                                                                     : Routing::Fib::RouteAction::forward;
    if (route.action != usual) fmt::format_to(out, ", action: {}", routeActionName(route.action));
    line("      - {{{}}}", text);
  }

  // ---- the rest

  // In a dump of one VRF: the documents of the VRF and of its interfaces.
  bool isWanted(const std::string& path) const {
    if (!writing_.vrf) return true;
    const auto& vrf = vrfs_.begin()->second;
    return path.ends_with("/" + vrf.spec.name.stringValue()) ||
           std::any_of(vrf.interfaces.begin(), vrf.interfaces.end(),
                       [&](const auto& interface) { return path.ends_with("/" + interface.id.text()); });
  }

  // The documents that differ from those that the sections above give.
  void writeDocuments() {
    std::set<std::string> paths;
    const auto note = [&](const std::string& path) { paths.insert(path); };
    const Varnix::TreeWatch wanted(state_.tree, note);
    addVrf(plain_.tree, vrfs_.begin()->second.spec.name.isDefault() ? vrfs_.begin()->second.spec : VrfSpec());
    const Varnix::TreeWatch given(plain_.tree, note);
    bool isFirst = true;
    for (const auto& path : paths) {
      const auto entity = wanted.entity(path);
      const auto before = given.entity(path);
      if (!isWanted(path)) continue;
      const std::string attributes = entity ? differences(*entity, before.get()) : "";
      if (entity && before && attributes.empty()) continue;
      if (std::exchange(isFirst, false)) line("documents:");
      const std::string name = yamlName(path);
      if (!entity) {
        line("  - {{path: {}, absent: true}}", name);
      } else if (before) {
        line("  - {{path: {}, attributes: {{{}}}}}", name, attributes);
      } else {
        line("  - {{path: {}, type: {}, attributes: {{{}}}}}", name, yamlName(entity->kelTypeInfo().name()),
             attributes);
      }
    }
  }

  std::string differences(const Kel::Entity& entity, const Kel::Entity* before) const {
    const Kel::Datum known(before ? Varnix::documentOf(*before, *plain_.tree.root).attributes
                                  : Kel::Datum::Object());
    std::vector<std::string> items;
    for (const auto& [name, value] : Varnix::documentOf(entity, *state_.tree.root).attributes) {
      const auto* present = known.member(name);
      if (!present || *present != value) items.push_back(fmt::format("{}: {}", name, datumText(value)));
    }
    return fmt::format("{}", fmt::join(items, ", "));
  }

  void writeAbsent() {
    std::erase_if(absent_, [this](const auto& id) { return known_.contains(id); });  // of a later VRF
    if (absent_.empty()) return;
    line("absentInterfaces:");
    for (const auto& id : absent_) line("  - {}", yamlName(id.text()));
  }

  // Records of VRFs that do not exist, which no reader uses.
  void reportOthers() const {
    if (writing_.vrf) return;
    std::map<VrfId, std::size_t> others;
    for (const auto& [id, tables] : state_.tables) {
      const std::size_t count = tables.routes.size() + tables.routes6.size() + tables.fecs.size();
      if (!vrfs_.contains(id) && count > 0) others[id] += count;
    }
    for (const auto& entry : state_.neighbours) {
      if (!vrfs_.contains(entry.vrfId())) ++others[entry.vrfId()];
    }
    for (const auto& [id, count] : others) {
      leftOut(fmt::format("{} records of VRF id {} are left out: no VRF has this id now", count, id.value()));
    }
  }

  const SwitchState& state_;
  const SwitchWriting& writing_;
  const std::function<void(std::string_view)>& out_;
  std::string buffer_;
  SwitchState plain_;  // what a reader makes of the sections of VRFs
  std::map<VrfId, WrittenVrf> vrfs_;
  std::set<Vantu::IntfId> known_;
  std::set<Vantu::IntfId> absent_;
};

}  // namespace

void writeSwitch(const SwitchState& state, const SwitchWriting& writing,
                 const std::function<void(std::string_view)>& out) {
  SwitchWriter(state, writing, out).write();
}

}  // namespace Ctl

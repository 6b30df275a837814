#pragma once
// What the picture must show of a kernel, worked out apart from the code under test, as lines of text.

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "mirror/publish/Picture.h"
#include "mirror/testing/FakeKernel.h"
#include "quillo/Mount.h"
#include "quillo/tables/ArpRecord.h"

namespace Mirror::Test {

using Lines = std::set<std::string>;

inline bool isRunning(const TestLink& link) {
  return (link.flags & IFF_UP) && (link.operState == IF_OPER_UP || link.operState == IF_OPER_UNKNOWN);
}

// What the VRF of a namespace is called and numbered.
struct TestScope {
  std::string vrf = "default";
  unsigned id = 0;
  std::string intf(const std::string& name) const { return vrf == "default" ? name : vrf + "/" + name; }
  unsigned ifIndex(int kernelIndex) const { return id * 1048576 + static_cast<unsigned>(kernelIndex); }
};

// The VRF that a link of the default namespace is in, given the ids of the VRF devices that are served.
inline std::optional<TestScope> scopeOf(const FakeKernel& kernel, const TestLink& link,
                                        const std::map<std::string, unsigned>& ids) {
  const auto master = kernel.links.find(static_cast<int>(link.master));
  const TestLink* device = link.vrfTable ? &link : master == kernel.links.end() ? nullptr : &master->second;
  if (!device || !device->vrfTable) return TestScope();
  if (!ids.contains(device->name)) return std::nullopt;
  return TestScope{device->name, ids.at(device->name)};
}

inline Lines expectedLines(const FakeKernel& kernel, const TestScope& scope = {},
                           const std::map<std::string, unsigned>& deviceIds = {}) {
  Lines lines;
  for (const auto& [ifIndex, link] : kernel.links) {
    const auto vrf = scope.id == 0 ? scopeOf(kernel, link, deviceIds) : scope;
    const std::string name = scope.intf(link.name);
    lines.insert(name + " link " + std::to_string(scope.ifIndex(ifIndex)) + (isRunning(link) ? " running" : ""));
    if (!vrf) continue;
    lines.insert(name + " l3 " + vrf->vrf + " " + vrf->vrf);
    lines.insert(name + " config");
    for (const auto& neighbour : kernel.neighbours) {
      constexpr int usable = NUD_PERMANENT | NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE;
      if (neighbour.ifIndex != ifIndex || !(neighbour.state & usable) || !neighbour.ethAddr) continue;
      lines.insert(name + " neighbour " + std::to_string(vrf->id) + " " + neighbour.addr.stringValue() + " " +
                   neighbour.ethAddr->stringValue() + (neighbour.state == NUD_PERMANENT ? " static" : ""));
    }
  }
  for (const auto& address : kernel.addresses) {
    const auto link = kernel.links.find(address.ifIndex);
    if (link == kernel.links.end() || (scope.id == 0 && !scopeOf(kernel, link->second, deviceIds))) continue;
    const std::string name = scope.intf(link->second.name);
    const std::string text = address.local.stringValue() + "/" + std::to_string(address.prefixLength);
    lines.insert(name + " config " + text);
    const bool isUnproven = address.local.af() == Vantu::ipv6_ &&
                            ((address.flags & IFA_F_DADFAILED) ||
                             ((address.flags & IFA_F_TENTATIVE) && !(address.flags & IFA_F_OPTIMISTIC)));
    if (isRunning(link->second) && !isUnproven) lines.insert(name + " status " + text);
  }
  return lines;
}

// The primary addresses, by interface.
inline std::map<std::string, std::string> primaries(const Varnix::Tree& tree) {
  std::map<std::string, std::string> result;
  for (const auto& [id, record] : tree.ipConfig->ipIntfConfig()) {
    result[id.text()] = record->addrWithMask().stringValue();
  }
  return result;
}

// Adds the lines of a record; an address in both places is a fault that shows as a line of its own.
template <class Record>
void addIpv4(Lines& lines, const std::string& start, const Vantu::IpAddrWithMask& first, const Record& record) {
  if (first != Vantu::IpAddrWithMask()) lines.insert(start + first.stringValue());
  if (first == Vantu::IpAddrWithMask() && !record.secondaryAddrWithMask().empty()) lines.insert(start + "no first");
  for (const auto& [address, isThere] : record.secondaryAddrWithMask()) {
    if (!isThere || !lines.insert(start + address.stringValue()).second) lines.insert(start + "twice");
  }
}

inline Lines linesOf(const Varnix::Tree& tree) {
  Lines lines;
  for (const auto& [id, record] : tree.intfStatusDir->intfStatus()) {
    const bool isUp =
        record->operStatus() == Interface::operStatusUp || record->operStatus() == Interface::operStatusUnknown;
    lines.insert(id.text() + " link " + std::to_string(record->ifIndex()) + (isUp ? " running" : ""));
    if (record->kind() != "linux") lines.insert(id.text() + " kind " + record->kind());
  }
  for (const auto& [id, record] : tree.l3ConfigDir->intfConfig()) {
    const auto status = tree.l3StatusDir->intfStatus(id);
    lines.insert(id.text() + " l3 " + record->vrf().stringValue() + " " +
                 (status ? status->vrf().stringValue() : "none"));
  }
  for (const auto& [id, record] : tree.ipConfig->ipIntfConfig()) {
    lines.insert(id.text() + " config");
    addIpv4(lines, id.text() + " config ", record->addrWithMask(), *record);
    if (record->l3Config() != tree.l3ConfigDir->intfConfig(id)) lines.insert(id.text() + " config reference");
  }
  for (const auto& [id, record] : tree.ipStatus->ipIntfStatus()) {
    addIpv4(lines, id.text() + " status ", record->activeAddrWithMask(), *record);
    if (record->l3Status() != tree.l3StatusDir->intfStatus(id)) lines.insert(id.text() + " status reference");
  }
  for (const auto& [id, record] : tree.ip6Config->intf()) {
    for (const auto& [address, info] : record->addr()) lines.insert(id.text() + " config " + address.stringValue());
    if (record->l3Config() != tree.l3ConfigDir->intfConfig(id)) lines.insert(id.text() + " config6 reference");
  }
  for (const auto& [id, record] : tree.ip6Status->intf()) {
    for (const auto& [address, info] : record->addr()) lines.insert(id.text() + " status " + address.stringValue());
    if (record->l3Status() != tree.l3StatusDir->intfStatus(id)) lines.insert(id.text() + " status6 reference");
  }
  return lines;
}

inline Lines linesOf(const Picture& picture) {
  Lines lines = linesOf(picture.tree);
  for (const auto& [place, neighbours] : picture.neighbours.places()) {
    for (const auto& [addr, neighbour] : neighbours) {
      lines.insert(place.intfId.text() + " neighbour " + place.vrfId.stringValue() + " " + addr.stringValue() +
                   " " + neighbour.ethAddr.stringValue() + (neighbour.isStatic ? " static" : ""));
    }
  }
  return lines;
}

// The neighbours in the store, in the same form.
inline Lines neighbourLines(const std::string& store) {
  const auto mount = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{store});
  mount->refresh();
  const auto snapshot = mount->snapshot();
  Lines lines;
  for (const auto table : {Quillo::TableId::arp, Quillo::TableId::neighbor}) {
    for (auto scan = snapshot.scan(table); scan.valid(); scan.next()) {
      Arp::Table::ArpEntry entry;
      const char* keyFault = Arp::Table::decodeKey(table, scan.key(), entry.key);
      const char* valueFault = Arp::Table::decodeValue(scan.value(), entry);
      if (keyFault || valueFault) lines.insert(std::string("damaged: ") + (keyFault ? keyFault : valueFault));
      lines.insert(entry.intfId().text() + " neighbour " + entry.vrfId().stringValue() + " " +
                   entry.addr().stringValue() + " " + entry.ethAddr.stringValue() +
                   (entry.status.isStatic ? " static" : ""));
    }
  }
  return lines;
}

}  // namespace Mirror::Test

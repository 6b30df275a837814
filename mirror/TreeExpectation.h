#pragma once
// What a tree must hold for given links and addresses, worked out apart from the code under test, as lines of text.

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "mirror/FakeKernel.h"
#include "varnix/Tree.h"

namespace Mirror::Test {

using Lines = std::set<std::string>;

inline bool isRunning(const TestLink& link) {
  return (link.flags & IFF_UP) && (link.operState == IF_OPER_UP || link.operState == IF_OPER_UNKNOWN);
}

inline Lines expectedLines(const FakeKernel& kernel) {
  Lines lines;
  for (const auto& [ifIndex, link] : kernel.links) {
    lines.insert(link.name + " link " + std::to_string(ifIndex) + (isRunning(link) ? " running" : ""));
    lines.insert(link.name + " l3 default default");
  }
  for (const auto& address : kernel.addresses) {
    const auto link = kernel.links.find(address.ifIndex);
    if (link == kernel.links.end()) continue;
    const std::string text = address.local.stringValue() + "/" + std::to_string(address.prefixLength);
    lines.insert(link->second.name + " config " + text);
    const bool isUnproven = address.local.af() == Vantu::ipv6_ &&
                            ((address.flags & IFA_F_DADFAILED) ||
                             ((address.flags & IFA_F_TENTATIVE) && !(address.flags & IFA_F_OPTIMISTIC)));
    if (isRunning(link->second) && !isUnproven) lines.insert(link->second.name + " status " + text);
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

}  // namespace Mirror::Test

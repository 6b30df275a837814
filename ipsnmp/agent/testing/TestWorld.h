#pragma once
// For tests: records, caches, and an address state machine that connects them.

#include <gtest/gtest.h>

#include <algorithm>

#include "ipsnmp/agent/address/IpAddressTableSm.h"
#include "ipsnmp/testing/TestRoutes.h"
#include "varnix/Tree.h"

namespace IpSnmpTest {

using Lines = std::vector<std::string>;

inline Vantu::IntfId intfOf(std::string_view text) {
  return Vantu::IntfId(text);
}
inline Vantu::IpAddrWithMask mask4(std::string_view text) {
  return Vantu::IpAddrWithMask::fromString(text);
}
inline Vantu::Ip6AddrWithMask mask6(std::string_view text) {
  return Vantu::Ip6AddrWithMask::fromString(text);
}

struct World {
  Varnix::Tree tree{Kel::makePtr<Kel::Dir>("")};
  Ptr<IpSnmp::IpMib> ipMib = Kel::makePtr<IpSnmp::IpMib>("ipmib");
  Ptr<IpSnmp::IpAddressTableSm> sm;
  Interface::LinuxIntfDetails linuxDetails;

  World() {
    Interface::IntfDetailsProvider::providerIs("linux", &linuxDetails);
    smIs();
  }
  ~World() { Interface::IntfDetailsProvider::providerIs("linux", nullptr); }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  void smIs() {
    sm = Kel::makePtr<IpSnmp::IpAddressTableSm>(tree.intfStatusDir, ipMib, tree.ipConfig, tree.ipStatus,
                                                tree.ip6Config, tree.ip6Status);
  }
  Ptr<Interface::IntfStatus> intfIs(std::string_view name, std::uint32_t ifIndex) {
    auto status = tree.intfStatusDir->intfStatusIs(intfOf(name));
    status->kindIs("linux");
    status->ifIndexIs(ifIndex);
    return status;
  }
  Ptr<Ip::IpIntfConfig> configIs(std::string_view name, std::string_view addr) {
    auto record = tree.ipConfig->ipIntfConfigIs(intfOf(name));
    record->addrWithMaskIs(mask4(addr));
    return record;
  }
  Ptr<Ip::IpIntfStatus> statusIs(std::string_view name, std::string_view addr) {
    auto record = tree.ipStatus->ipIntfStatusIs(intfOf(name));
    record->activeAddrWithMaskIs(mask4(addr));
    return record;
  }
};

inline std::string keyText(const IpSnmp::InetAddress& addr) {
  return addr.version() == Ip::ipVersion4 ? Vantu::IpAddr::fromBytes(addr.bytes().octets()).stringValue()
                                          : Vantu::Ip6Addr::fromBytes(addr.bytes().octets()).stringValue();
}

// The three address tables as lines; checks invariants of the cache on the way:
//   "10.0.0.1 preferred: 0/eth0=3/24 1/eth1=4/24"    pairs as source/interface=ifIndex/prefix length
//   "row 10.0.0.1 3 255.255.255.0"                   ipAddrTable
//   "prefix 3 10.0.0.0/24"
using TableLines = std::set<std::string>;
inline TableLines tables(const IpSnmp::IpMib& mib) {
  TableLines lines;
  for (const auto& [key, entry] : mib.ipAddressTable()) {
    auto text =
        keyText(key) + (entry->addressStatus() == IpSnmp::addressStatusPreferred ? " preferred:" : " config:");
    for (const auto& [pairKey, pair] : entry->intf()) {
      text += fmt::format(" {}/{}={}/{}", static_cast<int>(pairKey.source()), pairKey.intfId().text(),
                          pair.ifIndex(), pair.prefixEntry()->index().length());
    }
    lines.insert(text);
  }
  for (const auto& [addr, row] : mib.ipAddrTable()) {
    lines.insert(fmt::format("row {} {} {}", addr.stringValue(), row->ipAdEntIfIndex(),
                             row->ipAdEntNetMask().stringValue()));
    EXPECT_EQ(row->masterEntry(), mib.ipAddressTable(IpSnmp::InetAddress::fromIpAddr(addr)));
  }
  for (const auto& [key, row] : mib.ipAddressPrefixTable()) {
    lines.insert(fmt::format("prefix {} {}/{}", key.ifIndex(),
                             keyText(IpSnmp::InetAddress(key.version(), key.bytes())), key.length()));
    const auto& all = mib.ipAddressTable();
    EXPECT_TRUE(std::any_of(all.begin(), all.end(), [&](const auto& at) {
      return at.second->prefixEntry() == row;
    })) << "a prefix row is the object of a first pair";
  }
  return lines;
}

}  // namespace IpSnmpTest

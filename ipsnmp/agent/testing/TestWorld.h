#pragma once
// Records, caches and an address state machine over them, for tests.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "ipsnmp/agent/address/IpAddressTableSm.h"
#include "kel/Trace.h"
#include "varnix/Tree.h"

namespace IpSnmpTest {

using Kel::Ptr;

inline Vantu::IntfId intfOf(std::string_view text) {
  return Vantu::IntfId(text);
}
inline Vantu::IpAddrWithMask mask4(std::string_view text) {
  return Vantu::IpAddrWithMask::fromString(text);
}
inline Vantu::Ip6AddrWithMask mask6(std::string_view text) {
  return Vantu::Ip6AddrWithMask::fromString(text);
}

// The lines of a facility while it exists: those of the address state machine unless told otherwise.
class TraceCatcher {
 public:
  explicit TraceCatcher(const std::string& levels = "IpAddressTableSm/0-9") {
    Kel::TraceConfig::levelsAre(levels);
    previous_ = Kel::TraceConfig::sinkIs(
        [this](const Kel::TraceHandle&, unsigned, const std::string& text) { lines_.push_back(text); });
  }
  ~TraceCatcher() {
    Kel::TraceConfig::sinkIs(previous_);
    Kel::TraceConfig::reset();
  }
  TraceCatcher(const TraceCatcher&) = delete;
  TraceCatcher& operator=(const TraceCatcher&) = delete;

  // How often the line came since the last call.
  long take(const std::string& line) {
    const auto count = std::count(lines_.begin(), lines_.end(), line);
    lines_.clear();
    return count;
  }
  // All lines since the last call.
  std::vector<std::string> takeAll() { return std::exchange(lines_, {}); }

 private:
  Kel::TraceConfig::Sink previous_;
  std::vector<std::string> lines_;
};

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

// The three tables as text, one line a row, and the rules that hold whatever happened before:
//   "10.0.0.1 preferred: 0/eth0=3/24 1/eth1=4/24"    pairs as source/interface=ifIndex/prefix length
//   "row 10.0.0.1 3 255.255.255.0"                   ipAddrTable
//   "prefix 3 10.0.0.0/24"
inline std::string tables(const IpSnmp::IpMib& mib) {
  std::string text;
  for (const auto& [key, entry] : mib.ipAddressTable()) {
    if (entry->intf().empty()) return "an entry without pairs: " + keyText(key);
    text += keyText(key) + (entry->addressStatus() == IpSnmp::addressStatusPreferred ? " preferred:" : " config:");
    for (const auto& [pairKey, pair] : entry->intf()) {
      text += fmt::format(" {}/{}={}/{}", static_cast<int>(pairKey.source()), pairKey.intfId().text(),
                          pair.ifIndex(), pair.prefixEntry()->index().length());
    }
    text += "\n";
  }
  for (const auto& [addr, row] : mib.ipAddrTable()) {
    text += fmt::format("row {} {} {}\n", addr.stringValue(), row->ipAdEntIfIndex(),
                        row->ipAdEntNetMask().stringValue());
    if (row->masterEntry() != mib.ipAddressTable(IpSnmp::InetAddress::fromIpAddr(addr))) return "a foreign master";
  }
  for (const auto& [key, row] : mib.ipAddressPrefixTable()) {
    text += fmt::format("prefix {} {}/{}\n", key.ifIndex(),
                        keyText(IpSnmp::InetAddress(key.version(), key.bytes())), key.length());
    const auto isHeld = std::any_of(mib.ipAddressTable().begin(), mib.ipAddressTable().end(),
                                    [&](const auto& at) { return at.second->prefixEntry() == row; });
    if (!isHeld) return text + "a prefix row that is no first pair's object";
  }
  return text;
}

}  // namespace IpSnmpTest

#pragma once
// For tests: the entities that the modules are pointed at, in the default context and in the VRF "red", and
// what is traced meanwhile.

#include <string>
#include <vector>

#include "ipsnmp/IpMib.h"
#include "kel/Dir.h"
#include "kel/Trace.h"
#include "snmp/SnmpUtil.h"

namespace Modules {

struct TestIpTree {
  TestIpTree() {
    const auto routing = root->dirIs("Varnix")->dirIs("routing");
    routing->entityIs(config);
    routing->dirIs("vrf")->entityIs(vrfConfigs);
    root->dirIs("Varnix")->dirIs("routing6")->entityIs(config6);
    const auto ip = root->dirIs("snmp")->dirIs("ip");
    ip->entityIs(ipMib);
    ip->entityIs(ipForwardMib);
    ip->entityIs(ipVrfMib);
    ip->entityIs(fibStatsMib);
    ip->entityIs(vrfMibs);
    SnmpUtil::rootIs(root);
  }
  ~TestIpTree() { SnmpUtil::rootIs(nullptr); }
  TestIpTree(const TestIpTree&) = delete;
  TestIpTree& operator=(const TestIpTree&) = delete;

  Kel::Ptr<Kel::Dir> root = Kel::makePtr<Kel::Dir>("");
  Kel::Ptr<Routing::Config> config = Kel::makePtr<Routing::Config>("config");
  Kel::Ptr<Routing6::Config> config6 = Kel::makePtr<Routing6::Config>("config");
  Kel::Ptr<Routing::VrfConfigDir> vrfConfigs = Kel::makePtr<Routing::VrfConfigDir>("config");
  Kel::Ptr<IpSnmp::IpMib> ipMib = Kel::makePtr<IpSnmp::IpMib>("ipmib");
  Kel::Ptr<IpSnmp::IpForwardMib> ipForwardMib = Kel::makePtr<IpSnmp::IpForwardMib>("ipforwardmib");
  Kel::Ptr<FibStatsSnmp::FibStatsMib> fibStatsMib = Kel::makePtr<FibStatsSnmp::FibStatsMib>("fibstatsmib");
  Kel::Ptr<IpSnmp::IpVrfMib> ipVrfMib = Kel::makePtr<IpSnmp::IpVrfMib>("ipvrfmib");
  Kel::Ptr<IpSnmp::VrfMibsDir> vrfMibs = Kel::makePtr<IpSnmp::VrfMibsDir>("vrf");
  Kel::Ptr<Routing::Config> redConfig = vrfConfigs->vrfConfigIs("red");
  Kel::Ptr<IpSnmp::IpMib> redIpMib = vrfMibs->mibsIs("red")->ipmib();
};

// An IPv4 address with the rows that it has in all address tables.
inline void addressIs(IpSnmp::IpMib& mib, const std::string& text, unsigned prefixLength, std::uint32_t ifIndex) {
  const auto addr = Vantu::IpAddr::fromString(text);
  const auto entry = mib.ipAddressTableIs(IpSnmp::InetAddress::fromIpAddr(addr));
  const auto prefixBytes = IpSnmp::InetAddress::fromIpAddr(addr.mask(prefixLength)).bytes();
  const auto prefix = Kel::makePtr<IpSnmp::IpAddressPrefixEntry>(
      IpSnmp::IpAddressPrefixKey(ifIndex, Ip::ipVersion4, prefixBytes, prefixLength));
  entry->intfIs({IpSnmp::IntfDataKey(IpSnmp::addressSourceStatus, Vantu::IntfId::fromString("eth0")), prefix});
  mib.ipAddrTableIs(entry);
}

inline void addressDel(IpSnmp::IpMib& mib, const std::string& text) {
  mib.ipAddrTableDel(Vantu::IpAddr::fromString(text));
}

// Collects the lines of one facility, "<level> <text>", while it exists, all levels enabled.
class TraceLines {
 public:
  explicit TraceLines(const std::string& facility) {
    Kel::TraceConfig::levelsAre(facility + "/0-9");
    previous_ = Kel::TraceConfig::sinkIs([this, facility](const auto& handle, unsigned level, const auto& text) {
      if (handle.facility() == facility) lines_.push_back(std::to_string(level) + " " + text);
    });
  }
  ~TraceLines() {
    Kel::TraceConfig::sinkIs(previous_);
    Kel::TraceConfig::reset();
  }
  TraceLines(const TraceLines&) = delete;
  TraceLines& operator=(const TraceLines&) = delete;

  // The lines since the last call.
  std::vector<std::string> take() { return std::exchange(lines_, {}); }

 private:
  std::vector<std::string> lines_;
  Kel::TraceConfig::Sink previous_;
};

}  // namespace Modules

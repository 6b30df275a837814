#pragma once
// The MIB caches that the SNMP handlers read, one set per VRF. The state machines of ipsnmp/agent and fibstats/agent
// write them. Guarantees: ordered collections iterate in the SNMP index order of their table, so a GETNEXT can resume
// from any key. Lifetime: a removed row stays readable to its holders.

#include "fibstats/FibStatsMib.h"
#include "ipsnmp/IfTables.h"
#include "ipsnmp/IpAddressEntry.h"
#include "ipsnmp/IpForwardMib.h"
#include "ipsnmp/IpVrfMib.h"
#include "ipsnmp/NeighbourEntries.h"
#include "swfwdstats/SwFwdStats.h"
#include "varnix/Interface.h"
#include "varnix/Ip.h"

namespace IpSnmp {

// One row of quorinIpIfStatsTable: the packets and octets of an interface in one IP version since discontinuityTime, in
// total and by unicast and multicast. The publisher of the state database counts them; they wrap at 2^64.
class IpIfStatsEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::IpIfStatsEntry", IpIfStatsEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(IpIfStatsEntry, ((IpSnmp::IpVersionIfIndex, index)))
  Ip::IpVersion ipVersion() const { return index().ipVersion(); }
  std::uint32_t ifIndex() const { return index().ifIndex(); }
  KEL_COMPUTED(ipVersion)
  KEL_COMPUTED(ifIndex)

  KEL_STORED(std::uint64_t, ipIfStatsInPkts, IpIfStatsInPkts, 0)
  KEL_STORED(std::uint64_t, ipIfStatsInOctets, IpIfStatsInOctets, 0)
  KEL_STORED(std::uint64_t, ipIfStatsOutPkts, IpIfStatsOutPkts, 0)
  KEL_STORED(std::uint64_t, ipIfStatsOutOctets, IpIfStatsOutOctets, 0)
  KEL_STORED(std::uint64_t, ipIfStatsInUcastPkts, IpIfStatsInUcastPkts, 0)
  KEL_STORED(std::uint64_t, ipIfStatsInUcastOctets, IpIfStatsInUcastOctets, 0)
  KEL_STORED(std::uint64_t, ipIfStatsOutUcastPkts, IpIfStatsOutUcastPkts, 0)
  KEL_STORED(std::uint64_t, ipIfStatsOutUcastOctets, IpIfStatsOutUcastOctets, 0)
  KEL_STORED(std::uint64_t, ipIfStatsInMcastPkts, IpIfStatsInMcastPkts, 0)
  KEL_STORED(std::uint64_t, ipIfStatsInMcastOctets, IpIfStatsInMcastOctets, 0)
  KEL_STORED(std::uint64_t, ipIfStatsOutMcastPkts, IpIfStatsOutMcastPkts, 0)
  KEL_STORED(std::uint64_t, ipIfStatsOutMcastOctets, IpIfStatsOutMcastOctets, 0)
  KEL_STORED(double, discontinuityTime, DiscontinuityTime, 0.0)  // seconds, framework clock
  KEL_TYPE_END_DECLARE
};

// An interface with an IP version: a row of ipv4InterfaceTable or ipv6InterfaceTable. Columns are read from the
// publisher's records at each request.
class IpInterfaceEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::IpInterfaceEntry", IpInterfaceEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(IpInterfaceEntry, ((IpSnmp::IpVersionIfIndex, index)))
  KEL_REFERENCE(const Ip::IntfProtocol, protocol, Protocol)   // null only while the row is made
  KEL_REFERENCE(const Ip6::IntfConfig, addresses, Addresses)  // null: no IPv6 addresses
  KEL_TYPE_END_DECLARE

 public:
  // The interface identifier: the lower 64 bits (8 bytes) of its lowest link-local address; empty without one.
  Kel::String identifier() const;
};

// An interface with IP counters: a row of ipIfStatsTable (RFC 4293). Columns are read from the publisher's record at
// each request.
class IpIfTrafficEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::IpIfTrafficEntry", IpIfTrafficEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(IpIfTrafficEntry, ((IpSnmp::IpVersionIfIndex, index)))
  KEL_REFERENCE(const Ip::IntfStats, stats, Stats)  // null only while the row is made
  KEL_TYPE_END_DECLARE
};

// A gateway of a default route: a row of ipDefaultRouterTable.
class IpDefaultRouterEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::IpDefaultRouterEntry", IpDefaultRouterEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(IpDefaultRouterEntry, ((IpSnmp::DefaultRouterIndex, index)))
  KEL_STORED(double, expires, Expires, 0.0)            // seconds of the framework's clock; 0: never
  KEL_STORED(std::int32_t, preference, Preference, 0)  // that of RFC 4191, -1 to 1
  KEL_TYPE_END_DECLARE
};

// The IP-MIB cache of one VRF. The default VRF's cache is named "ipmib"; every other cache has its VRF's name.
class IpMib : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpMib", IpMib, Kel::Entity)
 public:
  KEL_NAMED(IpMib, Kel::Entity)
  KEL_MEMBERS(Ordered, InetAddress, IpAddressEntry, ipAddressTable, IpAddressTable)
  KEL_MEMBERS(Ordered, IpAddressPrefixKey, IpAddressPrefixEntry, ipAddressPrefixTable, IpAddressPrefixTable)
  KEL_MEMBERS(Ordered, Vantu::IpAddr, IpAddrEntry, ipAddrTable, IpAddrTable)

  // A virtual collection: the IPv4 rows of ipNetToPhysicalTable, read only by walking it
  // (ipsnmp/ArpTableIteratorConst.h). A lookup always throws Kel::NoImplementationException.
  class ArpTableIteratorConst;
  [[noreturn]] Kel::Ptr<const ArpTableEntry> arpTable(const ArpTableIndex&) const {
    throw Kel::NoImplementationException("IpMib::arpTable");
  }
  KEL_VIRTUAL_MEMBERS(ArpTableEntry, arpTable)
 public:
  KEL_MEMBERS(Ordered, IpNetToPhysicalTableIndex, IpNetToPhysicalTableEntry, ipNetToPhysicalTable,
              IpNetToPhysicalTable)
  KEL_MEMBERS(Ordered, IpVersionIfIndex, IpIfStatsEntry, ipIfStatsTable, IpIfStatsTable)  // of quorinIpIfStatsTable
  KEL_MEMBERS(Hashed, Ip::IpVersion, Ip::SwFwdStats, ipSwFwdStats, IpSwFwdStats)
  KEL_MEMBERS(Ordered, IpVersionIfIndex, IpInterfaceEntry, ipInterfaceTable, IpInterfaceTable)
  KEL_MEMBERS(Ordered, IpVersionIfIndex, IpIfTrafficEntry, ipIfTrafficTable, IpIfTrafficTable)
  KEL_MEMBERS(Ordered, DefaultRouterIndex, IpDefaultRouterEntry, ipDefaultRouterTable, IpDefaultRouterTable)
  // The last changes of tables of interfaces, in seconds of the framework's clock; 0: never. For ipv4InterfaceTable and
  // ipv6InterfaceTable, a row was added, deleted or changed; for ipIfTrafficTable (ipIfStatsTable of RFC 4293), a row
  // was added or deleted.
  KEL_STORED(double, ipv4InterfaceTableLastChange, Ipv4InterfaceTableLastChange, 0.0)
  KEL_STORED(double, ipv6InterfaceTableLastChange, Ipv6InterfaceTableLastChange, 0.0)
  KEL_STORED(double, ipIfStatsTableLastChange, IpIfStatsTableLastChange, 0.0)

  // Inserts an existing prefix row, or replaces another one with the same key by it. The row is the prefix entry of one
  // member of an address (IpAddressEntry::intf).
  void ipAddressPrefixTableInsert(const Kel::Ptr<IpAddressPrefixEntry>& entry) {
    if (ipAddressPrefixTable(entry->index()) == entry) return;
    const auto hold = Kel::kept(*this);
    ipAddressPrefixTableDel(entry->index());
    ipAddressPrefixTable_.map.kelInsert(entry->index(), entry);
    KEL_NOTIFY_KEY(IpAddressPrefixTable, entry->index());
  }
  KEL_TYPE_END_DECLARE
};

// The caches of one VRF other than the default one. They are created with this entity and have the VRF's name.
class VrfMibs : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::VrfMibs", VrfMibs, Kel::Entity)
 public:
  KEL_NAMED(VrfMibs, Kel::Entity)
  KEL_CHILD(IpMib, ipmib, Ipmib)
  KEL_CHILD(IpForwardMib, ipforwardmib, Ipforwardmib)
  KEL_CHILD(FibStatsSnmp::FibStatsMib, fibstatsmib, Fibstatsmib)
  KEL_CHILD(IfTables, iftables, Iftables)
  KEL_TYPE_END_DECLARE

  void kelStart() override {
    ipmibIs(name());
    ipforwardmibIs(name());
    fibstatsmibIs(name());
    iftablesIs(name());
  }
};

class VrfMibsDir : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::VrfMibsDir", VrfMibsDir, Kel::Entity)
 public:
  KEL_NAMED(VrfMibsDir, Kel::Entity)
  KEL_MEMBERS(Hashed, Kel::Name, VrfMibs, mibs, Mibs)
  KEL_TYPE_END_DECLARE
};

}  // namespace IpSnmp

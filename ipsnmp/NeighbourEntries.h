#pragma once
// The rows of the neighbour tables. A row holds the key of a neighbour in the shared table, not its data: arpEntry()
// and physAddress() read the shared table each time. For a neighbour that is gone from there they return an entry
// that does not exist (all zero). Throws: Pesk::CorruptionDetectedException on damage, which the reader passes to
// arpQuillo()->corruptionDetected(). `arpQuillo` is never null.

#include "ipsnmp/IpMibKeys.h"
#include "kel/Attribute.h"
#include "kel/System.h"
#include "quillo/tables/ArpTable.h"

namespace IpSnmp {

// One IPv4 neighbour for ipNetToMediaTable.
class ArpTableEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::ArpTableEntry", ArpTableEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(ArpTableEntry,
                  ((IpSnmp::ArpTableIndex, index))((Vantu::IntfId, intfId))(
                      (Kel::Ptr<const Arp::Table::Status>, arpQuillo))((Vrf::VrfIdMap::VrfId, arpQuilloVrfId)))

  // From the ARP map.
  Arp::Table::ArpEntry arpEntry() const;
  std::uint32_t ifIndex() const { return index().ifIndex(); }
  Vantu::EthAddr physAddress() const { return arpEntry().ethAddr; }
  const Vantu::IpAddr& netAddress() const { return index().ipAddr(); }

  KEL_COMPUTED(arpEntry)
  KEL_COMPUTED(ifIndex)
  KEL_COMPUTED(physAddress)
  KEL_COMPUTED(netAddress)
  KEL_TYPE_END_DECLARE
};

// One IPv4 or IPv6 neighbour for ipNetToPhysicalTable.
class IpNetToPhysicalTableEntry : public Kel::Notifier {
  KEL_TYPE_BEGIN("IpSnmp::IpNetToPhysicalTableEntry", IpNetToPhysicalTableEntry, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(IpNetToPhysicalTableEntry,
                  ((IpSnmp::IpNetToPhysicalTableIndex, index))((Vantu::IntfId, intfId))(
                      (Vantu::IpGenAddr, ipGenAddr))((Kel::Ptr<const Arp::Table::Status>,
                                                      arpQuillo))((Vrf::VrfIdMap::VrfId, arpQuilloVrfId)))

  // From the ARP map for an IPv4 address, from the neighbour map for an IPv6 one; aborts on any other family.
  Arp::Table::ArpEntry arpEntry() const;
  std::uint32_t ifIndex() const { return index().ifIndex(); }
  Ip::IpVersion inetAddressType() const { return index().addr().version(); }
  const InetAddress& inetAddress() const { return index().addr(); }
  Vantu::EthAddr physAddress() const { return arpEntry().ethAddr; }

  KEL_COMPUTED(arpEntry)
  KEL_COMPUTED(ifIndex)
  KEL_COMPUTED(inetAddressType)
  KEL_COMPUTED(inetAddress)
  KEL_COMPUTED(physAddress)

  // Seconds of the framework's clock at which the row was created; adding a known neighbour again returns the row.
  KEL_STORED(double, lastUpdated, LastUpdated, Kel::System::currentTime())
  KEL_TYPE_END_DECLARE
};

}  // namespace IpSnmp

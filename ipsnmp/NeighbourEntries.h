#pragma once
// The rows of the neighbour tables. A row holds the key of a neighbour in the shared table. arpEntry() and
// physAddress() read the shared table at each call; for a deleted neighbour they return an all-zero entry.
// Requires: `arpQuillo` is not null.
// Throws: Pesk::CorruptionDetectedException on damage; callers report it with arpQuillo()->corruptionDetected().

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

  // Looks the neighbour up among the IPv4 entries of the shared table.
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

  // Looks the neighbour up among the IPv4 or the IPv6 entries of the shared table; aborts on an unset address.
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

  // When the row was created, in seconds of the framework's clock. Adding a known neighbour again keeps the row.
  KEL_STORED(double, lastUpdated, LastUpdated, Kel::System::currentTime())
  KEL_TYPE_END_DECLARE
};

}  // namespace IpSnmp

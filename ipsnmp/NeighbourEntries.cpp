#include "ipsnmp/NeighbourEntries.h"

KEL_TYPE_DEFINE(IpSnmp::ArpTableEntry)
KEL_TYPE_DEFINE(IpSnmp::IpNetToPhysicalTableEntry)

namespace IpSnmp {

Arp::Table::ArpEntry ArpTableEntry::arpEntry() const {
  return arpQuillo()->arpEntry({arpQuilloVrfId(), Vantu::IpGenAddr(index().ipAddr()), intfId()});
}

Arp::Table::ArpEntry IpNetToPhysicalTableEntry::arpEntry() const {
  const Arp::Table::ArpKey key{arpQuilloVrfId(), ipGenAddr(), intfId()};
  switch (ipGenAddr().af()) {
    case Vantu::ipv4_:
      return arpQuillo()->arpEntry(key);
    case Vantu::ipv6_:
      return arpQuillo()->neighborEntry(key);
    default:
      KEL_UNREACHABLE();
  }
}

}  // namespace IpSnmp

#pragma once
// One row of the per-interface IP statistics: what an interface has received and sent in one IP version since
// discontinuityTime, all of it and the unicast and multicast parts. Packets and octets, as the publisher of the state
// database counted them; they wrap at 2^64.

#include "ipsnmp/InetAddress.h"
#include "kel/Attribute.h"

namespace IpSnmp {

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

}  // namespace IpSnmp

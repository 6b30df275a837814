#pragma once
// IP counters of interfaces, one directory for each IP version. A record exists while somebody counts at the
// interface.

#include "kel/Attribute.h"
#include "kel/Entity.h"
#include "vantu/IntfId.h"

namespace Ip {

// Packets and octets since some moment. In: received, those with errors included; out: handed to the layer below.
class IntfCounters {
  KEL_VALUE_TYPE("Ip::IntfCounters", IntfCounters,
                 ((std::uint64_t, inPkts))((std::uint64_t, inOctets))((std::uint64_t, outPkts))(
                     (std::uint64_t, outOctets))((std::uint64_t, inUcastPkts))((std::uint64_t, inUcastOctets))(
                     (std::uint64_t, outUcastPkts))((std::uint64_t, outUcastOctets))((std::uint64_t, inMcastPkts))((
                     std::uint64_t, inMcastOctets))((std::uint64_t, outMcastPkts))((std::uint64_t, outMcastOctets)))
};

class IntfStats : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::IntfStats", IntfStats, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IntfStats, ((Vantu::IntfId, intfId)))
  KEL_STORED(IntfCounters, counters, Counters)
  // Since when the counters have been followed without a gap, in seconds of the publisher's clock. Do not compute
  // deltas across this time.
  KEL_STORED(double, discontinuityTime, DiscontinuityTime, 0.0)
  // Kel::System::utcOffset() of the publisher, to read discontinuityTime by. 0 in stores of publishers that knew no
  // such attribute.
  KEL_STORED(double, utcOffset, UtcOffset, 0.0)
  KEL_TYPE_END_DECLARE
};

class AllIntfStats : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::AllIntfStats", AllIntfStats, Kel::Entity)
 public:
  KEL_NAMED(AllIntfStats, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IntfStats, intfStats, IntfStats)
  KEL_TYPE_END_DECLARE
};

}  // namespace Ip

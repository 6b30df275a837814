#pragma once
// Interfaces: their status records, the providers of details that a record lacks, and their IP counters.

#include "kel/Entity.h"
#include "vantu/EthAddr.h"
#include "vantu/IntfId.h"
#include "varnix/IpInterface.h"

namespace Interface {

// The values of ifOperStatus (RFC 2863).
enum OperStatus : int {
  operStatusUp = 1,
  operStatusDown = 2,
  operStatusTesting = 3,
  operStatusUnknown = 4,
  operStatusDormant = 5,
  operStatusNotPresent = 6,
  operStatusLowerLayerDown = 7
};
BOOST_DESCRIBE_ENUM(OperStatus, operStatusUp, operStatusDown, operStatusTesting, operStatusUnknown,
                    operStatusDormant, operStatusNotPresent, operStatusLowerLayerDown)

class IntfStatus : public Kel::Entity {
  KEL_TYPE_BEGIN("Interface::IntfStatus", IntfStatus, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IntfStatus, ((Vantu::IntfId, intfId)))
  KEL_STORED(Kel::String, kind, Kind)             // names the details provider; "linux" for a kernel interface
  KEL_STORED(std::uint32_t, ifIndex, IfIndex, 0)  // as the publisher assigned it; 0: none
  KEL_STORED(OperStatus, operStatus, OperStatus, operStatusUnknown)
  KEL_STORED(Vantu::EthAddr, ethAddr, EthAddr)
  KEL_TYPE_END_DECLARE
};

class AllIntfStatusDir : public Kel::Entity {
  KEL_TYPE_BEGIN("Interface::AllIntfStatusDir", AllIntfStatusDir, Kel::Entity)
 public:
  KEL_NAMED(AllIntfStatusDir, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IntfStatus, intfStatus, IntfStatus)
  KEL_TYPE_END_DECLARE
};

// Provides the details of interfaces of one kind.
class IntfDetailsProvider {
 public:
  virtual ~IntfDetailsProvider() = default;
  // 0 when the interface has none.
  virtual std::uint32_t ifIndex(const IntfStatus& status) const = 0;

  // The registered provider of the record's kind, or null.
  static const IntfDetailsProvider* find(const IntfStatus& status);
  // Registers a provider; null removes it. Lifetime: a provider must outlive its registration.
  static void providerIs(const Kel::String& kind, const IntfDetailsProvider* provider);
};

// Kernel interfaces: the ifIndex of the record.
class LinuxIntfDetails : public IntfDetailsProvider {
 public:
  static constexpr const char* kind = "linux";
  std::uint32_t ifIndex(const IntfStatus& status) const override { return status.ifIndex(); }
};

}  // namespace Interface

namespace Ip {

// Counts of packets and octets. In: received, including those with errors; out: passed to the layer below.
class IntfCounters {
  KEL_VALUE_TYPE("Ip::IntfCounters", IntfCounters,
                 ((std::uint64_t, inPkts))((std::uint64_t, inOctets))((std::uint64_t, outPkts))(
                     (std::uint64_t, outOctets))((std::uint64_t, inUcastPkts))((std::uint64_t, inUcastOctets))(
                     (std::uint64_t, outUcastPkts))((std::uint64_t, outUcastOctets))((std::uint64_t, inMcastPkts))((
                     std::uint64_t, inMcastOctets))((std::uint64_t, outMcastPkts))((std::uint64_t, outMcastOctets)))
};

// The counters of one interface and IP version. A record exists while the publisher has counters of the interface.
class IntfStats : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::IntfStats", IntfStats, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IntfStats, ((Vantu::IntfId, intfId)))
  KEL_STORED(IntfCounters, counters, Counters)
  KEL_STORED(IntfDatagrams, datagrams, Datagrams, IntfDatagrams::none())
  // The counters have no gap since this time, in seconds of the publisher's clock. Do not compute deltas across it.
  KEL_STORED(double, discontinuityTime, DiscontinuityTime, 0.0)
  // Kel::System::utcOffset() of the publisher, which turns discontinuityTime into UTC. 0 in stores of older publishers.
  KEL_STORED(double, utcOffset, UtcOffset, 0.0)
  KEL_TYPE_END_DECLARE
};

// One directory for each IP version.
class AllIntfStats : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::AllIntfStats", AllIntfStats, Kel::Entity)
 public:
  KEL_NAMED(AllIntfStats, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IntfStats, intfStats, IntfStats)
  KEL_TYPE_END_DECLARE
};

}  // namespace Ip

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

// The values of ifAdminStatus (RFC 2863); 0 when the publisher does not know.
enum AdminStatus : int { adminStatusUnknown = 0, adminStatusUp = 1, adminStatusDown = 2 };
BOOST_DESCRIBE_ENUM(AdminStatus, adminStatusUnknown, adminStatusUp, adminStatusDown)

// The values of dot3StatsDuplexStatus (RFC 3635).
enum Duplex : int { duplexUnknown = 1, duplexHalf = 2, duplexFull = 3 };
BOOST_DESCRIBE_ENUM(Duplex, duplexUnknown, duplexHalf, duplexFull)

// The status of one interface. A record exists while the interface does.
class IntfStatus : public Kel::Entity {
  KEL_TYPE_BEGIN("Interface::IntfStatus", IntfStatus, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IntfStatus, ((Vantu::IntfId, intfId)))
  KEL_STORED(Kel::String, kind, Kind)             // names the details provider; "linux" for a kernel interface
  KEL_STORED(std::uint32_t, ifIndex, IfIndex, 0)  // as the publisher assigned it; 0: none
  KEL_STORED(OperStatus, operStatus, OperStatus, operStatusUnknown)
  KEL_STORED(Vantu::EthAddr, ethAddr, EthAddr)
  KEL_STORED(AdminStatus, adminStatus, AdminStatus, adminStatusUnknown)
  KEL_STORED(std::uint32_t, ifType, IfType, 1)       // a number of IANAifType; 1: other
  KEL_STORED(std::uint32_t, mtu, Mtu, 0)             // octets; 0: unknown
  KEL_STORED(Kel::String, physAddress, PhysAddress)  // as bytes, of any length; empty: none
  KEL_STORED(Kel::String, alias, Alias)              // the operator's description
  KEL_STORED(bool, promiscuous, Promiscuous, false)  // accepts all frames
  KEL_STORED(bool, connectorPresent, ConnectorPresent, false)
  KEL_STORED(std::uint32_t, speed, Speed, 0)  // Mbit/s; 0: unknown, or it has none
  KEL_STORED(Duplex, duplex, Duplex, duplexUnknown)
  // The interface runs over `lowerIfIndex` (a VLAN over its parent), and `upperIfIndex` runs over it (a bond over its
  // ports). 0: none.
  KEL_STORED(std::uint32_t, lowerIfIndex, LowerIfIndex, 0)
  KEL_STORED(std::uint32_t, upperIfIndex, UpperIfIndex, 0)
  KEL_TYPE_END_DECLARE
};

class AllIntfStatusDir : public Kel::Entity {
  KEL_TYPE_BEGIN("Interface::AllIntfStatusDir", AllIntfStatusDir, Kel::Entity)
 public:
  KEL_NAMED(AllIntfStatusDir, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IntfStatus, intfStatus, IntfStatus)
  KEL_TYPE_END_DECLARE
};

// The packets and octets of all protocols that passed an interface, as the publisher counts them; 64 bits wide. In:
// received, including multicast, without packets that were discarded or erroneous; out: sent.
class LinkCounters {
  KEL_VALUE_TYPE("Interface::LinkCounters", LinkCounters,
                 ((std::uint64_t, inOctets))((std::uint64_t, inPkts))((std::uint64_t, inMcastPkts))(
                     (std::uint64_t, inDiscards))((std::uint64_t, inErrors))((std::uint64_t, outOctets))(
                     (std::uint64_t, outPkts))((std::uint64_t, outDiscards))((std::uint64_t, outErrors)))
};

// The counters of one interface. A record exists while the publisher has counters of the interface.
class IntfCounters : public Kel::Entity {
  KEL_TYPE_BEGIN("Interface::IntfCounters", IntfCounters, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IntfCounters, ((Vantu::IntfId, intfId)))
  KEL_STORED(LinkCounters, counters, Counters)
  KEL_TYPE_END_DECLARE
};

class AllIntfCounters : public Kel::Entity {
  KEL_TYPE_BEGIN("Interface::AllIntfCounters", AllIntfCounters, Kel::Entity)
 public:
  KEL_NAMED(AllIntfCounters, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IntfCounters, intfCounters, IntfCounters)
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

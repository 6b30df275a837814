#pragma once
// How IPv4 and IPv6 run on an interface, and those of its IP counters that count datagrams by their fate.

#include "kel/Entity.h"
#include "vantu/IntfId.h"

// The counters of IntfDatagrams: X(field, the kernel's name in /proc/net/dev_snmp6). Their meanings are those of
// ipIfStatsTable (RFC 4293).
#define IP_INTF_DATAGRAMS(X)                 \
  X(inHdrErrors, "Ip6InHdrErrors")           \
  X(inNoRoutes, "Ip6InNoRoutes")             \
  X(inAddrErrors, "Ip6InAddrErrors")         \
  X(inUnknownProtos, "Ip6InUnknownProtos")   \
  X(inTruncatedPkts, "Ip6InTruncatedPkts")   \
  X(inDiscards, "Ip6InDiscards")             \
  X(inDelivers, "Ip6InDelivers")             \
  X(outForwDatagrams, "Ip6OutForwDatagrams") \
  X(outRequests, "Ip6OutRequests")           \
  X(outDiscards, "Ip6OutDiscards")           \
  X(reasmReqds, "Ip6ReasmReqds")             \
  X(reasmOKs, "Ip6ReasmOKs")                 \
  X(reasmFails, "Ip6ReasmFails")             \
  X(fragOKs, "Ip6FragOKs")                   \
  X(fragFails, "Ip6FragFails")               \
  X(fragCreates, "Ip6FragCreates")

namespace Ip {

// Datagrams by their fate. Part of Ip::IntfStats (varnix/Interface.h).
class IntfDatagrams {
  // clang-format off
  KEL_VALUE_TYPE("Ip::IntfDatagrams", IntfDatagrams,
    ((std::uint64_t, inHdrErrors))((std::uint64_t, inNoRoutes))((std::uint64_t, inAddrErrors))
    ((std::uint64_t, inUnknownProtos))((std::uint64_t, inTruncatedPkts))((std::uint64_t, inDiscards))
    ((std::uint64_t, inDelivers))((std::uint64_t, outForwDatagrams))((std::uint64_t, outRequests))
    ((std::uint64_t, outDiscards))((std::uint64_t, reasmReqds))((std::uint64_t, reasmOKs))
    ((std::uint64_t, reasmFails))((std::uint64_t, fragOKs))((std::uint64_t, fragFails))((std::uint64_t, fragCreates)))
  // clang-format on

  // The value of a counter that the publisher does not have.
  static constexpr std::uint64_t notCounted = ~std::uint64_t{0};
  // All of them notCounted.
  static IntfDatagrams none() {
    return kelFromFields([](auto&&...) { return notCounted; });
  }
};

// How an IP version runs on an interface. Numbers: 0 is unknown.
class IntfParameters {
  // isEnabled: the interface uses this version (IPv6: disable_ipv6 is off).
  // forwarding: packets that arrive are routed (IPv6 only; false for IPv4).
  // reasmMaxSize: octets of the longest packet that is reassembled.
  // retransmitTime: milliseconds between two requests for a neighbour's address.
  // reachableTime: milliseconds for which a confirmed neighbour counts as reachable; the kernel's base value, which it
  // randomizes.
  KEL_VALUE_TYPE("Ip::IntfParameters", IntfParameters,
                 ((bool, isEnabled))((bool, forwarding))((std::uint32_t, reasmMaxSize))(
                     (std::uint32_t, retransmitTime))((std::uint32_t, reachableTime)))
};

// A record exists while the interface has the IP version.
class IntfProtocol : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::IntfProtocol", IntfProtocol, Kel::Entity)
 public:
  KEL_CONSTRUCTOR(IntfProtocol, ((Vantu::IntfId, intfId)))
  KEL_STORED(IntfParameters, parameters, Parameters)
  KEL_TYPE_END_DECLARE
};

// One directory for each IP version.
class AllIntfProtocol : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::AllIntfProtocol", AllIntfProtocol, Kel::Entity)
 public:
  KEL_NAMED(AllIntfProtocol, Kel::Entity)
  KEL_MEMBERS(Hashed, Vantu::IntfId, IntfProtocol, intfProtocol, IntfProtocol)
  KEL_TYPE_END_DECLARE
};

}  // namespace Ip

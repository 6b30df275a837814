#pragma once
// The kernel's IP counters of one network namespace and IP version, as the software-forwarding statistics hold them.

#include <cstdint>

// The counters, in the order of the text form: X(field).
// clang-format off
#define SW_FWD_STATS_FIELDS(X)                                                                       \
  X(inReceives) X(inOctets) X(inHdrErrors) X(inAddrErrors) X(forwDatagrams) X(inUnknownProtos)       \
  X(inDiscards) X(inDelivers) X(outRequests) X(outDiscards) X(outNoRoutes) X(outOctets)              \
  X(reasmTimeout) X(reasmReqds) X(reasmOKs) X(reasmFails) X(fragOKs) X(fragFails) X(fragCreates)     \
  X(inNoRoutes) X(inTruncatedPkts) X(inMcastPkts) X(inMcastOctets) X(outMcastPkts) X(outMcastOctets) \
  X(inBcastPkts) X(outBcastPkts)
// clang-format on

namespace Ip {

// Counters are as the kernel gives them, packets unless the name says octets. What the kernel does not count for an
// IP version stays 0: octets for IPv4, broadcasts for IPv6.
struct SwFwdStatsData {
  static constexpr const char* kelTypeName = "Ip::SwFwdStatsData";

#define SW_FWD_STATS_DECLARE(field) std::uint64_t field = 0;
  SW_FWD_STATS_FIELDS(SW_FWD_STATS_DECLARE)
#undef SW_FWD_STATS_DECLARE

  friend bool operator==(const SwFwdStatsData&, const SwFwdStatsData&) = default;

  template <class Visitor>
  void kelForEachField(Visitor&& visit) const {
#define SW_FWD_STATS_VISIT(field) visit(#field, field);
    SW_FWD_STATS_FIELDS(SW_FWD_STATS_VISIT)
#undef SW_FWD_STATS_VISIT
  }
};

}  // namespace Ip

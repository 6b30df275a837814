#pragma once
// The counters of the software-forwarding statistics: the snapshot of all, and the lookup of a counter by its name in
// /proc/net/snmp6 (net/ipv6/proc.c of the kernel).
//
//   if (const Ip::Counter* counter = Ip::counter("Ip6InReceives", 13)) counter->write(data, 5);

#include <cstdint>
#include <optional>
#include <string_view>

#include "kel/Name.h"

// The counters, in the order of the text form: X(field).
// clang-format off
#define SW_FWD_STATS_FIELDS(X)                                                                       \
  X(inReceives) X(inOctets) X(inHdrErrors) X(inAddrErrors) X(forwDatagrams) X(inUnknownProtos)       \
  X(inDiscards) X(inDelivers) X(outRequests) X(outDiscards) X(outNoRoutes) X(outOctets)              \
  X(reasmTimeout) X(reasmReqds) X(reasmOKs) X(reasmFails) X(fragOKs) X(fragFails) X(fragCreates)     \
  X(inNoRoutes) X(inTruncatedPkts) X(inMcastPkts) X(inMcastOctets) X(outMcastPkts) X(outMcastOctets) \
  X(inBcastPkts) X(outBcastPkts)
// clang-format on

// X(subclass of Counter, field, name in snmp6)
#define SW_FWD_COUNTERS(X)                                         \
  X(InReceivesCounter, inReceives, "Ip6InReceives")                \
  X(InHdrErrorsCounter, inHdrErrors, "Ip6InHdrErrors")             \
  X(InNoRoutesCounter, inNoRoutes, "Ip6InNoRoutes")                \
  X(InAddrErrorsCounter, inAddrErrors, "Ip6InAddrErrors")          \
  X(InUnknownProtosCounter, inUnknownProtos, "Ip6InUnknownProtos") \
  X(InTruncatedPktsCounter, inTruncatedPkts, "Ip6InTruncatedPkts") \
  X(InDiscardsCounter, inDiscards, "Ip6InDiscards")                \
  X(InDeliversCounter, inDelivers, "Ip6InDelivers")                \
  X(ForwDatagramsCounter, forwDatagrams, "Ip6OutForwDatagrams")    \
  X(OutRequestsCounter, outRequests, "Ip6OutRequests")             \
  X(OutDiscardsCounter, outDiscards, "Ip6OutDiscards")             \
  X(OutNoRoutesCounter, outNoRoutes, "Ip6OutNoRoutes")             \
  X(ReasmTimeoutCounter, reasmTimeout, "Ip6ReasmTimeout")          \
  X(ReasmReqdsCounter, reasmReqds, "Ip6ReasmReqds")                \
  X(ReasmOKsCounter, reasmOKs, "Ip6ReasmOKs")                      \
  X(ReasmFailsCounter, reasmFails, "Ip6ReasmFails")                \
  X(FragOKsCounter, fragOKs, "Ip6FragOKs")                         \
  X(FragFailsCounter, fragFails, "Ip6FragFails")                   \
  X(FragCreatesCounter, fragCreates, "Ip6FragCreates")             \
  X(InMcastPktsCounter, inMcastPkts, "Ip6InMcastPkts")             \
  X(OutMcastPktsCounter, outMcastPkts, "Ip6OutMcastPkts")          \
  X(InOctetsCounter, inOctets, "Ip6InOctets")                      \
  X(OutOctetsCounter, outOctets, "Ip6OutOctets")                   \
  X(InMcastOctetsCounter, inMcastOctets, "Ip6InMcastOctets")       \
  X(OutMcastOctetsCounter, outMcastOctets, "Ip6OutMcastOctets")

namespace Ip {

// A snapshot of the kernel's IP counters of one network namespace and IP version. Counters are as the kernel has them:
// packets, unless the name says octets. What the kernel does not count for an IP version stays 0: octets for IPv4,
// broadcasts for IPv6.
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

// Further counters of the kernel; none: its files lack the counter.
struct SwFwdStatsMore {
  // IPv4, from the block IpExt. Without the block the multicasts, broadcasts, inNoRoutes and inTruncatedPkts of
  // SwFwdStatsData are not counted either.
  bool hasIpExt = false;
  std::optional<std::uint64_t> inOctets, outOctets, inMcastOctets, outMcastOctets;
  std::optional<std::uint64_t> outTransmits;  // since Linux 6.6
};

// Reads and writes one field.
class Counter {
 public:
  virtual unsigned long long read(const SwFwdStatsData& data) const = 0;
  virtual void write(SwFwdStatsData& data, unsigned long long value) const = 0;
  virtual Kel::String name() const = 0;  // of the field
  virtual ~Counter() = default;
};

// Defines a class and an instance for each counter: InReceivesCounter and inReceivesCounter.
#define SW_FWD_COUNTER(Class, field, snmp6Name)                                                       \
  class Class final : public Counter {                                                                \
   public:                                                                                            \
    unsigned long long read(const SwFwdStatsData& data) const override { return data.field; }         \
    void write(SwFwdStatsData& data, unsigned long long value) const override { data.field = value; } \
    Kel::String name() const override { return #field; }                                              \
  };                                                                                                  \
  inline const Class field##Counter{};
SW_FWD_COUNTERS(SW_FWD_COUNTER)
#undef SW_FWD_COUNTER

// Finds counters by their name in snmp6, without an allocation.
class CounterHash {
 public:
  static constexpr std::size_t shortestName = 10;
  static constexpr std::size_t longestName = 19;
  // Null for an unknown name.
  static const Counter* find(std::string_view snmp6Name);
};

// Null for an unknown name. `length` is the name's length.
inline const Counter* counter(const char* name, unsigned length) {
  return CounterHash::find({name, length});
}

}  // namespace Ip

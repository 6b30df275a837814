#pragma once
// The counters that have a name in /proc/net/snmp6 (net/ipv6/proc.c of the kernel), and how to find one by it.
//
//   if (const Ip::Counter* counter = Ip::counter("Ip6InReceives", 13)) counter->write(data, 5);

#include <string_view>

#include "kel/Name.h"
#include "swfwdstats/SwFwdStatsData.h"

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

// Reads and writes one field.
class Counter {
 public:
  virtual unsigned long long read(const SwFwdStatsData& data) const = 0;
  virtual void write(SwFwdStatsData& data, unsigned long long value) const = 0;
  virtual Kel::String name() const = 0;  // of the field
  virtual ~Counter() = default;
};

// One class, and one instance of it, for each: InReceivesCounter and inReceivesCounter.
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

// From the names in snmp6 to the counters. Nothing is allocated.
class CounterHash {
 public:
  static constexpr std::size_t shortestName = 10;
  static constexpr std::size_t longestName = 19;
  // Null for any other name.
  static const Counter* find(std::string_view snmp6Name);
};

// Null when no counter has the name, which is `length` characters long.
inline const Counter* counter(const char* name, unsigned length) {
  return CounterHash::find({name, length});
}

}  // namespace Ip

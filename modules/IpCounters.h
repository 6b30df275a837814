#pragma once
// The columns that ipSystemStatsTable and ipIfStatsTable (RFC 4293) have in common: the same counters under the same
// numbers.

#include <cstdint>
#include <optional>

// X(column of 32 bits, column of 64 bits or 0, name without the table's prefix, field)
#define IP_COUNTERS(X)                          \
  X(3, 4, InReceives, inReceives)               \
  X(5, 6, InOctets, inOctets)                   \
  X(7, 0, InHdrErrors, inHdrErrors)             \
  X(8, 0, InNoRoutes, inNoRoutes)               \
  X(9, 0, InAddrErrors, inAddrErrors)           \
  X(10, 0, InUnknownProtos, inUnknownProtos)    \
  X(11, 0, InTruncatedPkts, inTruncatedPkts)    \
  X(12, 13, InForwDatagrams, inForwDatagrams)   \
  X(14, 0, ReasmReqds, reasmReqds)              \
  X(15, 0, ReasmOKs, reasmOKs)                  \
  X(16, 0, ReasmFails, reasmFails)              \
  X(17, 0, InDiscards, inDiscards)              \
  X(18, 19, InDelivers, inDelivers)             \
  X(20, 21, OutRequests, outRequests)           \
  X(22, 0, OutNoRoutes, outNoRoutes)            \
  X(23, 24, OutForwDatagrams, outForwDatagrams) \
  X(25, 0, OutDiscards, outDiscards)            \
  X(26, 0, OutFragReqds, outFragReqds)          \
  X(27, 0, OutFragOKs, outFragOKs)              \
  X(28, 0, OutFragFails, outFragFails)          \
  X(29, 0, OutFragCreates, outFragCreates)      \
  X(30, 31, OutTransmits, outTransmits)         \
  X(32, 33, OutOctets, outOctets)               \
  X(34, 35, InMcastPkts, inMcastPkts)           \
  X(36, 37, InMcastOctets, inMcastOctets)       \
  X(38, 39, OutMcastPkts, outMcastPkts)         \
  X(40, 41, OutMcastOctets, outMcastOctets)     \
  X(42, 43, InBcastPkts, inBcastPkts)           \
  X(44, 45, OutBcastPkts, outBcastPkts)

namespace Modules {

// The counters of a row. The row has no instance of the columns of a counter without a value.
struct IpCounters {
#define IP_COUNTER_FIELD(narrow, wide, Name, field) std::optional<std::uint64_t> field;
  IP_COUNTERS(IP_COUNTER_FIELD)
#undef IP_COUNTER_FIELD
};

}  // namespace Modules

// Appends the columns of one counter to `columns`, a std::vector<Modules::Column<Row>>. Requires: countersOf(row)
// returns the IpCounters of a row. OutNoRoutes (22) is a column of ipSystemStatsTable alone.
#define IP_COUNTER_COLUMNS(Row, prefix, narrow, wide, Name, field)                                           \
  columns.push_back(Modules::column<Row>(narrow, prefix #Name, ASN_COUNTER, Modules::u64ToCounter32, #field, \
                                         [](const Row& row) { return countersOf(row).field; }));             \
  if constexpr ((wide) != 0) {                                                                               \
    columns.push_back(Modules::column<Row>(wide, prefix "HC" #Name, ASN_COUNTER64, Modules::u64ToCounter64,  \
                                           #field, [](const Row& row) { return countersOf(row).field; }));   \
  }

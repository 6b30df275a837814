// ipIfStatsTable of IP-MIB: the IP counters of the interfaces of a VRF.

#include "modules/IpCounters.h"
#include "modules/ipMIB.h"

namespace {

using IpSnmp::IpVersionIfIndex;

// The publisher updates changed counters at least this often.
constexpr unsigned ifStatsRefreshMilliseconds = 2000;

struct IfTrafficRows {
  using Cache = IpSnmp::IpMib;
  using Row = IpSnmp::IpIfTrafficEntry;
  using Key = IpVersionIfIndex;
  static const auto& collection(const Cache& cache) { return cache.ipIfTrafficTable(); }
  static const Key& key(const Row& row) { return row.index(); }
};
using IfTrafficRow = IfTrafficRows::Row;

Modules::IpCounters countersOf(const IfTrafficRow& row) {
  if (!row.stats()) return {};
  const auto& counters = row.stats()->counters();
  const auto& datagrams = row.stats()->datagrams();
  using Count = std::optional<std::uint64_t>;
  const auto counted = [](std::uint64_t count) {
    return count == Ip::IntfDatagrams::notCounted ? Count() : Count(count);
  };
  const auto sum = [&](std::uint64_t a, std::uint64_t b) {
    return counted(a) && counted(b) ? Count(a + b) : Count();
  };
  return {.inReceives = counters.inPkts(),
          .inOctets = counters.inOctets(),
          .inHdrErrors = counted(datagrams.inHdrErrors()),
          .inNoRoutes = counted(datagrams.inNoRoutes()),
          .inAddrErrors = counted(datagrams.inAddrErrors()),
          .inUnknownProtos = counted(datagrams.inUnknownProtos()),
          .inTruncatedPkts = counted(datagrams.inTruncatedPkts()),
          .inForwDatagrams = {},  // the kernel counts forwarded packets at the interface that they leave by
          .reasmReqds = counted(datagrams.reasmReqds()),
          .reasmOKs = counted(datagrams.reasmOKs()),
          .reasmFails = counted(datagrams.reasmFails()),
          .inDiscards = counted(datagrams.inDiscards()),
          .inDelivers = counted(datagrams.inDelivers()),
          .outRequests = counted(datagrams.outRequests()),
          .outNoRoutes = {},
          .outForwDatagrams = counted(datagrams.outForwDatagrams()),
          .outDiscards = counted(datagrams.outDiscards()),
          .outFragReqds = sum(datagrams.fragOKs(), datagrams.fragFails()),
          .outFragOKs = counted(datagrams.fragOKs()),
          .outFragFails = counted(datagrams.fragFails()),
          .outFragCreates = counted(datagrams.fragCreates()),
          .outTransmits = counters.outPkts(),
          .outOctets = counters.outOctets(),
          .inMcastPkts = counters.inMcastPkts(),
          .inMcastOctets = counters.inMcastOctets(),
          .outMcastPkts = counters.outMcastPkts(),
          .outMcastOctets = counters.outMcastOctets(),
          .inBcastPkts = {},
          .outBcastPkts = {}};
}

std::vector<Modules::Column<IfTrafficRow>> ifStatsColumns() {
  std::vector<Modules::Column<IfTrafficRow>> columns;
#define IF_STATS_COLUMNS(...) IP_COUNTER_COLUMNS(IfTrafficRow, "ipIfStats", __VA_ARGS__)
  IP_COUNTERS(IF_STATS_COLUMNS)
#undef IF_STATS_COLUMNS
  // Of columns that never have an instance, a walk would pass each interface: InForwDatagrams and those of broadcasts.
  // OutNoRoutes is not in this table.
  std::erase_if(columns, [](const auto& column) {
    return column.number == 12 || column.number == 13 || column.number == 22 || column.number >= 42;
  });
  columns.push_back(Modules::column<IfTrafficRow>(
      46, "ipIfStatsDiscontinuityTime", ASN_TIMETICKS, Modules::utcSecondsToUptimeTimeTicks, "discontinuityTime",
      [](const IfTrafficRow& row) {
        const auto stats = row.stats();
        return stats ? std::optional(Kel::System::localTime(stats->discontinuityTime(), stats->utcOffset()))
                     : std::nullopt;
      }));
  columns.push_back(Modules::column<IfTrafficRow>(47, "ipIfStatsRefreshRate", ASN_UNSIGNED,
                                                  Modules::u32ToAsnUnsigned, "",
                                                  [](const auto&) { return ifStatsRefreshMilliseconds; }));
  return columns;
}

const auto ipIfStatsTable = Modules::makeIteratorTable<Modules::OrderedWalker<IfTrafficRows>>(
    {.module = IpMibObjects::module,
     .name = "ipIfStatsTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 31, 3},
     .modes = HANDLER_CAN_RONLY,
     .source = IpMibObjects::source(),
     .group = IpMibObjects::group},
    Modules::Index(
        IpVersionIfIndex::kelTypeName,
        +[](const Ip::IpVersion& version, const unsigned& ifIndex) { return IpVersionIfIndex(version, ifIndex); },
        Modules::ipVersionIndex<IpVersionIfIndex>("ipIfStatsIPVersion", "ipVersion",
                                                  [](const auto& key) { return Ip::IpVersion{key.ipVersion()}; }),
        Modules::unsignedIntegerIndex<IpVersionIfIndex>("ipIfStatsIfIndex", "ifIndex",
                                                        [](const auto& key) { return unsigned{key.ifIndex()}; })),
    ifStatsColumns());

}  // namespace

ITERATOR_TABLE(ipIfStatsTable, ipIfStatsTable)

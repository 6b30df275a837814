// ipSystemStatsTable of IP-MIB (RFC 4293): the IP counters of a VRF, from the same reading of the kernel's files as
// quorinSwFwdIpStatsTable.

#include "ipsnmp/IpMib.h"
#include "modules/IpCounters.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"
#include "snmp/SnmpUtil.h"

namespace {

Kel::TraceHandle ipSystemStatsTrace("Snmp");
Modules::Module ipSystemStats("ipSystemStats", ipSystemStatsTrace, Modules::Module::Facts::own);

using SystemStats = Ip::SwFwdStats;

// The rows in order of the IP version; the cache has them hashed.
class SystemStatsWalker {
 public:
  using Cache = IpSnmp::IpMib;
  using Row = SystemStats;
  using Key = Ip::IpVersion;

  explicit SystemStatsWalker(Kel::Ptr<const Cache> cache, Key key = Ip::ipVersion4) : cache_(std::move(cache)) {
    if (cache_) moveTo(std::max(int{key}, int{Ip::ipVersion4}));
  }

  bool isAtEnd() const { return !row_; }
  const Row& row() const { return *row_; }
  Key key() const { return row_->ipVersion(); }
  void advance() { moveTo(key() + 1); }

 private:
  void moveTo(int version) {
    row_ = nullptr;
    for (; version <= Ip::ipVersion6 && !row_; ++version) row_ = cache_->ipSwFwdStats(static_cast<Key>(version));
  }

  Kel::Ptr<const Cache> cache_;
  Kel::Ptr<const Row> row_;  // null: at the end
};

Modules::IpCounters countersOf(const SystemStats& row) {
  if (!row.isCounted()) return {};
  const auto& data = row.data();
  const auto& more = row.more();
  const bool isIpv4 = row.ipVersion() == Ip::ipVersion4;
  using Count = std::optional<std::uint64_t>;
  const auto ofIpExt = [&](std::uint64_t count) { return isIpv4 && !more.hasIpExt ? Count() : Count(count); };
  const auto octets = [&](const Count& ipv4, std::uint64_t ipv6) { return isIpv4 ? ipv4 : Count(ipv6); };
  return {.inReceives = data.inReceives,
          .inOctets = octets(more.inOctets, data.inOctets),
          .inHdrErrors = data.inHdrErrors,
          .inNoRoutes = ofIpExt(data.inNoRoutes),
          .inAddrErrors = data.inAddrErrors,
          .inUnknownProtos = data.inUnknownProtos,
          .inTruncatedPkts = ofIpExt(data.inTruncatedPkts),
          .inForwDatagrams = ofIpExt(data.forwDatagrams + data.inNoRoutes),
          .reasmReqds = data.reasmReqds,
          .reasmOKs = data.reasmOKs,
          .reasmFails = data.reasmFails,
          .inDiscards = data.inDiscards,
          .inDelivers = data.inDelivers,
          .outRequests = data.outRequests,
          .outNoRoutes = data.outNoRoutes,
          .outForwDatagrams = data.forwDatagrams,
          .outDiscards = data.outDiscards,
          .outFragReqds = data.fragOKs + data.fragFails,
          .outFragOKs = data.fragOKs,
          .outFragFails = data.fragFails,
          .outFragCreates = data.fragCreates,
          .outTransmits = row.transmitted(),
          .outOctets = octets(more.outOctets, data.outOctets),
          .inMcastPkts = ofIpExt(data.inMcastPkts),
          .inMcastOctets = octets(more.inMcastOctets, data.inMcastOctets),
          .outMcastPkts = ofIpExt(data.outMcastPkts),
          .outMcastOctets = octets(more.outMcastOctets, data.outMcastOctets),
          // IPv6 has no broadcasts.
          .inBcastPkts = isIpv4 ? ofIpExt(data.inBcastPkts) : Count(),
          .outBcastPkts = isIpv4 ? ofIpExt(data.outBcastPkts) : Count()};
}

// The times of the last two columns; none while nothing is counted.
template <class Value>
std::optional<Value> ifCounted(const SystemStats& row, Value value) {
  return row.isCounted() ? std::optional(value) : std::nullopt;
}

std::vector<Modules::Column<SystemStats>> systemStatsColumns() {
  std::vector<Modules::Column<SystemStats>> columns;
#define SYSTEM_STATS_COLUMNS(...) IP_COUNTER_COLUMNS(SystemStats, "ipSystemStats", __VA_ARGS__)
  IP_COUNTERS(SYSTEM_STATS_COLUMNS)
#undef SYSTEM_STATS_COLUMNS
  columns.push_back(Modules::column<SystemStats>(
      46, "ipSystemStatsDiscontinuityTime", ASN_TIMETICKS, Modules::nowSecondsToUptimeTimeTicks,
      "discontinuityTime", [](const SystemStats& row) { return ifCounted(row, row.discontinuityTime()); }));
  columns.push_back(Modules::column<SystemStats>(
      47, "ipSystemStatsRefreshRate", ASN_UNSIGNED, Modules::u32ToAsnUnsigned, "", [](const SystemStats& row) {
        return ifCounted(row, static_cast<unsigned>(SystemStats::freshness * 1000));  // ms
      }));
  return columns;
}

const auto ipSystemStatsTable = Modules::makeIteratorTable<SystemStatsWalker>(
    {.module = ipSystemStats,
     .name = "ipSystemStatsTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 31, 1},
     .modes = HANDLER_CAN_RONLY,
     .source = Modules::entitySource<IpSnmp::IpMib>("snmp/ip/ipmib", "snmp/ip/vrf.mibs/%s.ipmib"),
     .group = "ip-mib-tables"},
    Modules::Index(
        "Ip::IpVersion", +[](const Ip::IpVersion& version) { return version; },
        Modules::ipVersionIndex<Ip::IpVersion>("ipSystemStatsIPVersion", "ipVersion",
                                               [](const Ip::IpVersion& version) { return version; })),
    systemStatsColumns());

}  // namespace

ITERATOR_TABLE(ipSystemStatsTable, ipSystemStatsTable)

void init_ipSystemStats(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  ipSystemStats.entering(context, __func__);
  initialize_table_ipSystemStatsTable(config, context);
  ipSystemStats.entered(context);
}

MIB_MODULE(ipSystemStats, ipSystemStats)

#include "ipsnmp/IpMib.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"
#include "snmp/SnmpUtil.h"

namespace {

Kel::TraceHandle ipSwForwardingTrace("Snmp");
Modules::Module ipSwForwarding("IpSwForwarding", ipSwForwardingTrace, Modules::Module::Facts::own);

constexpr unsigned refreshMilliseconds = static_cast<unsigned>(Ip::SwFwdStats::freshness * 1000);

struct SwFwdRows {
  using Cache = IpSnmp::IpMib;
  using Row = Ip::SwFwdStats;
  using Key = Ip::IpVersion;
  static const auto& collection(const Cache& cache) { return cache.ipSwFwdStats(); }
  static Key key(const Row& row) { return row.ipVersion(); }
};
using SwFwdRow = SwFwdRows::Row;

// A column of a counter. `statistic` is the row's accessor, and its name in traces.
#define COUNTER_32(number, object, statistic)                                                 \
  Modules::column<SwFwdRow>(number, object, ASN_COUNTER, Modules::u64ToCounter32, #statistic, \
                            [](const SwFwdRow& row) { return row.statistic(); })
#define COUNTER_64(number, object, statistic)                                                   \
  Modules::column<SwFwdRow>(number, object, ASN_COUNTER64, Modules::u64ToCounter64, #statistic, \
                            [](const SwFwdRow& row) { return row.statistic(); })

const auto quorinSwFwdIpStatsTable = Modules::makeIteratorTable<Modules::HashedWalker<SwFwdRows>>(
    {.module = ipSwForwarding,
     .name = "quorinSwFwdIpStatsTable",
     .identifier = Modules::enterpriseObject({3, 1, 1, 1}),
     .modes = HANDLER_CAN_RONLY,
     .source = Modules::entitySource<IpSnmp::IpMib>("snmp/ip/ipmib", "snmp/ip/vrf.mibs/%s.ipmib"),
     .firstRequestTakesGenErr = true},
    Modules::Index(
        "Ip::IpVersion", +[](const Ip::IpVersion& version) { return version; },
        Modules::ipVersionIndex<Ip::IpVersion>("quorinSwFwdIpStatsIPVersion", "ipVersion",
                                               [](const Ip::IpVersion& version) { return version; })),
    {COUNTER_32(3, "quorinSwFwdIpStatsInReceives", inReceives),
     COUNTER_64(4, "quorinSwFwdIpStatsHCInReceives", inReceives),
     COUNTER_32(5, "quorinSwFwdIpStatsInOctets", inOctets),
     COUNTER_64(6, "quorinSwFwdIpStatsHCInOctets", inOctets),
     COUNTER_32(7, "quorinSwFwdIpStatsInHdrErrors", inHdrErrors),
     COUNTER_32(8, "quorinSwFwdIpStatsInNoRoutes", inNoRoutes),
     COUNTER_32(9, "quorinSwFwdIpStatsInAddrErrors", inAddrErrors),
     COUNTER_32(10, "quorinSwFwdIpStatsInUnknownProtos", inUnknownProtos),
     COUNTER_32(11, "quorinSwFwdIpStatsInTruncatedPkts", inTruncatedPkts),
     COUNTER_32(12, "quorinSwFwdIpStatsInForwDatagrams", inForwDatagrams),
     COUNTER_64(13, "quorinSwFwdIpStatsHCInForwDatagrams", inForwDatagrams),
     COUNTER_32(14, "quorinSwFwdIpStatsReasmReqds", reasmReqds),
     COUNTER_32(15, "quorinSwFwdIpStatsReasmOKs", reasmOKs),
     COUNTER_32(16, "quorinSwFwdIpStatsReasmFails", reasmFails),
     COUNTER_32(17, "quorinSwFwdIpStatsInDiscards", inDiscards),
     COUNTER_32(18, "quorinSwFwdIpStatsInDelivers", inDelivers),
     COUNTER_64(19, "quorinSwFwdIpStatsHCInDelivers", inDelivers),
     COUNTER_32(20, "quorinSwFwdIpStatsOutRequests", outRequests),
     COUNTER_64(21, "quorinSwFwdIpStatsHCOutRequests", outRequests),
     COUNTER_32(22, "quorinSwFwdIpStatsOutNoRoutes", outNoRoutes),
     COUNTER_32(23, "quorinSwFwdIpStatsOutForwDatagrams", forwDatagrams),
     COUNTER_64(24, "quorinSwFwdIpStatsHCOutForwDatagrams", forwDatagrams),
     COUNTER_32(25, "quorinSwFwdIpStatsOutDiscards", outDiscards),
     COUNTER_32(26, "quorinSwFwdIpStatsOutFragReqds", fragReqds),
     COUNTER_32(27, "quorinSwFwdIpStatsOutFragOKs", fragOKs),
     COUNTER_32(28, "quorinSwFwdIpStatsOutFragFails", fragFails),
     COUNTER_32(29, "quorinSwFwdIpStatsOutFragCreates", fragCreates),
     COUNTER_32(30, "quorinSwFwdIpStatsOutTransmits", outTransmits),
     COUNTER_64(31, "quorinSwFwdIpStatsHCOutTransmits", outTransmits),
     COUNTER_32(32, "quorinSwFwdIpStatsOutOctets", outOctets),
     COUNTER_64(33, "quorinSwFwdIpStatsHCOutOctets", outOctets),
     COUNTER_32(34, "quorinSwFwdIpStatsInMcastPkts", inMcastPkts),
     COUNTER_64(35, "quorinSwFwdIpStatsHCInMcastPkts", inMcastPkts),
     COUNTER_32(36, "quorinSwFwdIpStatsInMcastOctets", inMcastOctets),
     COUNTER_64(37, "quorinSwFwdIpStatsHCInMcastOctets", inMcastOctets),
     COUNTER_32(38, "quorinSwFwdIpStatsOutMcastPkts", outMcastPkts),
     COUNTER_64(39, "quorinSwFwdIpStatsHCOutMcastPkts", outMcastPkts),
     COUNTER_32(40, "quorinSwFwdIpStatsOutMcastOctets", outMcastOctets),
     COUNTER_64(41, "quorinSwFwdIpStatsHCOutMcastOctets", outMcastOctets),
     COUNTER_32(42, "quorinSwFwdIpStatsInBcastPkts", inBcastPkts),
     COUNTER_64(43, "quorinSwFwdIpStatsHCInBcastPkts", inBcastPkts),
     COUNTER_32(44, "quorinSwFwdIpStatsOutBcastPkts", outBcastPkts),
     COUNTER_64(45, "quorinSwFwdIpStatsHCOutBcastPkts", outBcastPkts),
     Modules::column<SwFwdRow>(46, "quorinSwFwdIpStatsDiscontinuityTime", ASN_TIMETICKS,
                               Modules::secondsToTimeTicks, "", [](const SwFwdRow&) { return 0.0; }),
     Modules::column<SwFwdRow>(47, "quorinSwFwdIpStatsRefreshRate", ASN_UNSIGNED, Modules::u32ToAsnUnsigned, "",
                               [](const SwFwdRow&) { return refreshMilliseconds; })});

#undef COUNTER_32
#undef COUNTER_64

}  // namespace

ITERATOR_TABLE(quorinSwFwdIpStatsTable, quorinSwFwdIpStatsTable)

void init_IpSwForwarding(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  ipSwForwarding.entering(context, __func__);
  initialize_table_quorinSwFwdIpStatsTable(config, context);
  ipSwForwarding.entered(context);
}

MIB_MODULE(IpSwForwarding, ipSwForwarding)

#include "modules/IpSwForwarding.h"

#include "ipsnmp/IpMib.h"
#include "modules/Enterprise.h"
#include "modules/InetIndex.h"
#include "snmp/SnmpUtil.h"

namespace {

Kel::TraceHandle ipSwForwardingTrace("Snmp");
Modules::Module ipSwForwarding("IpSwForwarding", ipSwForwardingTrace);

constexpr unsigned refreshMilliseconds = static_cast<unsigned>(Ip::SwFwdStats::freshness * 1000);

struct SwFwdRows {
  using Cache = IpSnmp::IpMib;
  using Row = Ip::SwFwdStats;
  using Key = Ip::IpVersion;
  static const auto& collection(const Cache& cache) { return cache.ipSwFwdStats(); }
  static Key key(const Row& row) { return row.ipVersion(); }
};
using SwFwdRow = SwFwdRows::Row;

// Both give a statistic: the name of its object after the table's prefix, and the accessor, whose name traces give.
#define COUNTER_32(number, object, statistic)                                                                      \
  Modules::column<SwFwdRow>(number, "quorinSwFwdIpStats" object, ASN_COUNTER, Modules::u64ToCounter32, #statistic, \
                            [](const SwFwdRow& row) { return row.statistic(); })
#define COUNTER_64(number, object, statistic)                                                            \
  Modules::column<SwFwdRow>(number, "quorinSwFwdIpStats" object, ASN_COUNTER64, Modules::u64ToCounter64, \
                            #statistic, [](const SwFwdRow& row) { return row.statistic(); })

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
    {COUNTER_32(3, "InReceives", inReceives),
     COUNTER_64(4, "HCInReceives", inReceives),
     COUNTER_32(5, "InOctets", inOctets),
     COUNTER_64(6, "HCInOctets", inOctets),
     COUNTER_32(7, "InHdrErrors", inHdrErrors),
     COUNTER_32(8, "InNoRoutes", inNoRoutes),
     COUNTER_32(9, "InAddrErrors", inAddrErrors),
     COUNTER_32(10, "InUnknownProtos", inUnknownProtos),
     COUNTER_32(11, "InTruncatedPkts", inTruncatedPkts),
     COUNTER_32(12, "InForwDatagrams", inForwDatagrams),
     COUNTER_64(13, "HCInForwDatagrams", inForwDatagrams),
     COUNTER_32(14, "ReasmReqds", reasmReqds),
     COUNTER_32(15, "ReasmOKs", reasmOKs),
     COUNTER_32(16, "ReasmFails", reasmFails),
     COUNTER_32(17, "InDiscards", inDiscards),
     COUNTER_32(18, "InDelivers", inDelivers),
     COUNTER_64(19, "HCInDelivers", inDelivers),
     COUNTER_32(20, "OutRequests", outRequests),
     COUNTER_64(21, "HCOutRequests", outRequests),
     COUNTER_32(22, "OutNoRoutes", outNoRoutes),
     COUNTER_32(23, "OutForwDatagrams", forwDatagrams),
     COUNTER_64(24, "HCOutForwDatagrams", forwDatagrams),
     COUNTER_32(25, "OutDiscards", outDiscards),
     COUNTER_32(26, "OutFragReqds", fragReqds),
     COUNTER_32(27, "OutFragOKs", fragOKs),
     COUNTER_32(28, "OutFragFails", fragFails),
     COUNTER_32(29, "OutFragCreates", fragCreates),
     COUNTER_32(30, "OutTransmits", outTransmits),
     COUNTER_64(31, "HCOutTransmits", outTransmits),
     COUNTER_32(32, "OutOctets", outOctets),
     COUNTER_64(33, "HCOutOctets", outOctets),
     COUNTER_32(34, "InMcastPkts", inMcastPkts),
     COUNTER_64(35, "HCInMcastPkts", inMcastPkts),
     COUNTER_32(36, "InMcastOctets", inMcastOctets),
     COUNTER_64(37, "HCInMcastOctets", inMcastOctets),
     COUNTER_32(38, "OutMcastPkts", outMcastPkts),
     COUNTER_64(39, "HCOutMcastPkts", outMcastPkts),
     COUNTER_32(40, "OutMcastOctets", outMcastOctets),
     COUNTER_64(41, "HCOutMcastOctets", outMcastOctets),
     COUNTER_32(42, "InBcastPkts", inBcastPkts),
     COUNTER_64(43, "HCInBcastPkts", inBcastPkts),
     COUNTER_32(44, "OutBcastPkts", outBcastPkts),
     COUNTER_64(45, "HCOutBcastPkts", outBcastPkts),
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

void unregister_IpSwForwarding(Kel::String context) {
  ipSwForwarding.leave(context);
}

MIB_MODULE(IpSwForwarding)

#include "ipsnmp/IpMib.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"
#include "snmp/SnmpUtil.h"

namespace {

using IpSnmp::IpVersionIfIndex;

Kel::TraceHandle quorinIpMIBTrace("Snmp");
Modules::Module quorinIpMIB("quorinIpMIB", quorinIpMIBTrace);

// The publisher updates changed counters at least this often.
constexpr unsigned publishedEveryMilliseconds = 2000;

struct IpIfStatsRows {
  using Cache = IpSnmp::IpMib;
  using Row = IpSnmp::IpIfStatsEntry;
  using Key = IpVersionIfIndex;
  static const auto& collection(const Cache& cache) { return cache.ipIfStatsTable(); }
  static const Key& key(const Row& row) { return row.index(); }
};
using IpIfStatsRow = IpIfStatsRows::Row;

#define COUNTER(number, object, statistic)                                                          \
  Modules::column<IpIfStatsRow>(number, object, ASN_COUNTER64, Modules::u64ToCounter64, #statistic, \
                                [](const IpIfStatsRow& row) { return row.statistic(); })

const auto quorinIpIfStatsTable = Modules::makeIteratorTable<Modules::OrderedWalker<IpIfStatsRows>>(
    {.module = quorinIpMIB,
     .name = "quorinIpIfStatsTable",
     .identifier = Modules::enterpriseObject({3, 27, 1, 1}),
     .modes = HANDLER_CAN_RONLY,
     .source = Modules::entitySource<IpSnmp::IpMib>("snmp/ip/ipmib", nullptr),
     .miscountedHintIsTraced = true,
     .absentKeyIsTraced = true,
     .firstRequestTakesGenErr = true},
    Modules::Index(
        "IpSnmp::IpVersionIfIndex",
        +[](const Ip::IpVersion& version, const unsigned& ifIndex) { return IpVersionIfIndex(version, ifIndex); },
        Modules::ipVersionIndex<IpVersionIfIndex>("quorinIpIfStatsIPVersion", "ipVersion",
                                                  [](const IpVersionIfIndex& key) { return key.ipVersion(); }),
        Modules::unsignedIntegerIndex<IpVersionIfIndex>("quorinIpIfStatsIfIndex", "ifIndex",
                                                        [](const IpVersionIfIndex& key) { return key.ifIndex(); })),
    {COUNTER(3, "quorinIpIfStatsInPkts", ipIfStatsInPkts), COUNTER(4, "quorinIpIfStatsInOctets", ipIfStatsInOctets),
     COUNTER(5, "quorinIpIfStatsOutPkts", ipIfStatsOutPkts),
     COUNTER(6, "quorinIpIfStatsOutOctets", ipIfStatsOutOctets),
     COUNTER(7, "quorinIpIfStatsInUcastPkts", ipIfStatsInUcastPkts),
     COUNTER(8, "quorinIpIfStatsInUcastOctets", ipIfStatsInUcastOctets),
     COUNTER(9, "quorinIpIfStatsOutUcastPkts", ipIfStatsOutUcastPkts),
     COUNTER(10, "quorinIpIfStatsOutUcastOctets", ipIfStatsOutUcastOctets),
     COUNTER(11, "quorinIpIfStatsInMcastPkts", ipIfStatsInMcastPkts),
     COUNTER(12, "quorinIpIfStatsInMcastOctets", ipIfStatsInMcastOctets),
     COUNTER(13, "quorinIpIfStatsOutMcastPkts", ipIfStatsOutMcastPkts),
     COUNTER(14, "quorinIpIfStatsOutMcastOctets", ipIfStatsOutMcastOctets),
     Modules::column<IpIfStatsRow>(15, "quorinIpIfStatsDiscontinuityTime", ASN_TIMETICKS,
                                   Modules::utcSecondsToUptimeTimeTicks, "discontinuityTime",
                                   [](const IpIfStatsRow& row) { return row.discontinuityTime(); }),
     Modules::column<IpIfStatsRow>(16, "quorinIpIfStatsRefreshRate", ASN_UNSIGNED, Modules::u32ToAsnUnsigned, "",
                                   [](const IpIfStatsRow&) { return publishedEveryMilliseconds; })});

#undef COUNTER

}  // namespace

ITERATOR_TABLE(quorinIpIfStatsTable, quorinIpIfStatsTable)

void init_quorinIpMIB(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  quorinIpMIB.entering(context, __func__);
  initialize_table_quorinIpIfStatsTable(config, context);
  quorinIpMIB.entered(context);
}

MIB_MODULE(quorinIpMIB, quorinIpMIB)

#include "fibstats/FibStatsMib.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"
#include "snmp/SnmpUtil.h"

namespace {

using FibStatsSnmp::FibStatsMib;
using FibStatsSnmp::PrefixLenKey;
using FibStatsSnmp::RouteTypeKey;

Kel::TraceHandle fibStatsTrace("Snmp");
Modules::Module fibStats("quorinFIBStatsMIB", fibStatsTrace);

// The common part of the three tables.
Modules::TableDescription fibStatsTable(const char* name, unsigned number) {
  return {.module = fibStats,
          .name = name,
          .identifier = Modules::enterpriseObject({3, 23, 1, number}),
          .modes = HANDLER_CAN_RONLY,
          .source = Modules::entitySource<FibStatsMib>("snmp/ip/fibstatsmib", "snmp/ip/vrf.mibs/%s.fibstatsmib"),
          .miscountedHintIsTraced = true,
          .absentKeyIsTraced = true,
          .group = "route-tables",
          .firstRequestTakesGenErr = true};
}

template <class Row>
std::vector<Modules::Column<Row>> fibTotalRoutes(const char* object) {
  return {Modules::column<Row>(2, object, ASN_UNSIGNED, Modules::u32ToAsnUnsigned, "totalRoutes",
                               [](const Row& row) { return row.totalRoutes(); })};
}

template <class Key>
auto addressFamilyIndex(Ip::IpVersion (*fromKey)(const Key&)) {
  return Modules::ipVersionIndex<Key>("quorinFIBStatsAF", "addressFamily", fromKey);
}

// A hint may contain a number that is not a route type.
const Modules::IndexComponent<RouteTypeKey, FibStatsSnmp::RouteType> routeTypeIndex{
    {ASN_INTEGER, ASN_INTEGER,
     [](void* value) { return static_cast<FibStatsSnmp::RouteType>(AsnIntegerToS32(value)); },
     [](const FibStatsSnmp::RouteType& type, unsigned char* buffer, int length) {
       return S32ToAsnIntegerF(type, buffer, length);
     }},
    "quorinFIBStatsRouteType",
    "routeType",
    [](const RouteTypeKey& key) { return FibStatsSnmp::RouteType{key.routeType()}; }};

struct SummaryRows {
  using Cache = FibStatsMib;
  using Row = FibStatsSnmp::SummaryEntry;
  using Key = Ip::IpVersion;
  static const auto& collection(const Cache& cache) { return cache.summaryTable(); }
  static Key key(const Row& row) { return row.ipVersion(); }
};

const auto summaryTable = Modules::makeIteratorTable<Modules::OrderedWalker<SummaryRows>>(
    fibStatsTable("quorinFIBStatsSummaryTable", 1),
    Modules::Index(
        "Ip::IpVersion", +[](const Ip::IpVersion& version) { return version; },
        addressFamilyIndex<Ip::IpVersion>([](const Ip::IpVersion& version) { return version; })),
    fibTotalRoutes<SummaryRows::Row>("quorinFIBStatsTotalRoutes"));

struct RouteTypeRows {
  using Cache = FibStatsMib;
  using Row = FibStatsSnmp::RouteTypeEntry;
  using Key = RouteTypeKey;
  static const auto& collection(const Cache& cache) { return cache.routeTypeTable(); }
  static const Key& key(const Row& row) { return row.key(); }
};

const auto routeTypeTable = Modules::makeIteratorTable<Modules::OrderedWalker<RouteTypeRows>>(
    fibStatsTable("quorinFIBStatsByRouteTypeTable", 2),
    Modules::Index(
        RouteTypeKey::kelTypeName,
        +[](const Ip::IpVersion& version, const FibStatsSnmp::RouteType& type) {
          return RouteTypeKey(version, type);
        },
        addressFamilyIndex<RouteTypeKey>([](const auto& key) { return Ip::IpVersion{key.addressFamily()}; }),
        routeTypeIndex),
    fibTotalRoutes<RouteTypeRows::Row>("quorinFIBStatsTotalRoutesForRouteType"));

struct PrefixLenRows {
  using Cache = FibStatsMib;
  using Row = FibStatsSnmp::PrefixLenEntry;
  using Key = PrefixLenKey;
  static const auto& collection(const Cache& cache) { return cache.prefixLenTable(); }
  static const Key& key(const Row& row) { return row.key(); }
};

const auto prefixLenTable = Modules::makeIteratorTable<Modules::OrderedWalker<PrefixLenRows>>(
    fibStatsTable("quorinFIBStatsByPrefixLenTable", 3),
    Modules::Index(
        PrefixLenKey::kelTypeName,
        +[](const Ip::IpVersion& version, const unsigned& length) { return PrefixLenKey(version, length); },
        addressFamilyIndex<PrefixLenKey>([](const auto& key) { return Ip::IpVersion{key.addressFamily()}; }),
        Modules::unsignedIndex<PrefixLenKey>(
            "quorinFIBStatsPrefixLen", "prefixLen",
            [](const auto& key) { return static_cast<unsigned>(key.prefixLen().value()); })),
    fibTotalRoutes<PrefixLenRows::Row>("quorinFIBStatsTotalRoutesForPrefixLen"));

}  // namespace

ITERATOR_TABLE(quorinFIBStatsSummaryTable, summaryTable)
ITERATOR_TABLE(quorinFIBStatsByRouteTypeTable, routeTypeTable)
ITERATOR_TABLE(quorinFIBStatsByPrefixLenTable, prefixLenTable)

void init_quorinFIBStatsMIB(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  fibStats.entering(context, __func__);
  initialize_table_quorinFIBStatsSummaryTable(config, context);
  initialize_table_quorinFIBStatsByRouteTypeTable(config, context);
  initialize_table_quorinFIBStatsByPrefixLenTable(config, context);
  fibStats.entered(context);
}

MIB_MODULE(quorinFIBStatsMIB, fibStats)

// IF-MIB (RFC 2863) and the duplex mode of EtherLike-MIB (RFC 3635). Objects that Linux cannot tell are left out:
// docs/served.md.

#include <algorithm>
#include <limits>

#include "ipsnmp/IpMib.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"
#include "modules/frame/Scalar.h"
#include "snmp/SnmpUtil.h"
#include "varnix/ByteText.h"

namespace {

using Interface::LinkCounters;
using IpSnmp::IfStackKey;
using IpSnmp::IfTables;
using Modules::column;
using Modules::constantColumn;
using Modules::s32ToAsnInteger;

Kel::TraceHandle ifMIBTrace("IfMib");
Modules::Module ifMIB("ifMIB", ifMIBTrace);

constexpr const char* interfaceTables = "interface-tables";
const auto ifTablesSource = Modules::entitySource<IfTables>("snmp/ip/iftables", "snmp/ip/vrf.mibs/%s.iftables");

// ---- scalars

template <class Encode>
Modules::Scalar ifScalar(const char* name, std::vector<oid> identifier, unsigned char asnType,
                         const char* attribute, const char* conversion, Encode encode) {
  return {.module = ifMIB,
          .name = name,
          .identifier = std::move(identifier),
          .modes = HANDLER_CAN_RONLY,
          .priority = Modules::scalarPriority,
          .source = ifTablesSource,
          .attribute = attribute,
          .asnType = asnType,
          .conversion = conversion,
          .encode = [encode](const Kel::Entity& entity, unsigned char* buffer,
                             int length) { return encode(static_cast<const IfTables&>(entity), buffer, length); },
          .group = interfaceTables};
}

const auto ifNumber = ifScalar("ifNumber", {1, 3, 6, 1, 2, 1, 2, 1}, ASN_INTEGER, "ifNumber", s32ToAsnInteger.name,
                               [](const IfTables& tables, unsigned char* buffer, int length) {
                                 return S32ToAsnIntegerF(tables.ifNumber(), buffer, length);
                               });

constexpr auto& timeTicks = Modules::nowSecondsToUptimeTimeTicks;

const auto ifTableLastChange =
    ifScalar("ifTableLastChange", {1, 3, 6, 1, 2, 1, 31, 1, 5}, ASN_TIMETICKS, "ifTableLastChange", timeTicks.name,
             [](const IfTables& tables, unsigned char* buffer, int length) {
               return timeTicks.convert(tables.ifTableLastChange(), buffer, length);
             });
const auto ifStackLastChange =
    ifScalar("ifStackLastChange", {1, 3, 6, 1, 2, 1, 31, 1, 6}, ASN_TIMETICKS, "ifStackLastChange", timeTicks.name,
             [](const IfTables& tables, unsigned char* buffer, int length) {
               return timeTicks.convert(tables.ifStackLastChange(), buffer, length);
             });

// ---- tables by ifIndex

struct IfRows {
  using Cache = IfTables;
  using Row = IpSnmp::IfEntry;
  using Key = std::uint32_t;
  static const auto& collection(const Cache& cache) { return cache.ifTable(); }
  static Key key(const Row& row) { return row.ifIndex(); }
};
using IfRow = IfRows::Row;
using IfWalker = Modules::OrderedWalker<IfRows>;

auto ifIndexed(const char* object) {
  return Modules::Index(
      "U32", +[](const unsigned& ifIndex) { return ifIndex; },
      Modules::unsignedIntegerIndex<unsigned>(object, "ifIndex", [](const unsigned& key) { return key; }));
}

Modules::TableDescription described(const char* name, std::vector<oid> identifier) {
  return {.module = ifMIB,
          .name = name,
          .identifier = std::move(identifier),
          .modes = HANDLER_CAN_RONLY,
          .source = ifTablesSource,
          .miscountedHintIsTraced = true,
          .group = interfaceTables};
}

// A counter of the interface's record: no instance without one.
template <class Read>
auto counted(Read read) {
  return [read](const IfRow& row) {
    const auto record = row.counters();
    return record ? std::optional<std::uint64_t>(read(row, record->counters())) : std::nullopt;
  };
}

template <class Read>
auto counter32(unsigned number, const char* object, Read read) {
  return column<IfRow>(number, object, ASN_COUNTER, Modules::u64ToCounter32, "counters", counted(read));
}

template <class Read>
auto counter64(unsigned number, const char* object, Read read) {
  return column<IfRow>(number, object, ASN_COUNTER64, Modules::u64ToCounter64, "counters", counted(read));
}

template <class Read>
auto integer(unsigned number, const char* object, const char* attribute, Read read) {
  return column<IfRow>(number, object, ASN_INTEGER, s32ToAsnInteger, attribute, read);
}

template <class Read>
auto text(unsigned number, const char* object, const char* attribute, Read read) {
  return column<IfRow>(number, object, ASN_OCTET_STR, Modules::stringToAsnOctetString, attribute, read);
}

constexpr auto inOctets = [](const IfRow&, const LinkCounters& counters) { return counters.inOctets(); };
constexpr auto inUcastPkts = [](const IfRow& row, const LinkCounters&) { return row.inUcastPkts(); };
constexpr auto inMcastPkts = [](const IfRow&, const LinkCounters& counters) { return counters.inMcastPkts(); };
constexpr auto inDiscards = [](const IfRow&, const LinkCounters& counters) { return counters.inDiscards(); };
constexpr auto inErrors = [](const IfRow&, const LinkCounters& counters) { return counters.inErrors(); };
constexpr auto outOctets = [](const IfRow&, const LinkCounters& counters) { return counters.outOctets(); };
constexpr auto outPkts = [](const IfRow&, const LinkCounters& counters) { return counters.outPkts(); };
constexpr auto outDiscards = [](const IfRow&, const LinkCounters& counters) { return counters.outDiscards(); };
constexpr auto outErrors = [](const IfRow&, const LinkCounters& counters) { return counters.outErrors(); };

constexpr int truth(bool isTrue) {
  return isTrue ? 1 : 2;  // TruthValue (RFC 2579)
}

// Bits per second; the highest number if that is more (RFC 2863).
unsigned speedOf(const IfRow& row) {
  constexpr std::uint64_t million = 1000000;
  return static_cast<unsigned>(std::min<std::uint64_t>(row.status()->speed() * million, UINT32_MAX));
}

// A name or an alias may hold any bytes, a DisplayString only text: monitoring systems fail a whole scrape for one that
// is not UTF-8.
Kel::String displayString(const Kel::String& bytes) {
  return Varnix::isUtf8(bytes) ? bytes : Kel::String(Varnix::escapeBytes(bytes));
}

// ifAlias has at most 64 octets, the kernel's alias 255. A character of UTF-8 is not cut in two.
Kel::String aliasOf(const IfRow& row) {
  constexpr std::size_t limit = 64;
  const auto alias = displayString(row.status()->alias());
  auto end = std::min(alias.size(), limit);
  const auto isContinued = [&] { return end < alias.size() && (static_cast<unsigned char>(alias[end]) >> 6) == 2; };
  while (end > limit - 4 && isContinued()) --end;
  return alias.substr(0, end);
}

const auto ifTable = Modules::makeIteratorTable<IfWalker>(
    described("ifTable", {1, 3, 6, 1, 2, 1, 2, 2}), ifIndexed("ifIndex"),
    {integer(1, "ifIndex", "ifIndex", [](const IfRow& row) { return static_cast<int>(row.ifIndex()); }),
     text(2, "ifDescr", "name", [](const IfRow& row) { return displayString(row.name()); }),
     integer(3, "ifType", "status", [](const IfRow& row) { return static_cast<int>(row.status()->ifType()); }),
     integer(4, "ifMtu", "status",
             [](const IfRow& row) {
               const auto mtu = std::min<std::uint32_t>(row.status()->mtu(), std::numeric_limits<int>::max());
               return mtu != 0 ? std::optional<int>(mtu) : std::nullopt;
             }),
     column<IfRow>(5, "ifSpeed", ASN_GAUGE, Modules::u32ToAsnUnsigned, "status", speedOf),
     text(6, "ifPhysAddress", "status", [](const IfRow& row) { return row.status()->physAddress(); }),
     integer(7, "ifAdminStatus", "status",
             [](const IfRow& row) {
               const int status = row.status()->adminStatus();
               return status != 0 ? std::optional<int>(status) : std::nullopt;
             }),
     integer(8, "ifOperStatus", "operStatus", [](const IfRow& row) { return int{row.operStatus()}; }),
     column<IfRow>(9, "ifLastChange", ASN_TIMETICKS, timeTicks, "lastChange",
                   [](const IfRow& row) { return row.lastChange(); }),
     counter32(10, "ifInOctets", inOctets), counter32(11, "ifInUcastPkts", inUcastPkts),
     counter32(12, "ifInNUcastPkts", inMcastPkts), counter32(13, "ifInDiscards", inDiscards),
     counter32(14, "ifInErrors", inErrors), counter32(16, "ifOutOctets", outOctets),
     counter32(17, "ifOutUcastPkts", outPkts), counter32(19, "ifOutDiscards", outDiscards),
     counter32(20, "ifOutErrors", outErrors)});

constexpr int trapsDisabled = 2;  // ifLinkUpDownTrapEnable: this agent sends none

const auto ifXTable = Modules::makeIteratorTable<IfWalker>(
    described("ifXTable", {1, 3, 6, 1, 2, 1, 31, 1, 1}), ifIndexed("ifIndex"),
    {text(1, "ifName", "name", [](const IfRow& row) { return displayString(row.name()); }),
     counter32(2, "ifInMulticastPkts", inMcastPkts), counter64(6, "ifHCInOctets", inOctets),
     counter64(7, "ifHCInUcastPkts", inUcastPkts), counter64(8, "ifHCInMulticastPkts", inMcastPkts),
     counter64(10, "ifHCOutOctets", outOctets), counter64(11, "ifHCOutUcastPkts", outPkts),
     constantColumn<IfRow>(14, "ifLinkUpDownTrapEnable", trapsDisabled),
     column<IfRow>(15, "ifHighSpeed", ASN_GAUGE, Modules::u32ToAsnUnsigned, "status",
                   [](const IfRow& row) { return row.status()->speed(); }),
     integer(16, "ifPromiscuousMode", "status",
             [](const IfRow& row) { return truth(row.status()->promiscuous()); }),
     integer(17, "ifConnectorPresent", "status",
             [](const IfRow& row) { return truth(row.status()->connectorPresent()); }),
     text(18, "ifAlias", "status", aliasOf),
     column<IfRow>(19, "ifCounterDiscontinuityTime", ASN_TIMETICKS, timeTicks, "discontinuityTime",
                   [](const IfRow& row) { return row.discontinuityTime(); })});

// Of interfaces like Ethernet; the others have no row.
template <class Read>
auto etherLike(unsigned number, const char* object, const char* attribute, Read read) {
  return integer(number, object, attribute, [read](const IfRow& row) {
    constexpr std::uint32_t ethernetCsmacd = 6;
    return row.status()->ifType() == ethernetCsmacd ? std::optional<int>(read(row)) : std::nullopt;
  });
}

const auto dot3StatsTable = Modules::makeIteratorTable<IfWalker>(
    described("dot3StatsTable", {1, 3, 6, 1, 2, 1, 10, 7, 2}), ifIndexed("dot3StatsIndex"),
    {etherLike(1, "dot3StatsIndex", "ifIndex", [](const IfRow& row) { return static_cast<int>(row.ifIndex()); }),
     etherLike(19, "dot3StatsDuplexStatus", "status", [](const IfRow& row) { return row.status()->duplex(); })});

// ---- ifStackTable

struct IfStackRows {
  using Cache = IfTables;
  using Row = IpSnmp::IfStackEntry;
  using Key = IfStackKey;
  static const auto& collection(const Cache& cache) { return cache.ifStackTable(); }
  static const Key& key(const Row& row) { return row.index(); }
};

constexpr int rowStatusActive = 1;

const auto ifStackTable = Modules::makeIteratorTable<Modules::OrderedWalker<IfStackRows>>(
    described("ifStackTable", {1, 3, 6, 1, 2, 1, 31, 1, 2}),
    Modules::Index(
        IfStackKey::kelTypeName,
        +[](const unsigned& higher, const unsigned& lower) { return IfStackKey(higher, lower); },
        Modules::unsignedIntegerIndex<IfStackKey>("ifStackHigherLayer", "higher",
                                                  [](const IfStackKey& key) { return key.higher(); }),
        Modules::unsignedIntegerIndex<IfStackKey>("ifStackLowerLayer", "lower",
                                                  [](const IfStackKey& key) { return key.lower(); })),
    {constantColumn<IfStackRows::Row>(3, "ifStackStatus", rowStatusActive)});

}  // namespace

MIB_SCALAR_HANDLER(ifNumber, ifNumber)
MIB_SCALAR_HANDLER(ifTableLastChange, ifTableLastChange)
MIB_SCALAR_HANDLER(ifStackLastChange, ifStackLastChange)
ITERATOR_TABLE(ifTable, ifTable)
ITERATOR_TABLE(ifXTable, ifXTable)
ITERATOR_TABLE(ifStackTable, ifStackTable)
ITERATOR_TABLE(dot3StatsTable, dot3StatsTable)

void init_ifMIB(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  ifMIB.entering(context, __func__);
  const auto initialize = [&](const Modules::Scalar& scalar, Netsnmp_Node_Handler* handler) {
    ifMIB.traceInitializing("init_ifMIB", scalar.identifier, context);
    Modules::initializeScalar(scalar, handler, "init_ifMIB", config, context);
  };
  initialize(ifNumber, handle_ifNumber);
  initialize(ifTableLastChange, handle_ifTableLastChange);
  initialize(ifStackLastChange, handle_ifStackLastChange);
  initialize_table_ifTable(config, context);
  initialize_table_ifXTable(config, context);
  initialize_table_ifStackTable(config, context);
  initialize_table_dot3StatsTable(config, context);
  ifMIB.entered(context);
}

MIB_MODULE(ifMIB, ifMIB)

#include "conversions/SnmpConversions.h"
#include "ipsnmp/IpMib.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"
#include "snmp/SnmpUtil.h"

namespace {

using Modules::column;

Kel::TraceHandle vrfBaseTrace("VrfBase");
Modules::Module vrfBase("VrfBase", vrfBaseTrace);

constexpr const char* cachePath = "snmp/ip/ipvrfmib";
const auto source = Modules::entitySource<IpSnmp::IpVrfMib>(cachePath, nullptr);

constexpr int routeDistinguisherLimit = 256;  // bytes
constexpr int vrfNameLimit = 100;             // bytes; a longer one is an error to the manager

constexpr Modules::Conversion<Kel::Ptr<const IpSnmp::VrfRoutingStatus>> routingStatusToAsnBits{
    "RoutingStatusToAsnBits", RoutingStatusToAsnBits};
constexpr Modules::Conversion<const Vantu::RouteDistinguisher&> routeDistinguisherToAsnOctetString{
    "RouteDistinguisherToAsnOctetString", RouteDistinguisherToAsnOctetString};
constexpr Modules::Conversion<const Ip::VrfState&> vrfStateToAsnInteger{"VrfStateToAsnInteger",
                                                                        VrfStateToAsnInteger};

struct VrfRows {
  using Cache = IpSnmp::IpVrfMib;
  using Row = IpSnmp::VrfTableEntry;
  using Key = Snmp::String;
  static const auto& collection(const Cache& cache) { return cache.vrfTable(); }
  static const Key& key(const Row& row) { return row.vrfName(); }
};
using VrfRow = VrfRows::Row;

const auto quorinVrfTable = Modules::makeIteratorTable<Modules::OrderedWalker<VrfRows>>(
    {.module = vrfBase,
     .name = "quorinVrfTable",
     .identifier = Modules::enterpriseObject({3, 18, 1, 1}),
     .modes = HANDLER_CAN_RONLY,
     .source = source,
     .miscountedHintIsTraced = true},
    Modules::Index(
        "Snmp::String", +[](const Snmp::String& name) { return name; },
        Modules::octetStringIndex<Snmp::String>(
            "quorinVrfName", "vrfName", [](const Snmp::String& key) -> const Snmp::String& { return key; })),
    {column<VrfRow>(2, "quorinVrfRoutingStatus", ASN_OCTET_STR, routingStatusToAsnBits, "vrfRoutingStatus",
                    [](const auto& row) { return row.vrfRoutingStatus(); }),
     column<VrfRow>(3, "quorinVrfRouteDistinguisher", ASN_OCTET_STR, routeDistinguisherToAsnOctetString,
                    "routeDistinguisher", [](const auto& row) { return row.routeDistinguisher(); })
         .limitedTo(routeDistinguisherLimit, cachePath),
     column<VrfRow>(4, "quorinVrfState", ASN_INTEGER, vrfStateToAsnInteger, "vrfState",
                    [](const auto& row) { return row.vrfState(); })});

struct VrfIfRows {
  using Cache = IpSnmp::IpVrfMib;
  using Row = IpSnmp::VrfIfTableEntry;
  using Key = std::uint32_t;
  static const auto& collection(const Cache& cache) { return cache.vrfIfTable(); }
  static Key key(const Row& row) { return row.ifIndex(); }
};
using VrfIfRow = VrfIfRows::Row;

const auto quorinVrfIfTable = Modules::makeIteratorTable<Modules::OrderedWalker<VrfIfRows>>(
    {.module = vrfBase,
     .name = "quorinVrfIfTable",
     .identifier = Modules::enterpriseObject({3, 18, 1, 2}),
     .modes = HANDLER_CAN_RONLY,
     .source = source,
     .miscountedHintIsTraced = true},
    Modules::Index(
        "U32", +[](const unsigned& ifIndex) { return ifIndex; },
        Modules::unsignedIntegerIndex<unsigned>("ifIndex", "ifIndex", [](const unsigned& key) { return key; })),
    {column<VrfIfRow>(1, "quorinVrfIfMembership", ASN_OCTET_STR, Modules::stringToAsnOctetString, "vrfName",
                      [](const auto& row) { return row.vrfName(); })
         .limitedTo(vrfNameLimit, cachePath)});

}  // namespace

ITERATOR_TABLE(quorinVrfTable, quorinVrfTable)
ITERATOR_TABLE(quorinVrfIfTable, quorinVrfIfTable)

void init_VrfBase(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  vrfBase.entering(context, __func__);
  initialize_table_quorinVrfTable(config, context);
  initialize_table_quorinVrfIfTable(config, context);
  vrfBase.entered(context);
}

MIB_MODULE(VrfBase, vrfBase)

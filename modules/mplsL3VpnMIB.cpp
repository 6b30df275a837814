#include "conversions/SnmpConversions.h"
#include "ipsnmp/MplsVpnMib.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"
#include "modules/frame/Scalar.h"
#include "snmp/SnmpUtil.h"

namespace {

using IpSnmp::MplsVpnMib;
using IpSnmp::VpnIfKey;
using Modules::column;
using Modules::constantColumn;
using Modules::nowSecondsToUptimeTimeTicks;
using Modules::u32ToAsnUnsigned;

Kel::TraceHandle mplsL3VpnTrace("MplsL3Vpn");
Modules::Module mplsL3Vpn("mplsL3VpnMIB", mplsL3VpnTrace);

constexpr const char* group = "mpls-l3vpn";
const auto source = Modules::entitySource<MplsVpnMib>("snmp/ip/mplsvpnmib", nullptr);

// mplsL3VpnObjects followed by the given sub-identifiers.
std::vector<oid> object(std::initializer_list<oid> below) {
  std::vector<oid> object{1, 3, 6, 1, 2, 1, 10, 166, 11, 1};
  object.insert(object.end(), below);
  return object;
}

Modules::Scalar scalar(oid number, const char* name, const char* attribute,
                       std::uint32_t (*read)(const MplsVpnMib& mib)) {
  return {.module = mplsL3Vpn,
          .name = name,
          .identifier = object({1, number}),
          .modes = HANDLER_CAN_RONLY,
          .priority = Modules::scalarPriority,
          .source = source,
          .attribute = attribute,
          .asnType = ASN_GAUGE,
          .conversion = u32ToAsnUnsigned.name,
          .encode =
              [read](const Kel::Entity& entity, unsigned char* buffer, int length) {
                return U32ToAsnUnsignedF(read(static_cast<const MplsVpnMib&>(entity)), buffer, length);
              },
          .group = group};
}

const std::vector<Modules::Scalar> vpnScalars{
    scalar(1, "mplsL3VpnConfiguredVrfs", "vrfTable",
           [](const MplsVpnMib& mib) { return static_cast<std::uint32_t>(mib.vrfTable().size()); }),
    scalar(2, "mplsL3VpnActiveVrfs", "activeVrfs", [](const MplsVpnMib& mib) { return mib.activeVrfs(); }),
    scalar(3, "mplsL3VpnConnectedInterfaces", "ifConfTable",
           [](const MplsVpnMib& mib) { return static_cast<std::uint32_t>(mib.ifConfTable().size()); })};

constexpr int enterprise = 2;  // of mplsL3VpnIfVpnClassification
constexpr int vrfUp = 1;
constexpr int vrfDown = 2;
constexpr int rowActive = 1;
constexpr int storageVolatile = 2;
constexpr unsigned unlimited = 0;
constexpr int routeDistinguisherLimit = 256;  // bytes
const Kel::String none;

Modules::TableDescription table(const char* name, std::initializer_list<oid> below) {
  return {.module = mplsL3Vpn,
          .name = name,
          .identifier = object(below),
          .modes = HANDLER_CAN_RONLY,
          .source = source,
          .group = group};
}

struct IfRows {
  using Cache = MplsVpnMib;
  using Row = IpSnmp::VpnIfEntry;
  using Key = VpnIfKey;
  static const auto& collection(const Cache& cache) { return cache.ifConfTable(); }
  static const Key& key(const Row& row) { return row.index(); }
};

const auto mplsL3VpnIfConfTable = Modules::makeIteratorTable<Modules::OrderedWalker<IfRows>>(
    table("mplsL3VpnIfConfTable", {2, 1}),
    Modules::Index(
        "IpSnmp::VpnIfKey",
        +[](const Snmp::String& name, const unsigned& ifIndex) { return VpnIfKey(name, ifIndex); },
        Modules::octetStringIndex<VpnIfKey>(
            "mplsL3VpnVrfName", "vrfName",
            [](const VpnIfKey& key) -> const Snmp::String& { return key.vrfName(); }),
        Modules::unsignedIntegerIndex<VpnIfKey>("mplsL3VpnIfConfIndex", "ifIndex",
                                                [](const VpnIfKey& key) { return key.ifIndex(); })),
    {constantColumn<IfRows::Row>(2, "mplsL3VpnIfVpnClassification", enterprise),
     constantColumn<IfRows::Row>(4, "mplsL3VpnIfConfStorageType", storageVolatile),
     constantColumn<IfRows::Row>(5, "mplsL3VpnIfConfRowStatus", rowActive)});

struct VrfRows {
  using Cache = MplsVpnMib;
  using Row = IpSnmp::VpnVrfEntry;
  using Key = Snmp::String;
  static const auto& collection(const Cache& cache) { return cache.vrfTable(); }
  static const Key& key(const Row& row) { return row.vrfName(); }
};
using VrfRow = VrfRows::Row;

auto vrfIndex() {
  return Modules::Index(
      "Snmp::String", +[](const Snmp::String& name) { return name; },
      Modules::octetStringIndex<Snmp::String>("mplsL3VpnVrfName", "vrfName",
                                              [](const Snmp::String& key) -> const Snmp::String& { return key; }));
}

Modules::Column<VrfRow> emptyColumn(unsigned number, const char* object) {
  return column<VrfRow>(number, object, ASN_OCTET_STR, Modules::stringToAsnOctetString, "",
                        [](const VrfRow&) -> const Kel::String& { return none; });
}

Modules::Column<VrfRow> unlimitedColumn(unsigned number, const char* object) {
  return column<VrfRow>(number, object, ASN_UNSIGNED, u32ToAsnUnsigned, "",
                        [](const VrfRow&) { return unlimited; });
}

constexpr Modules::Conversion<const Vantu::RouteDistinguisher&> routeDistinguisherToAsnOctetString{
    "RouteDistinguisherToAsnOctetString", RouteDistinguisherToAsnOctetString};

const auto mplsL3VpnVrfTable = Modules::makeIteratorTable<Modules::OrderedWalker<VrfRows>>(
    table("mplsL3VpnVrfTable", {2, 2}), vrfIndex(),
    {emptyColumn(2, "mplsL3VpnVrfVpnId"), emptyColumn(3, "mplsL3VpnVrfDescription"),
     column<VrfRow>(4, "mplsL3VpnVrfRD", ASN_OCTET_STR, routeDistinguisherToAsnOctetString, "routeDistinguisher",
                    [](const VrfRow& row) { return row.vrf()->routeDistinguisher(); })
         .limitedTo(routeDistinguisherLimit, "snmp/ip/mplsvpnmib"),
     column<VrfRow>(5, "mplsL3VpnVrfCreationTime", ASN_TIMETICKS, nowSecondsToUptimeTimeTicks, "creationTime",
                    [](const VrfRow& row) { return row.creationTime(); }),
     column<VrfRow>(6, "mplsL3VpnVrfOperStatus", ASN_INTEGER, Modules::s32ToAsnInteger, "activeInterfaces",
                    [](const VrfRow& row) { return row.activeInterfaces() != 0 ? vrfUp : vrfDown; }),
     column<VrfRow>(7, "mplsL3VpnVrfActiveInterfaces", ASN_GAUGE, u32ToAsnUnsigned, "activeInterfaces",
                    [](const VrfRow& row) { return row.activeInterfaces(); }),
     column<VrfRow>(8, "mplsL3VpnVrfAssociatedInterfaces", ASN_UNSIGNED, u32ToAsnUnsigned, "interfaces",
                    [](const VrfRow& row) { return row.interfaces(); }),
     unlimitedColumn(9, "mplsL3VpnVrfConfMidRteThresh"), unlimitedColumn(10, "mplsL3VpnVrfConfHighRteThresh"),
     unlimitedColumn(11, "mplsL3VpnVrfConfMaxRoutes"),
     column<VrfRow>(12, "mplsL3VpnVrfConfLastChanged", ASN_TIMETICKS, nowSecondsToUptimeTimeTicks, "lastChanged",
                    [](const VrfRow& row) { return row.lastChanged(); }),
     constantColumn<VrfRow>(13, "mplsL3VpnVrfConfRowStatus", rowActive),
     constantColumn<VrfRow>(14, "mplsL3VpnVrfConfAdminStatus", vrfUp),
     constantColumn<VrfRow>(15, "mplsL3VpnVrfConfStorageType", storageVolatile)});

// A counter of the VRFs whose routes are counted.
template <class Read>
Modules::Column<VrfRow> routesCounter(unsigned number, const char* object, const char* attribute, Read read) {
  return column<VrfRow>(number, object, ASN_COUNTER, Modules::u64ToCounter32, attribute,
                        [read](const VrfRow& row) -> std::optional<std::uint64_t> {
                          return row.routes() ? std::optional(read(row)) : std::nullopt;
                        });
}

const auto mplsL3VpnVrfPerfTable = Modules::makeIteratorTable<Modules::OrderedWalker<VrfRows>>(
    table("mplsL3VpnVrfPerfTable", {3, 1}), vrfIndex(),
    {routesCounter(1, "mplsL3VpnVrfPerfRoutesAdded", "routesAdded",
                   [](const VrfRow& row) { return std::uint64_t{row.routesAdded()}; }),
     routesCounter(2, "mplsL3VpnVrfPerfRoutesDeleted", "routesDeleted",
                   [](const VrfRow& row) { return std::uint64_t{row.routesDeleted()}; }),
     column<VrfRow>(3, "mplsL3VpnVrfPerfCurrNumRoutes", ASN_UNSIGNED, u32ToAsnUnsigned, "numRoutes",
                    [](const VrfRow& row) { return row.routes(); })});

// The scalars share a handler, which finds the one that a registration serves by its number.
extern "C" int handle_mplsL3VpnScalar(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                                      netsnmp_agent_request_info* requestInfo, netsnmp_request_info* requests) {
  const auto number = registration->rootoid[vpnScalars.front().identifier.size() - 1];
  return Modules::handleScalar(vpnScalars[number - 1], __func__, handler, registration, requestInfo, requests);
}

}  // namespace

ITERATOR_TABLE(mplsL3VpnIfConfTable, mplsL3VpnIfConfTable)
ITERATOR_TABLE(mplsL3VpnVrfTable, mplsL3VpnVrfTable)
ITERATOR_TABLE(mplsL3VpnVrfPerfTable, mplsL3VpnVrfPerfTable)

void init_mplsL3VpnMIB(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  mplsL3Vpn.entering(context, __func__);
  for (const auto& scalar : vpnScalars) mplsL3Vpn.traceInitializing(__func__, scalar.identifier, context);
  for (const auto& scalar : vpnScalars) {
    Modules::initializeScalar(scalar, handle_mplsL3VpnScalar, __func__, config, context);
  }
  initialize_table_mplsL3VpnIfConfTable(config, context);
  initialize_table_mplsL3VpnVrfTable(config, context);
  initialize_table_mplsL3VpnVrfPerfTable(config, context);
  mplsL3Vpn.entered(context);
}

MIB_MODULE(mplsL3VpnMIB, mplsL3Vpn)

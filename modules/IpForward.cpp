#include <fmt/format.h>

#include "conversions/SnmpConversions.h"
#include "ipsnmp/IpCidrRouteTableIteratorConst.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"
#include "modules/frame/Scalar.h"
#include "snmp/HandlerRegistration.h"
#include "snmp/SnmpUtil.h"

namespace {

using IpSnmp::IpCidrRouteTableIndex;
using IpSnmp::IpForwardMib;
using Modules::column;
using Modules::s32ToAsnInteger;
using Modules::vantuIpAddrToAsnOctetString;

Kel::TraceHandle ipForwardTrace("IpForward");
Modules::Module ipForward("IpForward", ipForwardTrace);

constexpr const char* routeTables = "route-tables";
const auto ipForwardMibSource =
    Modules::entitySource<IpForwardMib>("snmp/ip/ipforwardmib", "snmp/ip/vrf.mibs/%s.ipforwardmib");

const Modules::Scalar ipCidrRouteNumber{.module = ipForward,
                                        .name = "ipCidrRouteNumber",
                                        .identifier = {1, 3, 6, 1, 2, 1, 4, 24, 3},
                                        .modes = HANDLER_CAN_RONLY,
                                        .priority = Modules::scalarPriority,
                                        .source = ipForwardMibSource,
                                        .attribute = "numRoutes",
                                        .asnType = ASN_GAUGE,
                                        .conversion = s32ToAsnInteger.name,
                                        .encode =
                                            [](const Kel::Entity& entity, unsigned char* buffer, int length) {
                                              const auto& mib = static_cast<const IpForwardMib&>(entity);
                                              return S32ToAsnIntegerF(mib.numRoutes(), buffer, length);
                                            },
                                        .group = routeTables};

constexpr int tosNone = 0;

class CidrRouteWalker {
 public:
  using Cache = IpForwardMib;
  using Row = IpSnmp::IpCidrRouteTableEntry;
  using Key = IpCidrRouteTableIndex;

  explicit CidrRouteWalker(Kel::Ptr<const Cache> cache) : at_(std::move(cache)) {}
  CidrRouteWalker(Kel::Ptr<const Cache> cache, const Key& key) : at_(std::move(cache), key, false) {}
  // The next hop of a key applies to the first prefix visited, even if that is not the prefix of the key.
  static CidrRouteWalker passingOverNone(Kel::Ptr<const Cache> cache, const Key& key) {
    return {std::move(cache), Key(key.dest(), key.mask(), tosNone, Vantu::IpAddr())};
  }
  static CidrRouteWalker behind(Kel::Ptr<const Cache> cache, const Key& key) {
    return CidrRouteWalker(IpForwardMib::IpCidrRouteTableIteratorConst(std::move(cache), key, true));
  }

  bool isAtEnd() const { return at_.isAtEnd(); }
  bool gaveUp() const { return at_.gaveUp(); }
  const Row& row() const { return *at_; }
  const Key& key() const { return at_.index(); }
  void advance() { ++at_; }

 private:
  explicit CidrRouteWalker(IpForwardMib::IpCidrRouteTableIteratorConst at) : at_(std::move(at)) {}

  IpForwardMib::IpCidrRouteTableIteratorConst at_;
};
using RouteRow = CidrRouteWalker::Row;

constexpr Modules::Conversion<const Routing::Fib::RouteType&> routeTypeToAsnInteger{"RouteTypeToAsnInteger",
                                                                                    RouteTypeToAsnInteger};
constexpr Modules::Conversion<const Routing::RouteMetric&> routeMetricToAsnInteger{"RouteMetricToAsnInteger",
                                                                                   RouteMetricToAsnInteger};

const Snmp::ObjectIdentifier zeroDotZero{0, 0};
constexpr int ageUnknown = -1;
constexpr int nextHopAsUnknown = 0;
constexpr int metricUnused = -1;
constexpr int routeStatusActive = 1;  // active(1) of RowStatus

const auto ipCidrRouteTable = Modules::makeIteratorTable<CidrRouteWalker>(
    {.module = ipForward,
     .name = "ipCidrRouteTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 24, 4},
     .modes = HANDLER_CAN_RWRITE,
     .source = ipForwardMibSource,
     .miscountedHintIsTraced = true,
     .group = routeTables},
    Modules::Index(
        IpCidrRouteTableIndex::kelTypeName,
        +[](const Vantu::IpAddr& dest, const Vantu::IpAddr& mask, const unsigned& tos,
            const Vantu::IpAddr& nextHop) { return IpCidrRouteTableIndex(dest, mask, tos, nextHop); },
        Modules::ipAddressIndex<IpCidrRouteTableIndex>("ipCidrRouteDest", "dest",
                                                       [](const auto& key) { return Vantu::IpAddr(key.dest()); }),
        Modules::ipAddressIndex<IpCidrRouteTableIndex>("ipCidrRouteMask", "mask",
                                                       [](const auto& key) { return Vantu::IpAddr(key.mask()); }),
        Modules::unsignedIntegerIndex<IpCidrRouteTableIndex>("ipCidrRouteTos", "tos",
                                                             [](const auto& key) { return unsigned{key.tos()}; }),
        Modules::ipAddressIndex<IpCidrRouteTableIndex>(
            "ipCidrRouteNextHop", "nextHop", [](const auto& key) { return Vantu::IpAddr(key.nextHop()); })),
    {column<RouteRow>(1, "ipCidrRouteDest", ASN_IPADDRESS, vantuIpAddrToAsnOctetString, "dest",
                      [](const auto& row) { return row.index().dest(); }),
     column<RouteRow>(2, "ipCidrRouteMask", ASN_IPADDRESS, vantuIpAddrToAsnOctetString, "mask",
                      [](const auto& row) { return row.index().mask(); }),
     Modules::constantColumn<RouteRow>(3, "ipCidrRouteTos", tosNone, "tos"),
     column<RouteRow>(4, "ipCidrRouteNextHop", ASN_IPADDRESS, vantuIpAddrToAsnOctetString, "nextHop",
                      [](const auto& row) { return row.index().nextHop(); }),
     column<RouteRow>(5, "ipCidrRouteIfIndex", ASN_INTEGER, s32ToAsnInteger, "ifIndex",
                      [](const auto& row) { return static_cast<int>(row.ifIndex()); })
         .refusable(),
     column<RouteRow>(6, "ipCidrRouteType", ASN_INTEGER, s32ToAsnInteger, "type",
                      [](const auto& row) { return int{row.type()}; })
         .refusable(),
     column<RouteRow>(7, "ipCidrRouteProto", ASN_INTEGER, routeTypeToAsnInteger, "protocol",
                      [](const auto& row) { return row.protocol(); }),
     Modules::constantColumn<RouteRow>(8, "ipCidrRouteAge", ageUnknown),
     column<RouteRow>(9, "ipCidrRouteInfo", ASN_OBJECT_ID, Modules::snmpObjectIdentifierToAsnOid, "",
                      [](const auto&) -> const Snmp::ObjectIdentifier& { return zeroDotZero; })
         .refusable(),
     Modules::constantColumn<RouteRow>(10, "ipCidrRouteNextHopAS", nextHopAsUnknown).refusable(),
     column<RouteRow>(11, "ipCidrRouteMetric1", ASN_INTEGER, routeMetricToAsnInteger, "metric",
                      [](const auto& row) { return row.metric(); })
         .refusable(),
     column<RouteRow>(12, "ipCidrRouteMetric2", ASN_INTEGER, s32ToAsnInteger, "preference",
                      [](const auto& row) { return int{row.preference().value()}; })
         .refusable(),
     Modules::constantColumn<RouteRow>(13, "ipCidrRouteMetric3", metricUnused).refusable(),
     Modules::constantColumn<RouteRow>(14, "ipCidrRouteMetric4", metricUnused).refusable(),
     Modules::constantColumn<RouteRow>(15, "ipCidrRouteMetric5", metricUnused).refusable(),
     Modules::constantColumn<RouteRow>(16, "ipCidrRouteStatus", routeStatusActive).refusable()});

// snmpd's ipRouteTable copies the kernel's routes for a request that reaches it, as the last GETNEXT of a walk over
// ipAddrTable does. So we register its columns, as snmpd does, and answer with no object.
void coverIpRouteTable(const Kel::String& context) {
  constexpr oid columns = 13;
  for (oid column = 1; column <= columns; ++column) {
    auto* const cover = ipForward.registration(fmt::format("ipRouteTable/{}", column).c_str(), netsnmp_null_handler,
                                               {1, 3, 6, 1, 2, 1, 4, 21, 1, column},
                                               HANDLER_CAN_RONLY | HANDLER_CAN_GETBULK, context);
    // net-snmp frees what it refuses.
    if (cover != nullptr && netsnmp_register_handler(cover) == MIB_REGISTERED_OK) {
      ipForward.addRegistration(context, cover);
    } else {
      QTRACE(ipForwardTrace, 0) << "the agent refuses column " << column << " of ipRouteTable for us, so snmpd "
                                << "copies all routes when a walk passes; start it with -I -ip to prevent that";
    }
  }
}

}  // namespace

MIB_SCALAR_HANDLER(ipCidrRouteNumber, ipCidrRouteNumber)
ITERATOR_TABLE(ipCidrRouteTable, ipCidrRouteTable)

void init_IpForward(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  ipForward.entering(context, __func__);
  ipForward.traceInitializing(__func__, ipCidrRouteNumber.identifier, context);
  Modules::initializeScalar(ipCidrRouteNumber, handle_ipCidrRouteNumber, __func__, config, context);
  initialize_table_ipCidrRouteTable(config, context);
  // Only the default context has objects of other modules.
  if (Snmp::takesPrecedence() && context.empty() && !SnmpUtil::objectsDisabled(config, routeTables)) {
    coverIpRouteTable(context);
  }
  ipForward.entered(context);
}

MIB_MODULE(IpForward, ipForward)

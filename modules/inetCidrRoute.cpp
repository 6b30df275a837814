#include <array>
#include <cstring>
#include <span>

#include "ipsnmp/InetCidrRoutes.h"
#include "ipsnmp/ProtocolMap.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"
#include "modules/frame/Scalar.h"
#include "snmp/SnmpUtil.h"

namespace {

using IpSnmp::InetCidrRouteIndex;
using IpSnmp::InetIndexAddress;
using IpSnmp::InetIndexPolicy;
using IpSnmp::IpForwardMib;
using Modules::s32ToAsnInteger;

Kel::TraceHandle inetCidrRouteTrace("InetCidrRoute");
Modules::Module inetCidrRoute("inetCidrRoute", inetCidrRouteTrace);

constexpr const char* inetRouteGroup = "route-tables";
const auto inetForwardMibSource =
    Modules::entitySource<IpForwardMib>("snmp/ip/ipforwardmib", "snmp/ip/vrf.mibs/%s.ipforwardmib");

const Modules::Scalar inetCidrRouteNumber{.module = inetCidrRoute,
                                          .name = "inetCidrRouteNumber",
                                          .identifier = {1, 3, 6, 1, 2, 1, 4, 24, 6},
                                          .modes = HANDLER_CAN_RONLY,
                                          .priority = Modules::scalarPriority,
                                          .source = inetForwardMibSource,
                                          .attribute = "inetNumRoutes",
                                          .asnType = ASN_GAUGE,
                                          .conversion = Modules::u32ToAsnUnsigned.name,
                                          .encode =
                                              [](const Kel::Entity& entity, unsigned char* buffer, int length) {
                                                const auto& mib = static_cast<const IpForwardMib&>(entity);
                                                return U32ToAsnUnsignedF(mib.inetNumRoutes(), buffer, length);
                                              },
                                          .group = inetRouteGroup,
                                          .isInstanceInSnmpd = true};

class InetCidrRouteWalker {
 public:
  using Cache = IpForwardMib;
  using Row = IpSnmp::InetCidrRouteEntry;
  using Key = InetCidrRouteIndex;

  explicit InetCidrRouteWalker(Kel::Ptr<const Cache> cache) : at_(std::move(cache)) {}
  InetCidrRouteWalker(Kel::Ptr<const Cache> cache, const Key& key) : at_(std::move(cache), key) {}
  bool isAtEnd() const { return at_.isAtEnd(); }
  bool gaveUp() const { return at_.gaveUp(); }
  const Row& row() const { return at_.row(); }
  const Key& key() const { return row().index; }
  void advance() { at_.advance(); }

 private:
  IpSnmp::InetCidrRouteIterator at_;
};
using InetRow = InetCidrRouteWalker::Row;

// IANAipRouteProtocol. For IPv4 that of ipCidrRouteProto, which does not know IS-IS (24 and 25).
int protocolOf(const InetRow& row) {
  const auto type = row.protocol.value();
  if (row.index.destType == Ip::ipVersion4) {
    return type == 24 || type == 25 ? IpSnmp::ipRouteProtocolIsIs : IpSnmp::protocolMap().protocol(row.protocol);
  }
  constexpr std::array<int, 17> byType{
      IpSnmp::ipRouteProtocolOther,   IpSnmp::ipRouteProtocolOther,   IpSnmp::ipRouteProtocolOther,
      IpSnmp::ipRouteProtocolOther,   IpSnmp::ipRouteProtocolNetmgmt, IpSnmp::ipRouteProtocolOther,
      IpSnmp::ipRouteProtocolRip,     IpSnmp::ipRouteProtocolLocal,   IpSnmp::ipRouteProtocolOther,
      IpSnmp::ipRouteProtocolBgp,     IpSnmp::ipRouteProtocolOspf,    IpSnmp::ipRouteProtocolOspf,
      IpSnmp::ipRouteProtocolBgp,     IpSnmp::ipRouteProtocolIsIs,    IpSnmp::ipRouteProtocolIsIs,
      IpSnmp::ipRouteProtocolNetmgmt, IpSnmp::ipRouteProtocolNetmgmt};
  return type < byType.size() ? byType[type] : IpSnmp::ipRouteProtocolOther;
}

constexpr Modules::Conversion<const Routing::RouteMetric&> inetMetricToAsnInteger{"RouteMetricToAsnInteger",
                                                                                  RouteMetricToAsnInteger};

template <class Part>
int inetPartToAsn(const Part& part, unsigned char* buffer, int length) {
  const auto bytes = std::as_bytes(part.elements());
  if (static_cast<std::size_t>(length) < bytes.size()) return -1;
  std::memcpy(buffer, bytes.data(), bytes.size());
  return static_cast<int>(bytes.size());
}

constexpr Modules::IndexType<InetIndexAddress> inetAddressType{
    ASN_OCTET_STR, ASN_OCTET_STR,
    [](void* value) { return InetIndexAddress(Modules::octetStringIndexType.fromAsn(value).octets()); },
    inetPartToAsn<InetIndexAddress>};
constexpr Modules::IndexType<InetIndexPolicy> inetPolicyType{
    ASN_OBJECT_ID, ASN_OBJECT_ID,
    [](void* value) { return InetIndexPolicy(AsnOidToSnmpObjectIdentifier(value).subIdentifiers()); },
    inetPartToAsn<InetIndexPolicy>};

using InetAddressIndex = Modules::IndexComponent<InetCidrRouteIndex, InetIndexAddress>;
using InetPolicyIndex = Modules::IndexComponent<InetCidrRouteIndex, InetIndexPolicy>;

constexpr unsigned unknownAge = 0, unknownAs = 0;
constexpr int unusedMetric = -1;
constexpr int activeRow = 1;  // of RowStatus

const auto inetCidrRouteTable = Modules::makeIteratorTable<InetCidrRouteWalker>(
    {.module = inetCidrRoute,
     .name = "inetCidrRouteTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 24, 7},
     .modes = HANDLER_CAN_RONLY,
     .source = inetForwardMibSource,
     .group = inetRouteGroup},
    Modules::Index(
        InetCidrRouteIndex::kelTypeName,
        +[](const Ip::IpVersion& destType, const InetIndexAddress& dest, const unsigned& length,
            const InetIndexPolicy& policy, const Ip::IpVersion& nextHopType, const InetIndexAddress& nextHop) {
          return InetCidrRouteIndex{destType, dest, length, policy, nextHopType, nextHop};
        },
        Modules::ipVersionIndex<InetCidrRouteIndex>("inetCidrRouteDestType", "destType",
                                                    [](const auto& key) { return key.destType; }),
        InetAddressIndex{inetAddressType, "inetCidrRouteDest", "dest", [](const auto& key) { return key.dest; }},
        Modules::unsignedIndex<InetCidrRouteIndex>("inetCidrRoutePfxLen", "pfxLen",
                                                   [](const auto& key) { return unsigned{key.length}; }),
        InetPolicyIndex{inetPolicyType, "inetCidrRoutePolicy", "policy",
                        [](const auto& key) { return key.policy; }},
        Modules::ipVersionIndex<InetCidrRouteIndex>("inetCidrRouteNextHopType", "nextHopType",
                                                    [](const auto& key) { return key.nextHopType; }),
        InetAddressIndex{inetAddressType, "inetCidrRouteNextHop", "nextHop",
                         [](const auto& key) { return key.nextHop; }}),
    {Modules::column<InetRow>(7, "inetCidrRouteIfIndex", ASN_INTEGER, s32ToAsnInteger, "ifIndex",
                              [](const auto& row) { return static_cast<int>(row.ifIndex); }),
     Modules::column<InetRow>(8, "inetCidrRouteType", ASN_INTEGER, s32ToAsnInteger, "type",
                              [](const auto& row) { return static_cast<int>(row.type); }),
     Modules::column<InetRow>(9, "inetCidrRouteProto", ASN_INTEGER, s32ToAsnInteger, "protocol", protocolOf),
     Modules::column<InetRow>(10, "inetCidrRouteAge", ASN_GAUGE, Modules::u32ToAsnUnsigned, "",
                              [](const auto&) { return unknownAge; }),
     Modules::column<InetRow>(11, "inetCidrRouteNextHopAS", ASN_GAUGE, Modules::u32ToAsnUnsigned, "",
                              [](const auto&) { return unknownAs; }),
     Modules::column<InetRow>(12, "inetCidrRouteMetric1", ASN_INTEGER, inetMetricToAsnInteger, "metric",
                              [](const auto& row) { return row.metric; }),
     Modules::constantColumn<InetRow>(13, "inetCidrRouteMetric2", unusedMetric),
     Modules::constantColumn<InetRow>(14, "inetCidrRouteMetric3", unusedMetric),
     Modules::constantColumn<InetRow>(15, "inetCidrRouteMetric4", unusedMetric),
     Modules::constantColumn<InetRow>(16, "inetCidrRouteMetric5", unusedMetric),
     Modules::constantColumn<InetRow>(17, "inetCidrRouteStatus", activeRow)});

}  // namespace

MIB_SCALAR_HANDLER(inetCidrRouteNumber, inetCidrRouteNumber)
ITERATOR_TABLE(inetCidrRouteTable, inetCidrRouteTable)

void init_inetCidrRoute(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  inetCidrRoute.entering(context, __func__);
  inetCidrRoute.traceInitializing(__func__, inetCidrRouteNumber.identifier, context);
  Modules::initializeScalar(inetCidrRouteNumber, handle_inetCidrRouteNumber, __func__, config, context);
  initialize_table_inetCidrRouteTable(config, context);
  inetCidrRoute.entered(context);
}

MIB_MODULE(inetCidrRoute, inetCidrRoute)

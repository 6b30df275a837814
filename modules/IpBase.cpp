#include "modules/IpBase.h"

#include "conversions/SnmpConversions.h"
#include "ipsnmp/IpMib.h"
#include "modules/Scalar.h"
#include "snmp/SnmpUtil.h"

namespace {

using Modules::column;
using Modules::s32ToAsnInteger;
using Modules::vantuIpAddrToAsnOctetString;

Kel::TraceHandle traceHandle("IpBase");
Modules::Module ipBase("IpBase", traceHandle);

constexpr int readWrite = HANDLER_CAN_RWRITE;
// Ahead of the agent's default of 127, so that these win over any other registration of the same object.
constexpr int scalarPriority = 64;

template <class RoutingConfig>
int encodeRouting(const Kel::Entity& entity, unsigned char* buffer, int length) {
  return IpRoutingToAsnInteger(static_cast<const RoutingConfig&>(entity).routing(), buffer, length);
}

const Modules::Scalar ipForwarding{.module = ipBase,
                                   .name = "ipForwarding",
                                   .identifier = {1, 3, 6, 1, 2, 1, 4, 1},
                                   .modes = readWrite,
                                   .priority = scalarPriority,
                                   .source = Modules::entitySource<Routing::Config>(
                                       "Varnix/routing/config", "Varnix/routing/vrf/config.vrfConfig/%s"),
                                   .attribute = "routing",
                                   .asnType = ASN_INTEGER,
                                   .conversion = "IpRoutingToAsnInteger",
                                   .encode = encodeRouting<Routing::Config>};

const Modules::Scalar ipv6IpForwarding{
    .module = ipBase,
    .name = "ipv6IpForwarding",
    .identifier = {1, 3, 6, 1, 2, 1, 4, 25},
    .modes = readWrite,
    .priority = scalarPriority,
    .source = Modules::entitySource<Routing6::Config>("Varnix/routing6/config", nullptr),
    .attribute = "routing",
    .asnType = ASN_INTEGER,
    .conversion = "IpRoutingToAsnInteger",
    .encode = encodeRouting<Routing6::Config>};

const auto ipMibSource = Modules::entitySource<IpSnmp::IpMib>("snmp/ip/ipmib", "snmp/ip/vrf.mibs/%s.ipmib");

struct IpAddrRows {
  using Cache = IpSnmp::IpMib;
  using Row = IpSnmp::IpAddrEntry;
  using Key = Vantu::IpAddr;
  static const auto& collection(const Cache& cache) { return cache.ipAddrTable(); }
  static Key key(const Row& row) { return row.ipAdEntAddr(); }
};
using IpAddrRow = IpAddrRows::Row;

constexpr int ipAddrBcastBit = 0;
constexpr int ipAddrReasmMaxSize = 65535;  // bytes, the longest datagram

const auto ipAddrTable = Modules::makeIteratorTable<Modules::OrderedWalker<IpAddrRows>>(
    {.module = ipBase,
     .name = "ipAddrTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 20},
     .modes = HANDLER_CAN_RONLY,
     .source = ipMibSource},
    Modules::Index(
        "Vantu::IpAddr", +[](const Vantu::IpAddr& addr) { return addr; },
        Modules::ipAddressIndex<Vantu::IpAddr>("ipAdEntAddr", "ipAdEntAddr",
                                               [](const Vantu::IpAddr& key) { return key; })),
    {column<IpAddrRow>(1, "ipAdEntAddr", ASN_IPADDRESS, vantuIpAddrToAsnOctetString, "ipAdEntAddr",
                       [](const IpAddrRow& row) { return row.ipAdEntAddr(); }),
     column<IpAddrRow>(2, "ipAdEntIfIndex", ASN_INTEGER, s32ToAsnInteger, "ipAdEntIfIndex",
                       [](const IpAddrRow& row) { return static_cast<int>(row.ipAdEntIfIndex()); }),
     column<IpAddrRow>(3, "ipAdEntNetMask", ASN_IPADDRESS, vantuIpAddrToAsnOctetString, "ipAdEntNetMask",
                       [](const IpAddrRow& row) { return row.ipAdEntNetMask(); }),
     column<IpAddrRow>(4, "ipAdEntBcastAddr", ASN_INTEGER, s32ToAsnInteger, "",
                       [](const IpAddrRow&) { return ipAddrBcastBit; }),
     column<IpAddrRow>(5, "ipAdEntReasmMaxSize", ASN_INTEGER, s32ToAsnInteger, "",
                       [](const IpAddrRow&) { return ipAddrReasmMaxSize; })});

}  // namespace

MIB_SCALAR_HANDLER(ipForwarding, ipForwarding)
MIB_SCALAR_HANDLER(ipv6IpForwarding, ipv6IpForwarding)
ITERATOR_TABLE(ipAddrTable, ipAddrTable)

namespace {

using InitializeTable = void (*)(Snmp::Config::PtrConst config, Kel::String context);
// In the order in which they are registered.
constexpr InitializeTable tables[] = {initialize_table_ipAddrTable};

}  // namespace

void init_IpBase(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  ipBase.entering(context, __func__);
  for (const auto* scalar : {&ipForwarding, &ipv6IpForwarding}) {
    ipBase.traceInitializing(__func__, scalar->identifier, context);
  }
  Modules::initializeScalar(ipForwarding, handle_ipForwarding, __func__, context);
  Modules::initializeScalar(ipv6IpForwarding, handle_ipv6IpForwarding, __func__, context);
  for (const auto initializeTable : tables) initializeTable(config, context);
  ipBase.entered(context);
}

void unregister_IpBase(Kel::String context) {
  ipBase.leave(context);
}

MIB_MODULE(IpBase)

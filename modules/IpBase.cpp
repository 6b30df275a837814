#include "modules/IpBase.h"

#include "conversions/SnmpConversions.h"
#include "modules/IpBaseTables.h"
#include "modules/frame/Scalar.h"
#include "snmp/SnmpUtil.h"
#include "varnix/Routing.h"

namespace {

Kel::TraceHandle ipBaseTrace("IpBase");

}  // namespace

Modules::Module IpBase::module("IpBase", ipBaseTrace);

namespace {

constexpr int readWrite = HANDLER_CAN_RWRITE;

template <class RoutingConfig>
int encodeRouting(const Kel::Entity& entity, unsigned char* buffer, int length) {
  return IpRoutingToAsnInteger(static_cast<const RoutingConfig&>(entity).routing(), buffer, length);
}

const Modules::Scalar ipForwarding{.module = IpBase::module,
                                   .name = "ipForwarding",
                                   .identifier = {1, 3, 6, 1, 2, 1, 4, 1},
                                   .modes = readWrite,
                                   .priority = Modules::scalarPriority,
                                   .source = Modules::entitySource<Routing::Config>(
                                       "Varnix/routing/config", "Varnix/routing/vrf/config.vrfConfig/%s"),
                                   .attribute = "routing",
                                   .asnType = ASN_INTEGER,
                                   .conversion = "IpRoutingToAsnInteger",
                                   .encode = encodeRouting<Routing::Config>};

const Modules::Scalar ipv6IpForwarding{
    .module = IpBase::module,
    .name = "ipv6IpForwarding",
    .identifier = {1, 3, 6, 1, 2, 1, 4, 25},
    .modes = readWrite,
    .priority = Modules::scalarPriority,
    .source = Modules::entitySource<Routing6::Config>("Varnix/routing6/config", nullptr),
    .attribute = "routing",
    .asnType = ASN_INTEGER,
    .conversion = "IpRoutingToAsnInteger",
    .encode = encodeRouting<Routing6::Config>};

}  // namespace

MIB_SCALAR_HANDLER(ipForwarding, ipForwarding)
MIB_SCALAR_HANDLER(ipv6IpForwarding, ipv6IpForwarding)

namespace {

using InitializeTable = void (*)(Snmp::Config::PtrConst config, Kel::String context);
// In the order in which they are registered.
constexpr InitializeTable tables[] = {initialize_table_ipAddrTable, initialize_table_ipNetToMediaTable,
                                      initialize_table_ipAddressPrefixTable, initialize_table_ipAddressTable,
                                      initialize_table_ipNetToPhysicalTable};

}  // namespace

void init_IpBase(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  IpBase::module.entering(context, __func__);
  for (const auto* scalar : {&ipForwarding, &ipv6IpForwarding}) {
    IpBase::module.traceInitializing(__func__, scalar->identifier, context);
  }
  Modules::initializeScalar(ipForwarding, handle_ipForwarding, __func__, config, context);
  Modules::initializeScalar(ipv6IpForwarding, handle_ipv6IpForwarding, __func__, config, context);
  for (const auto initializeTable : tables) initializeTable(config, context);
  IpBase::module.entered(context);
}

void unregister_IpBase(Kel::String context) {
  IpBase::module.leave(context);
}

MIB_MODULE(IpBase)

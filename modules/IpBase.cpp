#include "modules/IpBase.h"

#include "conversions/SnmpConversions.h"
#include "modules/frame/Scalar.h"
#include "snmp/SnmpUtil.h"
#include "varnix/Routing.h"

namespace {

Kel::TraceHandle ipBaseTrace("IpBase");

}  // namespace

Modules::Module IpBase::module("IpBase", ipBaseTrace);

namespace {

template <class RoutingConfig>
int encodeRouting(const Kel::Entity& entity, unsigned char* buffer, int length) {
  return IpRoutingToAsnInteger(static_cast<const RoutingConfig&>(entity).routing(), buffer, length);
}

const Modules::Scalar ipForwarding{.module = IpBase::module,
                                   .name = "ipForwarding",
                                   .identifier = {1, 3, 6, 1, 2, 1, 4, 1},
                                   .modes = HANDLER_CAN_RWRITE,
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
    .modes = HANDLER_CAN_RWRITE,
    .priority = Modules::scalarPriority,
    .source = Modules::entitySource<Routing6::Config>("Varnix/routing6/config", nullptr),
    .attribute = "routing",
    .asnType = ASN_INTEGER,
    .conversion = "IpRoutingToAsnInteger",
    .encode = encodeRouting<Routing6::Config>};

}  // namespace

MIB_SCALAR_HANDLER(ipForwarding, ipForwarding)
MIB_SCALAR_HANDLER(ipv6IpForwarding, ipv6IpForwarding)

// Defined in the other sources of this module.
void initialize_table_ipAddrTable(Snmp::Config::PtrConst config, Kel::String context);
void initialize_table_ipNetToMediaTable(Snmp::Config::PtrConst config, Kel::String context);
void initialize_table_ipAddressPrefixTable(Snmp::Config::PtrConst config, Kel::String context);
void initialize_table_ipAddressTable(Snmp::Config::PtrConst config, Kel::String context);
void initialize_table_ipNetToPhysicalTable(Snmp::Config::PtrConst config, Kel::String context);

void init_IpBase(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  IpBase::module.entering(context, __func__);
  IpBase::module.traceInitializing(__func__, ipForwarding.identifier, context);
  IpBase::module.traceInitializing(__func__, ipv6IpForwarding.identifier, context);
  Modules::initializeScalar(ipForwarding, handle_ipForwarding, __func__, config, context);
  Modules::initializeScalar(ipv6IpForwarding, handle_ipv6IpForwarding, __func__, config, context);
  initialize_table_ipAddrTable(config, context);
  initialize_table_ipNetToMediaTable(config, context);
  initialize_table_ipAddressPrefixTable(config, context);
  initialize_table_ipAddressTable(config, context);
  initialize_table_ipNetToPhysicalTable(config, context);
  IpBase::module.entered(context);
}

MIB_MODULE(IpBase, IpBase::module)

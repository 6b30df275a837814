#include "modules/ipMIB.h"

#include "modules/frame/Scalar.h"
#include "snmp/HandlerRegistration.h"
#include "snmp/SnmpUtil.h"
#include "varnix/Routing.h"

namespace {

Kel::TraceHandle ipMIBTrace("Snmp");

}  // namespace

Modules::Module IpMibObjects::module("ipMIB", ipMIBTrace);

namespace {

using Modules::column;

// ---- scalars

// A default of packets; no instance while the publisher does not know it.
template <const std::uint32_t& (Routing::Config::*attribute)() const>
std::optional<int> encodeDefault(const Kel::Entity& entity, unsigned char* buffer, int length) {
  const auto value = (static_cast<const Routing::Config&>(entity).*attribute)();
  if (value == 0) return std::nullopt;
  return S32ToAsnIntegerF(static_cast<int>(value), buffer, length);
}

template <const double& (IpSnmp::IpMib::*attribute)() const>
std::optional<int> encodeLastChange(const Kel::Entity& entity, unsigned char* buffer, int length) {
  return NowSecondsToUptimeTimeTicksF((static_cast<const IpSnmp::IpMib&>(entity).*attribute)(), buffer, length);
}

Modules::Scalar packetDefault(const char* name, oid number, const char* attribute,
                              decltype(Modules::Scalar::encode) encode) {
  return {.module = IpMibObjects::module,
          .name = name,
          .identifier = {1, 3, 6, 1, 2, 1, 4, number},
          .modes = HANDLER_CAN_RONLY,
          .priority = Modules::scalarPriority,
          .source = Modules::entitySource<Routing::Config>("Varnix/routing/config",
                                                           "Varnix/routing/vrf/config.vrfConfig/%s"),
          .attribute = attribute,
          .asnType = ASN_INTEGER,
          .conversion = "S32ToAsnInteger",
          .encode = std::move(encode),
          .group = IpMibObjects::group};
}

Modules::Scalar lastChange(const char* name, std::initializer_list<oid> numbers,
                           decltype(Modules::Scalar::encode) encode) {
  Modules::Scalar scalar{.module = IpMibObjects::module,
                         .name = name,
                         .identifier = {1, 3, 6, 1, 2, 1, 4},
                         .modes = HANDLER_CAN_RONLY,
                         .priority = Modules::scalarPriority,
                         .source = IpMibObjects::source(),
                         .attribute = name,
                         .asnType = ASN_TIMETICKS,
                         .conversion = "NowSecondsToUptimeTimeTicks",
                         .encode = std::move(encode),
                         .group = IpMibObjects::group};
  scalar.identifier.insert(scalar.identifier.end(), numbers);
  return scalar;
}

const auto ipDefaultTTL =
    packetDefault("ipDefaultTTL", 2, "defaultTtl", encodeDefault<&Routing::Config::defaultTtl>);
const auto ipReasmTimeout =
    packetDefault("ipReasmTimeout", 13, "reasmTimeout", encodeDefault<&Routing::Config::reasmTimeout>);
const auto ipv6IpDefaultHopLimit =
    packetDefault("ipv6IpDefaultHopLimit", 26, "defaultHopLimit", encodeDefault<&Routing::Config::defaultHopLimit>);
const auto ipv4InterfaceTableLastChange = lastChange(
    "ipv4InterfaceTableLastChange", {27}, encodeLastChange<&IpSnmp::IpMib::ipv4InterfaceTableLastChange>);
const auto ipv6InterfaceTableLastChange = lastChange(
    "ipv6InterfaceTableLastChange", {29}, encodeLastChange<&IpSnmp::IpMib::ipv6InterfaceTableLastChange>);
const auto ipIfStatsTableLastChange =
    lastChange("ipIfStatsTableLastChange", {31, 2}, encodeLastChange<&IpSnmp::IpMib::ipIfStatsTableLastChange>);

// ---- the tables of interfaces

struct InterfaceRows {
  using Cache = IpSnmp::IpMib;
  using Row = IpSnmp::IpInterfaceEntry;
  using Key = IpSnmp::IpVersionIfIndex;
  static const auto& collection(const Cache& cache) { return cache.ipInterfaceTable(); }
  static const Key& key(const Row& row) { return row.index(); }
};
using InterfaceRow = InterfaceRows::Row;

// The rows of one IP version, by ifIndex.
template <Ip::IpVersion version>
class InterfaceWalker {
 public:
  using Cache = InterfaceRows::Cache;
  using Row = InterfaceRow;
  using Key = unsigned;

  explicit InterfaceWalker(Kel::Ptr<const Cache> cache, Key ifIndex = 0)
      : all_(std::move(cache), IpSnmp::IpVersionIfIndex(version, ifIndex)) {}

  bool isAtEnd() const { return all_.isAtEnd() || row().index().ipVersion() != version; }
  const Row& row() const { return all_.row(); }
  Key key() const { return row().index().ifIndex(); }
  void advance() { all_.advance(); }

 private:
  Modules::OrderedWalker<InterfaceRows> all_;
};

// A column of the parameters. One that is 0 is not known.
template <class Value, class Read>
Modules::Column<InterfaceRow> parameter(unsigned number, const char* object, unsigned char asnType,
                                        const Modules::Conversion<Value>& conversion, const char* attribute,
                                        Read read) {
  return column<InterfaceRow>(number, object, asnType, conversion, attribute,
                              [read](const InterfaceRow& row) -> std::optional<Value> {
                                const auto protocol = row.protocol();
                                const Value value = protocol ? read(protocol->parameters()) : Value();
                                return value == 0 ? std::nullopt : std::optional(value);
                              });
}

constexpr int up = 1, down = 2;
constexpr int forwarding = 1, notForwarding = 2;

int enableStatus(const Ip::IntfParameters& parameters) {
  return parameters.isEnabled() ? up : down;
}
unsigned retransmitTime(const Ip::IntfParameters& parameters) {
  return parameters.retransmitTime();
}

auto ifIndexIndex(const char* object) {
  return Modules::Index(
      "unsigned", +[](const unsigned& ifIndex) { return ifIndex; },
      Modules::unsignedIntegerIndex<unsigned>(object, "ifIndex", [](const unsigned& ifIndex) { return ifIndex; }));
}

const auto ipv4InterfaceTable = Modules::makeIteratorTable<InterfaceWalker<Ip::ipVersion4>>(
    {.module = IpMibObjects::module,
     .name = "ipv4InterfaceTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 28},
     .modes = HANDLER_CAN_RONLY,
     .source = IpMibObjects::source(),
     .group = IpMibObjects::group},
    ifIndexIndex("ipv4InterfaceIfIndex"),
    {parameter(2, "ipv4InterfaceReasmMaxSize", ASN_INTEGER, Modules::s32ToAsnInteger, "reasmMaxSize",
               [](const auto& parameters) { return static_cast<int>(parameters.reasmMaxSize()); }),
     parameter(3, "ipv4InterfaceEnableStatus", ASN_INTEGER, Modules::s32ToAsnInteger, "isEnabled", enableStatus),
     parameter(4, "ipv4InterfaceRetransmitTime", ASN_UNSIGNED, Modules::u32ToAsnUnsigned, "retransmitTime",
               retransmitTime)});

const auto ipv6InterfaceTable = Modules::makeIteratorTable<InterfaceWalker<Ip::ipVersion6>>(
    {.module = IpMibObjects::module,
     .name = "ipv6InterfaceTable",
     .identifier = {1, 3, 6, 1, 2, 1, 4, 30},
     .modes = HANDLER_CAN_RONLY,
     .source = IpMibObjects::source(),
     .group = IpMibObjects::group},
    ifIndexIndex("ipv6InterfaceIfIndex"),
    {parameter(2, "ipv6InterfaceReasmMaxSize", ASN_UNSIGNED, Modules::u32ToAsnUnsigned, "reasmMaxSize",
               [](const auto& parameters) { return unsigned{parameters.reasmMaxSize()}; }),
     column<InterfaceRow>(3, "ipv6InterfaceIdentifier", ASN_OCTET_STR, Modules::stringToAsnOctetString,
                          "identifier", [](const InterfaceRow& row) { return row.identifier(); }),
     parameter(5, "ipv6InterfaceEnableStatus", ASN_INTEGER, Modules::s32ToAsnInteger, "isEnabled", enableStatus),
     parameter(6, "ipv6InterfaceReachableTime", ASN_UNSIGNED, Modules::u32ToAsnUnsigned, "reachableTime",
               [](const auto& parameters) { return unsigned{parameters.reachableTime()}; }),
     parameter(7, "ipv6InterfaceRetransmitTime", ASN_UNSIGNED, Modules::u32ToAsnUnsigned, "retransmitTime",
               retransmitTime),
     parameter(8, "ipv6InterfaceForwarding", ASN_INTEGER, Modules::s32ToAsnInteger, "forwarding",
               [](const auto& parameters) { return parameters.forwarding() ? forwarding : notForwarding; })});

}  // namespace

MIB_SCALAR_HANDLER(ipDefaultTTL, ipDefaultTTL)
MIB_SCALAR_HANDLER(ipReasmTimeout, ipReasmTimeout)
MIB_SCALAR_HANDLER(ipv6IpDefaultHopLimit, ipv6IpDefaultHopLimit)
MIB_SCALAR_HANDLER(ipv4InterfaceTableLastChange, ipv4InterfaceTableLastChange)
MIB_SCALAR_HANDLER(ipv6InterfaceTableLastChange, ipv6InterfaceTableLastChange)
MIB_SCALAR_HANDLER(ipIfStatsTableLastChange, ipIfStatsTableLastChange)

ITERATOR_TABLE(ipv4InterfaceTable, ipv4InterfaceTable)
ITERATOR_TABLE(ipv6InterfaceTable, ipv6InterfaceTable)

// Defined in the other sources of this module.
void initialize_table_ipIfStatsTable(Snmp::Config::PtrConst config, Kel::String context);
void initialize_table_ipDefaultRouterTable(Snmp::Config::PtrConst config, Kel::String context);

void init_ipMIB(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  IpMibObjects::module.entering(context, __func__);
  const auto initialize = [&](const Modules::Scalar& scalar, Netsnmp_Node_Handler* handler) {
    IpMibObjects::module.traceInitializing("init_ipMIB", scalar.identifier, context);
    Modules::initializeScalar(scalar, handler, "init_ipMIB", config, context);
  };
  // A stock snmpd's own have the same values. With ours above them, its GETNEXT finds its own ipForwarding while the gate
  // lets ours be unanswered.
  if (!context.empty() || !Snmp::takesPrecedence()) {
    initialize(ipDefaultTTL, handle_ipDefaultTTL);
    initialize(ipReasmTimeout, handle_ipReasmTimeout);
    initialize(ipv6IpDefaultHopLimit, handle_ipv6IpDefaultHopLimit);
  }
  initialize(ipv4InterfaceTableLastChange, handle_ipv4InterfaceTableLastChange);
  initialize(ipv6InterfaceTableLastChange, handle_ipv6InterfaceTableLastChange);
  initialize(ipIfStatsTableLastChange, handle_ipIfStatsTableLastChange);
  initialize_table_ipv4InterfaceTable(config, context);
  initialize_table_ipv6InterfaceTable(config, context);
  initialize_table_ipIfStatsTable(config, context);
  initialize_table_ipDefaultRouterTable(config, context);
  IpMibObjects::module.entered(context);
}

MIB_MODULE(ipMIB, IpMibObjects::module)

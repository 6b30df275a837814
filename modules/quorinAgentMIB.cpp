#include <algorithm>
#include <ctime>

#include "agentstate/AgentMib.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"
#include "modules/frame/Scalar.h"
#include "snmp/SnmpUtil.h"

namespace {

using AgentSnmp::AgentMib;
using Modules::column;

Kel::TraceHandle agentMibTrace("AgentMib");
Modules::Module agentMib("quorinAgentMIB", agentMibTrace, Modules::Module::Facts::own);

constexpr const char* agentMibPath = "snmp/agentmib";
const auto agentMibSource = Modules::entitySource<AgentMib>(agentMibPath, nullptr);

constexpr Modules::Conversion<Kel::Seconds> utcSecondsToDateAndTime{"UtcSecondsToDateAndTime",
                                                                    UtcSecondsToDateAndTimeF};

// As Gauge32: at most 2^32-1.
unsigned gauge(double value) {
  return static_cast<unsigned>(std::clamp(value, 0.0, 4294967295.0));
}

// The highest Gauge32 if the time is unknown.
unsigned secondsSince(Kel::Seconds time) {
  constexpr double unknown = 4294967295.0;
  return gauge(time == 0 ? unknown : static_cast<double>(std::time(nullptr)) - time);
}

int truthValue(bool value) {
  return value ? 1 : 2;
}

// quorinAgentObjects.`number`.
template <class Value, class Read>
Modules::Scalar scalar(oid number, const char* name, unsigned char asnType, const char* attribute,
                       const Modules::Conversion<Value>& conversion, Read read) {
  return {
      .module = agentMib,
      .name = name,
      .identifier = Modules::enterpriseObject({4, 1, number}),
      .modes = HANDLER_CAN_RONLY,
      .priority = Modules::scalarPriority,
      .source = agentMibSource,
      .attribute = attribute,
      .asnType = asnType,
      .conversion = conversion.name,
      .encode = [convert = conversion.convert, read](const Kel::Entity& entity, unsigned char* buffer, int length) {
        return convert(read(static_cast<const AgentMib&>(entity)), buffer, length);
      }};
}

#define STATE(number, object, attr)                                    \
  scalar(number, object, ASN_INTEGER, #attr, Modules::s32ToAsnInteger, \
         [](const AgentMib& mib) { return int{mib.attr()}; })
#define TRUTH(number, object, attr)                                    \
  scalar(number, object, ASN_INTEGER, #attr, Modules::s32ToAsnInteger, \
         [](const AgentMib& mib) { return truthValue(mib.attr()); })
#define TIME(number, object, attr)                                      \
  scalar(number, object, ASN_OCTET_STR, #attr, utcSecondsToDateAndTime, \
         [](const AgentMib& mib) { return mib.attr(); })
#define AGE(number, object, attr)                                     \
  scalar(number, object, ASN_GAUGE, #attr, Modules::u32ToAsnUnsigned, \
         [](const AgentMib& mib) { return secondsSince(mib.attr()); })
#define GAUGE(number, object, attr, unit)                             \
  scalar(number, object, ASN_GAUGE, #attr, Modules::u32ToAsnUnsigned, \
         [](const AgentMib& mib) { return gauge(static_cast<double>(mib.attr()) / (unit)); })
#define COUNTED(number, object, attr)                                 \
  scalar(number, object, ASN_COUNTER, #attr, Modules::u64ToCounter32, \
         [](const AgentMib& mib) { return std::uint64_t{mib.attr()}; })

const std::vector<Modules::Scalar> scalars{
    STATE(1, "quorinAgentPublisherState", publisherState),
    scalar(2, "quorinAgentPublisherName", ASN_OCTET_STR, "publisherName", Modules::stringToAsnOctetString,
           [](const AgentMib& mib) -> const Kel::String& { return mib.publisherName(); }),
    TIME(3, "quorinAgentPublisherStart", publisherStarted),
    AGE(4, "quorinAgentHeartbeatAge", publisherLastSeen),
    AGE(5, "quorinAgentCommitAge", lastCommit),
    TIME(6, "quorinAgentLastPass", lastPass),
    TRUTH(7, "quorinAgentServing", isServing),
    TRUTH(8, "quorinAgentStale", isStale),
    GAUGE(9, "quorinAgentStoreSize", storeBytes, 1024),
    COUNTED(10, "quorinAgentDamage", damageCount),
    scalar(11, "quorinAgentVrfs", ASN_GAUGE, "vrfTable", Modules::u32ToAsnUnsigned,
           [](const AgentMib& mib) { return gauge(static_cast<double>(mib.vrfTable().size())); }),
    GAUGE(12, "quorinAgentContexts", contexts, 1),
    GAUGE(13, "quorinAgentIpv4Routes", routes, 1),
    GAUGE(14, "quorinAgentIpv6Routes", routes6, 1),
    GAUGE(15, "quorinAgentIpv4Neighbours", neighbours, 1),
    GAUGE(16, "quorinAgentIpv6Neighbours", neighbours6, 1),
    COUNTED(17, "quorinAgentRequests", requests),
    GAUGE(18, "quorinAgentLongestTurn", longestTurn, 1e-6)};

#undef STATE
#undef TRUTH
#undef TIME
#undef AGE
#undef GAUGE
#undef COUNTED

struct AgentVrfRows {
  using Cache = AgentMib;
  using Row = AgentSnmp::VrfEntry;
  using Key = Snmp::String;
  static const auto& collection(const Cache& cache) { return cache.vrfTable(); }
  static const Key& key(const Row& row) { return row.vrfName(); }
};

const auto quorinAgentVrfTable = Modules::makeIteratorTable<Modules::OrderedWalker<AgentVrfRows>>(
    {.module = agentMib,
     .name = "quorinAgentVrfTable",
     .identifier = Modules::enterpriseObject({4, 1, 19}),
     .modes = HANDLER_CAN_RONLY,
     .source = agentMibSource},
    Modules::Index(
        "Snmp::String", +[](const Snmp::String& name) { return name; },
        Modules::octetStringIndex<Snmp::String>(
            "quorinAgentVrfName", "vrfName", [](const Snmp::String& key) -> const Snmp::String& { return key; })),
    {column<AgentVrfRows::Row>(2, "quorinAgentVrfReadiness", ASN_INTEGER, Modules::s32ToAsnInteger, "readiness",
                               [](const auto& row) { return int{row.readiness()}; })});

// The scalars share a handler, which finds the one that a registration serves by its number.
extern "C" int handle_quorinAgentScalar(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                                        netsnmp_agent_request_info* requestInfo, netsnmp_request_info* requests) {
  const auto number = registration->rootoid[scalars.front().identifier.size() - 1];
  return Modules::handleScalar(scalars[number - 1], __func__, handler, registration, requestInfo, requests);
}

}  // namespace

ITERATOR_TABLE(quorinAgentVrfTable, quorinAgentVrfTable)

void init_quorinAgentMIB(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  agentMib.entering(context, __func__);
  for (const auto& scalar : scalars) agentMib.traceInitializing(__func__, scalar.identifier, context);
  for (const auto& scalar : scalars) {
    Modules::initializeScalar(scalar, handle_quorinAgentScalar, __func__, config, context);
  }
  initialize_table_quorinAgentVrfTable(config, context);
  agentMib.entered(context);
}

MIB_MODULE(quorinAgentMIB, agentMib)

#include "modules/frame/FactsGate.h"

#include "snmp/Facts.h"

namespace Modules {

namespace {

// A message calls the gate of each registration that it asks, and several times for some GETBULKs.
void countOnce(const netsnmp_agent_request_info* info) {
  static const netsnmp_pdu* lastPdu = nullptr;
  static long lastId = 0;
  const auto* const pdu = info->asp == nullptr ? nullptr : info->asp->pdu;
  if (pdu == nullptr || (pdu == lastPdu && pdu->reqid == lastId)) return;
  lastPdu = pdu;
  lastId = pdu->reqid;
  Snmp::countRequest();
}

extern "C" int quorinFactsGate(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                               netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  countOnce(info);
  const bool isReading = info->mode == MODE_GET || info->mode == MODE_GETNEXT || info->mode == MODE_GETBULK;
  const bool isFedByPublisher = handler->myvoid != nullptr;
  if (Snmp::areFactsServed() || !isReading || !isFedByPublisher) {
    return netsnmp_call_next_handler(handler, registration, info, requests);
  }
  if (info->mode != MODE_GET) return SNMP_ERR_NOERROR;
  for (auto* request = requests; request != nullptr; request = request->next) {
    if (request->processed == 0) netsnmp_set_request_error(info, request, SNMP_NOSUCHINSTANCE);
  }
  return SNMP_ERR_NOERROR;
}

}  // namespace

bool injectFactsGate(netsnmp_handler_registration* registration, bool isFedByPublisher) {
  auto* const gate = netsnmp_create_handler("quorinFacts", quorinFactsGate);
  if (gate == nullptr) return false;
  static char mark;
  gate->myvoid = isFedByPublisher ? &mark : nullptr;
  if (netsnmp_inject_handler(registration, gate) == SNMPERR_SUCCESS) return true;
  netsnmp_handler_free(gate);
  return false;
}

}  // namespace Modules

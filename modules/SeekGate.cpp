#include "modules/SeekGate.h"

#include <utility>

namespace Modules {

namespace {

bool gateIsOn = true;
// The request that the helper is at work on, and its mode; null between requests.
const netsnmp_table_request_info* gateHint = nullptr;
int gateMode = 0;

extern "C" int quorinSeekGate(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                              netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  const bool isSearch = info->mode == MODE_GET || info->mode == MODE_GETNEXT || info->mode == MODE_SET_RESERVE1;
  const bool isAlone = requests->next == nullptr;
  const auto* hint = gateIsOn && isSearch && isAlone ? netsnmp_extract_table_info(requests) : nullptr;
  const auto* outerHint = std::exchange(gateHint, hint);
  const int outerMode = std::exchange(gateMode, info->mode);
  const int result = netsnmp_call_next_handler(handler, registration, info, requests);
  gateHint = outerHint;
  gateMode = outerMode;
  return result;
}

}  // namespace

std::optional<SeekGate::Asked> SeekGate::asked(const netsnmp_table_request_info* hint) {
  if (hint == nullptr || hint != gateHint) return std::nullopt;
  return Asked{{hint->index_oid, hint->index_oid_len}, gateMode == MODE_GETNEXT};
}

bool SeekGate::inject(netsnmp_handler_registration* registration) {
  auto* const gate = netsnmp_create_handler("quorin_seek_gate", quorinSeekGate);
  if (gate == nullptr) return false;
  if (netsnmp_inject_handler_before(registration, gate, TABLE_ITERATOR_NAME) == SNMPERR_SUCCESS) return true;
  netsnmp_handler_free(gate);
  return false;
}

void SeekGate::isOnIs(bool on) {
  gateIsOn = on;
}

}  // namespace Modules

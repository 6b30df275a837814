#include "modules/frame/SeekGate.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace Modules {

namespace {

bool isGateEnabled = true;
// The request being served, and its mode; null between requests.
const netsnmp_table_request_info* gateHint = nullptr;
int gateMode = 0;
bool isGateAnswerless = false;  // the gate found no answer, so the helper calls the table again
bool hasWalkGivenUp = false;

extern "C" {
void quorinFreeIndex(void* index) {
  snmp_free_varbind(static_cast<netsnmp_variable_list*>(index));
}
void* quorinCloneIndex(void* index) {
  return snmp_clone_varbind(static_cast<netsnmp_variable_list*>(index));
}
}

// The variables that rows write their index into. Null without memory.
netsnmp_variable_list* indexOf(netsnmp_mib_handler* gate, const netsnmp_iterator_info* table) {
  if (gate->myvoid == nullptr) gate->myvoid = snmp_clone_varbind(table->table_reginfo->indexes);
  return static_cast<netsnmp_variable_list*>(gate->myvoid);
}

struct Name {
  oid oids[MAX_OID_LEN];
  std::size_t length = 0;
};

// Writes the name of a column's object. Returns false if it is too long.
bool buildName(Name& name, const netsnmp_handler_registration* registration, unsigned column,
               netsnmp_variable_list* index) {
  oid entry[MAX_OID_LEN];
  const std::size_t length = registration->rootoid_len + 2;
  if (length > MAX_OID_LEN) return false;
  std::copy_n(registration->rootoid, registration->rootoid_len, entry);
  entry[length - 2] = 1;
  entry[length - 1] = column;
  return build_oid_noalloc(name.oids, MAX_OID_LEN, &name.length, entry, length, index) == SNMPERR_SUCCESS;
}

// Returns the data context of the first row, and its object's name, if that row answers the request; null otherwise.
void* answeringRow(netsnmp_mib_handler* gate, const netsnmp_handler_registration* registration,
                   netsnmp_request_info* request, netsnmp_table_request_info* asked, Name& name) {
  auto* const table = static_cast<netsnmp_iterator_info*>(gate->next->myvoid);
  auto* const index = indexOf(gate, table);
  if (index == nullptr) return nullptr;
  void* loop = asked;
  void* data = nullptr;
  const auto* const row = table->get_first_data_point(&loop, &data, index, table);
  if (row != nullptr && buildName(name, registration, asked->colnum, index) &&
      snmp_oid_compare(name.oids, name.length, request->requestvb->name, request->requestvb->name_length) > 0) {
    data = table->make_data_context(loop, table);
  }
  if (loop != nullptr) table->free_loop_context_at_end(loop, table);
  return data;
}

// Answers a GETNEXT like the helper, with the table's own functions. None if the first row is not the answer: the
// caller passes the request to the helper, which calls the table again.
std::optional<int> answerNext(netsnmp_mib_handler* gate, netsnmp_handler_registration* registration,
                              netsnmp_agent_request_info* info, netsnmp_request_info* request,
                              netsnmp_table_request_info* asked) {
  const auto* const columns = asked->reg_info;
  if (gate->next->access_method != netsnmp_table_iterator_helper_handler || request->processed != 0 ||
      asked->colnum < columns->min_column || asked->colnum > columns->max_column) {
    return std::nullopt;
  }
  Name name;
  auto* const data = answeringRow(gate, registration, request, asked, name);
  isGateAnswerless = data == nullptr;
  if (data == nullptr) return std::nullopt;
  auto* const helper = gate->next;
  snmp_set_var_objid(request->requestvb, name.oids, name.length);
  netsnmp_request_add_list_data(request, netsnmp_create_data_list(TABLE_ITERATOR_NAME, data, nullptr));
  info->mode = MODE_GET;
  const int result = netsnmp_call_handler(helper->next, registration, info, request);
  info->mode = MODE_GETNEXT;
  netsnmp_request_remove_list_data(request, TABLE_ITERATOR_NAME);
  auto* const table = static_cast<netsnmp_iterator_info*>(helper->myvoid);
  table->free_data_context(data, table);
  return result;
}

extern "C" int quorinSeekGate(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                              netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  const bool isSearch = info->mode == MODE_GET || info->mode == MODE_GETNEXT || info->mode == MODE_SET_RESERVE1;
  const bool isAlone = requests->next == nullptr;
  auto* const hint = isGateEnabled && isSearch && isAlone ? netsnmp_extract_table_info(requests) : nullptr;
  const auto* outerHint = std::exchange(gateHint, hint);
  const int outerMode = std::exchange(gateMode, info->mode);
  const bool isOuterAnswerless = std::exchange(isGateAnswerless, false);
  hasWalkGivenUp = false;
  std::optional<int> result;
  if (hint != nullptr && info->mode == MODE_GETNEXT)
    result = answerNext(handler, registration, info, requests, hint);
  if (!result && !hasWalkGivenUp) result = netsnmp_call_next_handler(handler, registration, info, requests);
  if (std::exchange(hasWalkGivenUp, false) && info->mode == MODE_GETNEXT) {
    netsnmp_set_request_error(info, requests, SNMP_ERR_GENERR);
    result = SNMP_ERR_GENERR;
  }
  gateHint = outerHint;
  gateMode = outerMode;
  isGateAnswerless = isOuterAnswerless;
  return *result;
}

}  // namespace

std::optional<SeekGate::Asked> SeekGate::asked(const netsnmp_table_request_info* hint) {
  if (hint == nullptr || hint != gateHint) return std::nullopt;
  return Asked{{hint->index_oid, hint->index_oid_len}, gateMode == MODE_GETNEXT};
}

bool SeekGate::isAskedAgain() {
  return isGateAnswerless;
}

void SeekGate::walkGaveUp() {
  hasWalkGivenUp = true;
}

bool SeekGate::inject(netsnmp_handler_registration* registration) {
  auto* const gate = netsnmp_create_handler("quorin_seek_gate", quorinSeekGate);
  if (gate == nullptr) return false;
  gate->data_clone = quorinCloneIndex;
  gate->data_free = quorinFreeIndex;
  if (netsnmp_inject_handler_before(registration, gate, TABLE_ITERATOR_NAME) == SNMPERR_SUCCESS) return true;
  netsnmp_handler_free(gate);
  return false;
}

void SeekGate::setEnabled(bool enabled) {
  isGateEnabled = enabled;
}

}  // namespace Modules

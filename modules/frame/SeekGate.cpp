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

// Whether the row whose index is in `index` comes after the requested name. Sets the name of its object.
bool isBehind(const netsnmp_request_info* request, const netsnmp_handler_registration* registration,
              unsigned column, netsnmp_variable_list* index, Name& name) {
  return buildName(name, registration, column, index) &&
         snmp_oid_compare(name.oids, name.length, request->requestvb->name, request->requestvb->name_length) > 0;
}

// Passes the request to the handler after the helper, as a GET of the loop context's row.
int answerFrom(void* loop, const Name& name, netsnmp_mib_handler* helper,
               netsnmp_handler_registration* registration, netsnmp_agent_request_info* info,
               netsnmp_request_info* request) {
  auto* const table = static_cast<netsnmp_iterator_info*>(helper->myvoid);
  auto* const data = table->make_data_context(loop, table);
  if (data == nullptr) return SNMP_ERR_GENERR;
  snmp_set_var_objid(request->requestvb, name.oids, name.length);
  netsnmp_request_add_list_data(request, netsnmp_create_data_list(TABLE_ITERATOR_NAME, data, nullptr));
  info->mode = MODE_GET;
  const int result = netsnmp_call_handler(helper->next, registration, info, request);
  info->mode = MODE_GETNEXT;
  netsnmp_request_remove_list_data(request, TABLE_ITERATOR_NAME);
  table->free_data_context(data, table);
  return result;
}

// How many rows the message of this request has passed over so far: a message may have thousands of requests.
unsigned& spentOn(const netsnmp_agent_request_info& info) {
  static long transaction = -1;
  static unsigned passedOver = 0;
  if (transaction != info.asp->pdu->transid) {
    transaction = info.asp->pdu->transid;
    passedOver = 0;
  }
  return passedOver;
}

// Answers a GETNEXT like the helper, with the table's own functions. None if the first row is not the answer: the
// caller passes the request to the helper, which calls the table again.
//
// Rows without an instance of the object are passed over. If they are the last rows, the request keeps the name of the
// last one: the table helper then repeats it from there.
std::optional<int> answerNext(netsnmp_mib_handler* gate, netsnmp_handler_registration* registration,
                              netsnmp_agent_request_info* info, netsnmp_request_info* request,
                              netsnmp_table_request_info* asked) {
  const auto* const columns = asked->reg_info;
  auto* const helper = gate->next;
  if (helper->access_method != netsnmp_table_iterator_helper_handler || request->processed != 0 ||
      asked->colnum < columns->min_column || asked->colnum > columns->max_column) {
    return std::nullopt;
  }
  auto* const table = static_cast<netsnmp_iterator_info*>(helper->myvoid);
  auto* const index = indexOf(gate, table);
  std::optional<int> result;
  if (index == nullptr) return result;
  Name name;
  void* loop = asked;
  void* none = nullptr;
  const auto* row = table->get_first_data_point(&loop, &none, index, table);
  auto& spent = spentOn(*info);
  for (; row != nullptr && isBehind(request, registration, asked->colnum, index, name);
       row = table->get_next_data_point(&loop, &none, index, table)) {
    if (result) {  // the last row was passed over
      request->requestvb->type = ASN_NULL;
      request->processed = 0;
    }
    result = answerFrom(loop, name, helper, registration, info, request);
    if (request->requestvb->type != SNMP_NOSUCHINSTANCE) break;
    if (++spent >= SeekGate::maxPassedOver) {
      hasWalkGivenUp = true;
      break;
    }
  }
  if (loop != nullptr) table->free_loop_context_at_end(loop, table);
  isGateAnswerless = !result;
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

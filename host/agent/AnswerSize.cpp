#include "host/agent/AnswerSize.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

namespace Host {

namespace {

// net-snmp sets both when the variables of a GETBULK look too long, and again when the encoded answer is.
constexpr u_long tooLong = UCD_MSG_FLAG_BULK_TOOBIG | UCD_MSG_FLAG_FORWARD_ENCODE;

// Whether the request that is being answered is a GETBULK. net-snmp marks answers to GETNEXT as too long in the same way,
// and answers a request before it receives the next.
bool isGetBulk = false;

using Variables = std::vector<netsnmp_variable_list*>;

// The variables before the first one that net-snmp did not fill, since it stopped there.
Variables filledVariables(const netsnmp_pdu& pdu) {
  Variables filled;
  for (auto* each = pdu.variables; each != nullptr; each = each->next_variable) {
    if (each->type == ASN_PRIV_STOP || each->type == ASN_PRIV_RETRY || each->type == ASN_NULL) break;
    filled.push_back(each);
  }
  return filled;
}

void cut(netsnmp_pdu& pdu, Variables& variables, std::size_t count) {
  auto*& rest = count > 0 ? variables[count - 1]->next_variable : pdu.variables;
  snmp_free_varbind(rest);
  rest = nullptr;
  variables.resize(count);
}

// The length of the encoded variable; `limit` if it is longer.
std::size_t lengthOf(netsnmp_variable_list& variable, std::size_t limit) {
  std::vector<u_char> buffer(limit);
  std::size_t nameLength = variable.name_length, left = limit;
  const auto* const end = snmp_build_var_op(buffer.data(), variable.name, &nameLength, variable.type,
                                            variable.val_len, variable.val.string, &left);
  return end != nullptr ? static_cast<std::size_t>(end - buffer.data()) : limit;
}

// Encodes the message into the front of the buffer, which grows as needed.
int encode(netsnmp_session* session, netsnmp_pdu* pdu, u_char** buffer, std::size_t* size, std::size_t* length) {
  *length = 0;
  // From the last byte to the first, the library's default: only so it makes the buffer longer.
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_REVERSE_ENCODE, 1);
  const int status = snmp_build(buffer, size, length, session, pdu);
  if (status == 0) std::memmove(*buffer, *buffer + *size - *length, *length);
  return status;
}

int refuse(netsnmp_session& session) {
  session.s_snmp_errno = SNMPERR_TOO_LONG;
  return -1;
}

int encodeFitting(netsnmp_session* session, netsnmp_pdu* pdu, u_char** buffer, std::size_t* size,
                  std::size_t* length) {
  const auto longest = static_cast<std::size_t>(pdu->msgMaxSize);
  auto variables = filledVariables(*pdu);
  cut(*pdu, variables, variables.size());
  while (!variables.empty()) {
    const int status = encode(session, pdu, buffer, size, length);
    if (status != 0 || *length <= longest) return status;
    std::size_t count = variables.size();
    for (std::size_t shorter = 0; count > 0 && *length - shorter > longest;) {
      shorter += std::min(lengthOf(*variables[--count], *length), *length - shorter);
    }
    cut(*pdu, variables, count);
  }
  return refuse(*session);
}

// Called by net-snmp for each message that was received.
extern "C" int quorinTakeMessage(netsnmp_session* session, netsnmp_pdu* pdu, int result) {
  isGetBulk = pdu != nullptr && pdu->command == SNMP_MSG_GETBULK;
  return netsnmp_agent_check_parse(session, pdu, result);
}

// Called by net-snmp for each message that is sent. A message that is too long is built again with `tooLong`, if it
// answers a GETBULK; an answer to a GETNEXT may have the mark at once, and must not be cut.
extern "C" int quorinBuildMessage(netsnmp_session* session, netsnmp_pdu* pdu, u_char** buffer, std::size_t* size,
                                  std::size_t* length) {
  const bool mustFit = (pdu->flags & UCD_MSG_FLAG_BULK_TOOBIG) != 0;
  pdu->flags &= ~tooLong;
  if (pdu->command == SNMP_MSG_RESPONSE && pdu->errstat == SNMP_ERR_TOOBIG && pdu->version != SNMP_VERSION_1) {
    snmp_free_varbind(pdu->variables);
    pdu->variables = nullptr;
    pdu->errindex = 0;
  }
  if (mustFit && !isGetBulk) return refuse(*session);
  if (!mustFit) return encode(session, pdu, buffer, size, length);
  try {
    return encodeFitting(session, pdu, buffer, size, length);
  } catch (const std::bad_alloc&) {
    return refuse(*session);
  }
}

}  // namespace

bool receiveMessages(netsnmp_transport_s& transport) {
  netsnmp_session session;
  snmp_sess_init(&session);
  session.version = SNMP_DEFAULT_VERSION;
  session.callback = handle_snmp_packet;
  session.flags = static_cast<u_long>(netsnmp_ds_get_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_FLAGS));
  session.isAuthoritative = SNMP_SESS_AUTHORITATIVE;
  return snmp_add_full(&session, &transport, netsnmp_agent_check_packet, nullptr, quorinTakeMessage, nullptr,
                       quorinBuildMessage, nullptr, nullptr) != nullptr;
}

}  // namespace Host

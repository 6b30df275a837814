#include "SnmpClient.h"

#include <net-snmp/net-snmp-config.h>
// The library's headers need the configuration's.
#include <net-snmp/net-snmp-includes.h>

#include <type_traits>

namespace Bench {

static_assert(std::is_same_v<oid, Oid::value_type>);

SnmpClient::SnmpClient(const std::string& peer, const std::string& community, Patience patience) {
  netsnmp_session wanted;
  snmp_sess_init(&wanted);
  std::string peerText = peer;
  std::string communityText = community;
  wanted.version = SNMP_VERSION_2c;
  wanted.peername = peerText.data();
  wanted.community = reinterpret_cast<u_char*>(communityText.data());
  wanted.community_len = communityText.size();
  wanted.timeout = patience.timeoutMicroseconds;
  wanted.retries = patience.retries;
  session_ = snmp_sess_open(&wanted);
  if (!session_) throw std::runtime_error("cannot open an SNMP session to " + peer);
}

SnmpClient::~SnmpClient() {
  takeAnswer(nullptr);
  snmp_sess_close(session_);
}

void SnmpClient::takeAnswer(snmp_pdu* answer) {
  bindings_.clear();
  if (answer_ != nullptr) snmp_free_pdu(answer_);
  answer_ = answer;
  const auto* variable = answer != nullptr ? answer->variables : nullptr;
  for (; variable != nullptr; variable = variable->next_variable) {
    bindings_.push_back({Name(variable->name, variable->name_length), variable->type == SNMP_ENDOFMIBVIEW ||
                                                                          variable->type == SNMP_NOSUCHOBJECT ||
                                                                          variable->type == SNMP_NOSUCHINSTANCE});
  }
}

const std::vector<Binding>& SnmpClient::request(int command, std::span<const Oid> names, int maxRepetitions) {
  netsnmp_pdu* pdu = snmp_pdu_create(command);
  if (command == SNMP_MSG_GETBULK) {
    pdu->non_repeaters = 0;
    pdu->max_repetitions = maxRepetitions;
  }
  for (const auto& name : names) snmp_add_null_var(pdu, name.data(), name.size());
  netsnmp_pdu* answer = nullptr;
  const int status = snmp_sess_synch_response(session_, pdu, &answer);
  if (status != STAT_SUCCESS || !answer) throw Unanswered("no answer from the agent");
  takeAnswer(answer);
  if (answer->errstat != SNMP_ERR_NOERROR) {
    throw std::runtime_error(std::string("the agent answered ") +
                             snmp_errstring(static_cast<int>(answer->errstat)));
  }
  return bindings_;
}

const std::vector<Binding>& SnmpClient::get(const Oid& name) {
  return request(SNMP_MSG_GET, {&name, 1}, 0);
}

const std::vector<Binding>& SnmpClient::getNext(const Oid& name) {
  return request(SNMP_MSG_GETNEXT, {&name, 1}, 0);
}

const std::vector<Binding>& SnmpClient::getBulk(std::span<const Oid> names, int maxRepetitions) {
  return request(SNMP_MSG_GETBULK, names, maxRepetitions);
}

bool SnmpClient::answers(const Oid& name) {
  try {
    return !getNext(name).empty();
  } catch (const std::runtime_error&) {
    return false;
  }
}

}  // namespace Bench

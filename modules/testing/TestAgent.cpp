#include "modules/testing/TestAgent.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/library/snmp_transport.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <sstream>
#include <stdexcept>

namespace Modules {

namespace {

constexpr long answerMicroseconds = 20'000'000;  // an agent that takes longer does not answer at all

std::vector<Oid> hidden;

// What a view with the hidden subtrees excluded says of a name, or of everything below it.
int access(const view_parameters& asked) {
  const std::span<const oid> name(asked.name, asked.namelen);
  bool isPart = false;
  for (const auto& subtree : hidden) {
    const auto common = std::min(subtree.size(), name.size());
    const bool matches = std::equal(subtree.begin(), subtree.begin() + static_cast<long>(common), name.begin(),
                                    [](oid a, oid b) { return a == b || a == TestAgent::any; });
    if (matches && common == subtree.size()) return VACM_NOTINVIEW;
    isPart = isPart || (matches && asked.check_subtree != 0);
  }
  return isPart ? VACM_SUBTREE_UNKNOWN : VACM_SUCCESS;
}

// Allows every request but for what is hidden, in the context that its community names; asked after the access control
// of the agent.
int contextFromCommunity(int, int event, void* argument, void*) {
  auto& asked = *static_cast<view_parameters*>(argument);
  asked.errorcode = event == SNMPD_CALLBACK_ACM_CHECK_INITIAL ? VACM_SUCCESS : access(asked);
  auto* pdu = static_cast<view_parameters*>(argument)->pdu;
  const std::string community(reinterpret_cast<const char*>(pdu->community), pdu->community_len);
  if (community != "public") {
    std::free(pdu->contextName);
    pdu->contextName = strdup(community.c_str());
    pdu->contextNameLen = community.size();
  }
  return SNMP_ERR_NOERROR;
}

std::string valueText(const netsnmp_variable_list& variable) {
  switch (variable.type) {
    case SNMP_NOSUCHOBJECT:
      return "noSuchObject";
    case SNMP_NOSUCHINSTANCE:
      return "noSuchInstance";
    case SNMP_ENDOFMIBVIEW:
      return "endOfMibView";
    case ASN_INTEGER:
      return std::to_string(*variable.val.integer);
    case ASN_GAUGE:
    case ASN_COUNTER:
    case ASN_TIMETICKS:
      return std::to_string(static_cast<unsigned long>(*variable.val.integer));
    case ASN_COUNTER64:
      return std::to_string(variable.val.counter64->high << 32 | variable.val.counter64->low);
    case ASN_IPADDRESS:
      return fmt::format("{}", fmt::join(variable.val.string, variable.val.string + variable.val_len, "."));
    case ASN_OCTET_STR:
      return fmt::format("{:02x}", fmt::join(variable.val.string, variable.val.string + variable.val_len, ""));
    case ASN_OBJECT_ID:
      return textOf({variable.val.objid, variable.val.objid + variable.val_len / sizeof(oid)});
    default:
      return "";
  }
}

struct Exchange {
  bool isOver = false, isAnswered = false;
  Reply reply;
};

int replyArrived(int operation, netsnmp_session*, int, netsnmp_pdu* pdu, void* argument) {
  auto& exchange = *static_cast<Exchange*>(argument);
  exchange.isOver = true;
  exchange.isAnswered = operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE;
  if (!exchange.isAnswered) return 1;
  exchange.reply.errorStatus = pdu->errstat;
  exchange.reply.errorIndex = pdu->errindex;
  for (const auto* variable = pdu->variables; variable != nullptr; variable = variable->next_variable) {
    exchange.reply.answers.push_back(
        {textOf({variable->name, variable->name + variable->name_length}), variable->type, valueText(*variable)});
  }
  return 1;
}

}  // namespace

Oid oidOf(const std::string& text) {
  Oid name;
  std::istringstream in(text);
  for (std::string number; std::getline(in, number, '.');) name.push_back(std::stoul(number));
  return name;
}

std::string textOf(const Oid& name) {
  return fmt::format("{}", fmt::join(name, "."));
}

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
  return out << answer.name << " = (" << answer.type << ") " << answer.value;
}

TestAgent& TestAgent::instance() {
  static auto* const agent = new TestAgent;
  return *agent;
}

TestAgent::TestAgent() {
  setenv("MIBS", "", 1);
  setenv("MIBDIRS", "", 1);
  netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OID_OUTPUT_FORMAT, NETSNMP_OID_OUTPUT_NUMERIC);
  for (const int off : {NETSNMP_DS_LIB_DONT_READ_CONFIGS, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD,
                        NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE}) {
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, off, 1);
  }
  netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, "none");
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_DONT_LOG_TCPWRAPPERS_CONNECTS, 1);
  char withoutSmux[] = "-smux";
  add_to_init_list(withoutSmux);
  init_agent("quorinTest");
  char anyAccess[] = "rwcommunity public";
  netsnmp_config(anyAccess);
  init_snmp("quorinTest");
  for (const int check :
       {SNMPD_CALLBACK_ACM_CHECK_INITIAL, SNMPD_CALLBACK_ACM_CHECK, SNMPD_CALLBACK_ACM_CHECK_SUBTREE}) {
    netsnmp_register_callback(SNMP_CALLBACK_APPLICATION, check, contextFromCommunity, nullptr,
                              NETSNMP_CALLBACK_LOWEST_PRIORITY);
  }
  // Port 0: the kernel chooses a free one.
  auto* transport = netsnmp_transport_open_server("snmp", "udp:127.0.0.1:0");
  if (transport == nullptr || netsnmp_register_agent_nsap(transport) < 0) throw std::runtime_error("cannot listen");
  sockaddr_in address{};
  socklen_t size = sizeof(address);
  getsockname(transport->sock, reinterpret_cast<sockaddr*>(&address), &size);
  address_ = fmt::format("udp:127.0.0.1:{}", ntohs(address.sin_port));
}

void TestAgent::hide(std::vector<Oid> subtrees) {
  hidden = std::move(subtrees);
}

bool TestAgent::isHidden(const std::string& name) {
  Oid words = oidOf(name);
  view_parameters asked{};
  asked.name = words.data();
  asked.namelen = words.size();
  return access(asked) == VACM_NOTINVIEW;
}

Answer TestAgent::get(const std::string& name, const std::string& community) {
  return send(SNMP_MSG_GET, {name}, community).answers.at(0);
}

Answer TestAgent::getNext(const std::string& name, const std::string& community) {
  return send(SNMP_MSG_GETNEXT, {name}, community).answers.at(0);
}

Reply TestAgent::send(int command, const std::vector<std::string>& names, const std::string& community,
                      long nonRepeaters, long maxRepetitions) {
  auto* pdu = snmp_pdu_create(command);
  if (command == SNMP_MSG_GETBULK) {
    pdu->non_repeaters = nonRepeaters;
    pdu->max_repetitions = maxRepetitions;
  }
  for (const auto& text : names) {
    const Oid name = oidOf(text);
    snmp_add_null_var(pdu, name.data(), name.size());
  }
  return exchange(pdu, community);
}

Reply TestAgent::set(const std::string& text, long value, const std::string& community) {
  auto* pdu = snmp_pdu_create(SNMP_MSG_SET);
  const Oid name = oidOf(text);
  snmp_pdu_add_variable(pdu, name.data(), name.size(), ASN_INTEGER, &value, sizeof(value));
  return exchange(pdu, community);
}

std::vector<Answer> TestAgent::walk(const std::string& root, const std::string& community) {
  std::vector<Answer> answers;
  std::string at = root;
  while (true) {
    const Reply reply = send(SNMP_MSG_GETNEXT, {at}, community);
    const Answer& answer = reply.answers.at(0);
    const bool isOver = reply.errorStatus != SNMP_ERR_NOERROR || answer.type == SNMP_ENDOFMIBVIEW;
    if (isOver || !answer.name.starts_with(root + ".")) return answers;
    answers.push_back(answer);
    at = answer.name;
  }
}

std::string TestAgent::outputOf(std::string command) {
  const std::string_view place = "AGENT";
  if (const auto at = command.find(place); at != std::string::npos) command.replace(at, place.size(), address_);
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen((command + " 2>&1").c_str(), "r"), pclose);
  if (!pipe) throw std::runtime_error("cannot run " + command);
  std::string output;
  pollfd written{fileno(pipe.get()), POLLIN, 0};
  for (char bytes[4096];;) {
    agent_check_and_process(0);
    if (poll(&written, 1, 1) == 0) continue;
    const auto length = read(written.fd, bytes, sizeof(bytes));
    if (length <= 0) return output;
    output.append(bytes, static_cast<std::size_t>(length));
  }
}

Reply TestAgent::exchange(netsnmp_pdu* pdu, const std::string& community) {
  Exchange exchange;
  netsnmp_session wanted;
  snmp_sess_init(&wanted);
  std::string name = community;
  wanted.version = version_;
  wanted.peername = address_.data();
  wanted.community = reinterpret_cast<u_char*>(name.data());
  wanted.community_len = name.size();
  wanted.timeout = answerMicroseconds;
  wanted.retries = 0;
  wanted.callback = replyArrived;
  wanted.callback_magic = &exchange;
  auto* const manager = snmp_open(&wanted);
  if (manager == nullptr || snmp_send(manager, pdu) == 0) throw std::runtime_error("cannot send a request");
  netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_MSG_SEND_MAX, maxMessage_);
  while (!exchange.isOver) agent_check_and_process(1);
  netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_MSG_SEND_MAX, 0);
  snmp_close(manager);
  if (!exchange.isAnswered) throw std::runtime_error("the agent does not answer");
  return exchange.reply;
}

}  // namespace Modules

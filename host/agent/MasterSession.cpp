#include "host/agent/MasterSession.h"

#include <fmt/format.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/var_struct.h>

#include <algorithm>

#include "host/composition/AgentLog.h"

// What the agent library exports without a header.
extern "C" {
// Opens the session, or begins to try.
int subagent_startup(int, int, void*, void*);
// The open session; its private pointer points to the handle by which registrations find it. Null without one.
extern netsnmp_session* main_session;
}

namespace Host {

namespace {

constexpr const char* defaultAddress = "unix:/var/agentx/master";

// Every registration, in every context, behind every other one of the same objects.
template <class Visit>
void forEachRegistration(const Visit& visit) {
  for (auto* context = get_top_context_cache(); context != nullptr; context = context->next) {
    for (auto* subtree = context->first_subtree; subtree != nullptr; subtree = subtree->next) {
      for (auto* layer = subtree; layer != nullptr; layer = layer->children) visit(*layer);
    }
  }
}

}  // namespace

MasterSession::MasterSession(std::string address) : address_(std::move(address)), registree_(this) {
  forEachRegistration([this](netsnmp_subtree& layer) {
    if (layer.reginfo != nullptr) own_.push_back(layer.reginfo);
  });
  std::sort(own_.begin(), own_.end());
  // Seconds from the loss of the master to the next attempt, and between pings of a master that is silent.
  netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, 1);
  // One line for each attempt would be one a second.
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_NO_CONNECTION_WARNINGS, 1);
  // Ahead of net-snmp's own, which opens the session.
  netsnmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, handleConfigurationRead, this,
                            NETSNMP_CALLBACK_HIGHEST_PRIORITY);
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, handleOpened, this);
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, handleClosed, this);
}

MasterSession::~MasterSession() {
  snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, handleConfigurationRead, this, 1);
  snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, handleOpened, this, 1);
  snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, handleClosed, this, 1);
}

void MasterSession::configured() {
  // From here on net-snmp keeps the session up by itself. Called again after a reload, this would begin a second
  // series of attempts, that never ends.
  snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, subagent_startup, nullptr, 1);
  if (isOpen_) return;
  const char* address = netsnmp_ds_get_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET);
  logInfo(
      "no AgentX master answers at {} yet; trying on, every {} s. Its snmpd.conf needs the line 'master agentx', "
      "and "
      "this user access to its socket",
      address != nullptr ? address : defaultAddress,
      netsnmp_ds_get_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL));
}

void MasterSession::initHandler(Kel::String context) {
  if (netsnmp_subtree_find_first(context.c_str()) != nullptr) return;
  auto* const handle = main_session != nullptr ? static_cast<netsnmp_session**>(main_session->myvoid) : nullptr;
  if (handle != nullptr) *handle = nullptr;
  // The first registration makes the roots, and is one of them.
  const oid iso = 1;
  netsnmp_register_null_context(snmp_duplicate_objid(&iso, 1), 1, context.c_str());
  if (handle != nullptr) *handle = main_session;
}

int MasterSession::handleConfigurationRead(int, int, void*, void* self) {
  const auto& address = static_cast<MasterSession*>(self)->address_;
  if (!address.empty()) {
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, address.c_str());
  }
  return SNMPERR_SUCCESS;
}

int MasterSession::handleOpened(int, int, void*, void* self) {
  static_cast<MasterSession*>(self)->isOpen_ = true;
  static_cast<MasterSession*>(self)->keepFromMaster();
  return SNMPERR_SUCCESS;
}

int MasterSession::handleClosed(int, int, void*, void* self) {
  static_cast<MasterSession*>(self)->isOpen_ = false;
  return SNMPERR_SUCCESS;
}

// net-snmp is about to register what does not have the mark of being registered with the master. It would do so for
// every piece of a registration that others divide. And it sets the mark also on what it failed to register because
// the last session broke off meanwhile, so none of ours is to have it now.
void MasterSession::keepFromMaster() const {
  forEachRegistration([this](netsnmp_subtree& layer) {
    const bool isOwn = std::binary_search(own_.begin(), own_.end(), layer.reginfo);
    const bool isLaterPiece = snmp_oid_compare(layer.start_a, layer.start_len, layer.name_a, layer.namelen) != 0;
    const bool isKept = isOwn || isLaterPiece;
    layer.flags = static_cast<u_char>(isKept ? layer.flags | SUBTREE_ATTACHED : layer.flags & ~SUBTREE_ATTACHED);
  });
}

}  // namespace Host

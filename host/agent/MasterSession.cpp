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
#include "modules/frame/ContextObjects.h"

// Exported by the agent library without a header.
extern "C" {
// Opens the connection and its first session, or starts the attempts.
int subagent_startup(int, int, void*, void*);
// The first session, null without a connection. Its `sessid` is the session for which the functions below speak. They
// wait for the master's response, and meanwhile answer requests; if the connection is lost, this becomes null.
extern netsnmp_session* main_session;
// Passes a registration on; its last argument is `main_session->myvoid`.
int agentx_registration_callback(int, int, void*, void*);
// All return 1 if the master agrees.
int agentx_open_session(netsnmp_session*);
int agentx_close_session(netsnmp_session*, int reason);
int agentx_register(netsnmp_session*, oid* start, size_t length, int priority, int rangeSubid, oid rangeBound,
                    int timeout, u_char flags, const char* context);
int agentx_unregister(netsnmp_session*, oid* start, size_t length, int priority, int rangeSubid, oid rangeBound,
                      const char* context);
}

namespace Host {

namespace {

constexpr const char* defaultAddress = "unix:/var/agentx/master";
constexpr int reasonOther = 1;  // RFC 2741, 6.2.2
constexpr int registrationChanges[] = {SNMPD_CALLBACK_REGISTER_OID, SNMPD_CALLBACK_UNREGISTER_OID};

// Until its end, the library speaks for another session of the connection.
class SpeakingFor {
 public:
  explicit SpeakingFor(long session) : first_(main_session->sessid) { main_session->sessid = session; }
  ~SpeakingFor() {
    if (main_session != nullptr) main_session->sessid = first_;
  }
  SpeakingFor(const SpeakingFor&) = delete;
  SpeakingFor& operator=(const SpeakingFor&) = delete;

 private:
  const long first_;
};

// Visits every registration in every context, including those of lower priority.
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
  // Seconds from the loss of the master to the next attempt, and between pings of a silent master.
  netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, 1);
  // Each attempt, one a second, would log a line.
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_NO_CONNECTION_WARNINGS, 1);
  // Before net-snmp's own callback, which opens the session.
  netsnmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, handleConfigurationRead, this,
                            NETSNMP_CALLBACK_HIGHEST_PRIORITY);
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, handleOpened, this);
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, handleClosed, this);
  for (const int change : registrationChanges) {
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, change, handleRegistration, this);
  }
}

MasterSession::~MasterSession() {
  snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, handleConfigurationRead, this, 1);
  snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, handleOpened, this, 1);
  snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, handleClosed, this, 1);
  for (const int change : registrationChanges) {
    snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, change, handleRegistration, this, 1);
  }
}

void MasterSession::configured() {
  // From here on net-snmp keeps the session open by itself. A second call after a reload would start a second endless
  // series of attempts.
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
  isMakingRoots_ = true;
  // The first registration creates the roots, and is one of them.
  const oid iso = 1;
  netsnmp_register_null_context(snmp_duplicate_objid(&iso, 1), 1, context.c_str());
  isMakingRoots_ = false;
}

void MasterSession::entered(const Kel::String& context) {
  if (main_session == nullptr || context.empty()) return;
  if (sessions_.contains(context) || openSession(context)) passOnObjects(context);
}

void MasterSession::leaving(const Kel::String& context) {
  const auto session = sessions_.extract(context);
  if (session.empty() || main_session == nullptr) return;
  const SpeakingFor scope(session.mapped());
  agentx_close_session(main_session, reasonOther);
}

int MasterSession::handleConfigurationRead(int, int, void*, void* self) {
  const auto& address = static_cast<MasterSession*>(self)->address_;
  if (!address.empty()) {
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, address.c_str());
  }
  return SNMPERR_SUCCESS;
}

int MasterSession::handleOpened(int, int, void*, void* self) {
  for (const int change : registrationChanges) {
    snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, change, agentx_registration_callback, main_session->myvoid,
                             1);
  }
  static_cast<MasterSession*>(self)->isOpen_ = true;
  static_cast<MasterSession*>(self)->keepFromMaster();
  return SNMPERR_SUCCESS;
}

int MasterSession::handleClosed(int, int, void*, void* self) {
  static_cast<MasterSession*>(self)->isOpen_ = false;
  static_cast<MasterSession*>(self)->sessions_.clear();
  return SNMPERR_SUCCESS;
}

int MasterSession::handleRegistration(int, int change, void* registration, void* self) {
  static_cast<MasterSession*>(self)->passOn(change, *static_cast<const register_parameters*>(registration));
  return SNMPERR_SUCCESS;
}

void MasterSession::passOn(int change, const register_parameters& registration) {
  if (main_session == nullptr || isMakingRoots_) return;
  const Kel::String context = registration.contextName != nullptr ? registration.contextName : "";
  const bool isNew = change == SNMPD_CALLBACK_REGISTER_OID;
  if (!sessions_.contains(context) && !(isNew && openSession(context))) return;
  if (isNew && !context.empty() &&
      Modules::ContextObjects::isCommonRoot({registration.name, registration.namelen})) {
    return passOnObjects(context);  // none yet if the context is being entered
  }
  const SpeakingFor scope(sessions_.at(context));
  if (isNew) {
    agentx_register(main_session, registration.name, registration.namelen, registration.priority,
                    registration.range_subid, registration.range_ubound, registration.timeout, registration.flags,
                    registration.contextName);
  } else {
    agentx_unregister(main_session, registration.name, registration.namelen, registration.priority,
                      registration.range_subid, registration.range_ubound, registration.contextName);
  }
}

void MasterSession::passOnObjects(const Kel::String& context) {
  const SpeakingFor scope(sessions_.at(context));
  for (auto& root : Modules::ContextObjects::instance().roots(context)) {
    if (main_session == nullptr) return;
    agentx_register(main_session, root.data(), root.size(), Snmp::registrationPriority(), 0, 0, 0, 0,
                    context.c_str());
  }
}

// Returns false if the master refuses, or the connection is lost.
bool MasterSession::openSession(const Kel::String& context) {
  const SpeakingFor scope(0);
  if (agentx_open_session(main_session) != 1 || main_session == nullptr) return false;
  sessions_[context] = main_session->sessid;
  return true;
}

// net-snmp is about to register everything without the mark SUBTREE_ATTACHED, including every piece of a registration
// that others divide. Its own marks are unreliable: it sets one even if a registration failed because the last session
// broke off. So this sets the mark on the stock modules' registrations and on later pieces, and clears all others.
void MasterSession::keepFromMaster() const {
  forEachRegistration([this](netsnmp_subtree& layer) {
    const bool isOwn = std::binary_search(own_.begin(), own_.end(), layer.reginfo);
    const bool isLaterPiece = snmp_oid_compare(layer.start_a, layer.start_len, layer.name_a, layer.namelen) != 0;
    const bool isKept = isOwn || isLaterPiece;
    layer.flags = static_cast<u_char>(isKept ? layer.flags | SUBTREE_ATTACHED : layer.flags & ~SUBTREE_ATTACHED);
  });
}

}  // namespace Host

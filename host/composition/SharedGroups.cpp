#include "host/composition/SharedGroups.h"

#include <algorithm>
#include <cstring>

#include "kel/Trace.h"
#include "snmp/CBoundary.h"
#include "snmp/Config.h"
#include "snmp/HandlerRegistration.h"

namespace Host {

static Kel::TraceHandle sharedGroupsTrace("SharedGroups");

namespace {

constexpr const char* defaultContext = "";

const std::vector<oid> systemGroup{1, 3, 6, 1, 2, 1, 1};
const std::vector<oid> snmpEngine{1, 3, 6, 1, 6, 3, 10, 2, 1};
const std::vector<oid> snmpMpdStats{1, 3, 6, 1, 6, 3, 11, 2, 1};
const std::vector<oid> usmStats{1, 3, 6, 1, 6, 3, 15, 1, 1};

int compare(const netsnmp_variable_list& variable, const oid* name, std::size_t length) {
  return snmp_oid_compare(variable.name, variable.name_length, name, length);
}

// Turns a request into one for the default context: alone, and assigned to one registration there. The destructor
// restores the request.
class Assigned {
 public:
  Assigned(netsnmp_request_info& request, netsnmp_subtree& subtree)
      : request_(request),
        subtree_(request.subtree),
        rangeEnd_(request.range_end),
        rangeEndLength_(request.range_end_len),
        next_(request.next) {
    request.subtree = &subtree;
    request.range_end = subtree.end_a;
    request.range_end_len = subtree.end_len;
    request.next = nullptr;
  }
  ~Assigned() {
    request_.subtree = subtree_;
    request_.range_end = rangeEnd_;
    request_.range_end_len = rangeEndLength_;
    request_.next = next_;
  }
  Assigned(const Assigned&) = delete;
  Assigned& operator=(const Assigned&) = delete;

 private:
  netsnmp_request_info& request_;
  netsnmp_subtree* subtree_;
  oid* rangeEnd_;
  std::size_t rangeEndLength_;
  netsnmp_request_info* next_;
};

void ask(netsnmp_subtree& subtree, netsnmp_agent_request_info& info, netsnmp_request_info& request) {
  // A subagent answers later, and only requests of the default context.
  if (subtree.reginfo == nullptr || subtree.session != nullptr) return;
  const Assigned assigned(request, subtree);
  const int status = netsnmp_call_handlers(subtree.reginfo, &info, &request);
  if (status != SNMP_ERR_NOERROR) netsnmp_request_set_error(&request, status);
}

void get(netsnmp_agent_request_info& info, netsnmp_request_info& request, const SharedGroups::Group& group) {
  const auto& variable = *request.requestvb;
  const bool isInGroup = std::any_of(group.parts.begin(), group.parts.end(), [&](const std::vector<oid>& part) {
    return netsnmp_oid_is_subtree(part.data(), part.size(), variable.name, variable.name_length) == 0;
  });
  if (!isInGroup) return;
  auto* const subtree = netsnmp_subtree_find(variable.name, variable.name_length, nullptr, defaultContext);
  if (subtree != nullptr) ask(*subtree, info, request);
}

bool hasValue(const netsnmp_variable_list& variable) {
  switch (variable.type) {
    case ASN_NULL:
    case ASN_PRIV_RETRY:
    case SNMP_NOSUCHOBJECT:
    case SNMP_NOSUCHINSTANCE:
    case SNMP_ENDOFMIBVIEW:
      return false;
    default:
      return true;
  }
}

// Clears the request for another call.
void withoutAnswer(netsnmp_request_info& request) {
  snmp_set_var_typed_value(request.requestvb, ASN_NULL, nullptr, 0);
  request.processed = 0;
  netsnmp_free_request_data_sets(&request);
}

// Asks one registration for the next value within its range. A handler that meets a hole names it, and must be called
// again from there.
bool hasNext(netsnmp_subtree& subtree, netsnmp_agent_request_info& info, netsnmp_request_info& request) {
  auto& variable = *request.requestvb;
  while (true) {
    const std::vector<oid> before(variable.name, variable.name + variable.name_length);
    ask(subtree, info, request);
    if (request.status != SNMP_ERR_NOERROR) return true;
    if (compare(variable, subtree.end_a, subtree.end_len) >= 0) return false;
    if (hasValue(variable)) return true;
    if (variable.type != ASN_PRIV_RETRY || compare(variable, before.data(), before.size()) <= 0) return false;
    withoutAnswer(request);
  }
}

// Asks one registration after another, like the agent itself. Restores the variable if none has a next value.
void getNext(netsnmp_agent_request_info& info, netsnmp_request_info& request, const SharedGroups::Group& group) {
  auto& variable = *request.requestvb;
  const std::vector<oid> asked(variable.name, variable.name + variable.name_length);
  for (const auto& part : group.parts) {
    std::vector<oid> end = part;
    ++end.back();
    if (compare(variable, end.data(), end.size()) >= 0) continue;
    const auto& start = compare(variable, part.data(), part.size()) < 0 ? part : asked;
    for (auto* subtree = netsnmp_subtree_find(start.data(), start.size(), nullptr, defaultContext);
         subtree != nullptr && snmp_oid_compare(subtree->start_a, subtree->start_len, end.data(), end.size()) < 0;
         subtree = subtree->next) {
      if (hasNext(*subtree, info, request)) return;
      withoutAnswer(request);
      snmp_set_var_objid(&variable, asked.data(), asked.size());
    }
  }
}

// Gives the context of a VRF a sysName of its own, if it is configured.
void nameVrf(netsnmp_request_info& request, const char* context) {
  static const std::vector<oid> sysName{1, 3, 6, 1, 2, 1, 1, 5, 0};
  constexpr std::size_t longest = 255;  // bytes (RFC 3418)
  const auto config = Snmp::currentConfig();
  const auto& text = config->vrfSysName();
  auto& variable = *request.requestvb;
  if (text.empty() || context == nullptr || variable.type != ASN_OCTET_STR) return;
  if (compare(variable, sysName.data(), sysName.size()) != 0) return;
  const Kel::String host(reinterpret_cast<const char*>(variable.val.string), variable.val_len);
  Kel::String name;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '%') {
      name += text[++at] == 'h' ? host : context;
    } else {
      name += text[at];
    }
  }
  name.resize(std::min(name.size(), longest));
  snmp_set_var_typed_value(&variable, ASN_OCTET_STR, name.data(), name.size());
}

extern "C" int handleSharedGroup(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                                 netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  return Snmp::atCBoundary(sharedGroupsTrace, __func__, SNMP_ERR_GENERR, [&] {
    const auto& group = *static_cast<const SharedGroups::Group*>(handler->myvoid);
    for (auto* request = requests; request != nullptr; request = request->next) {
      if (info->mode == MODE_GET) {
        get(*info, *request, group);
      } else {
        getNext(*info, *request, group);
      }
      nameVrf(*request, registration->contextName);
    }
    return SNMP_ERR_NOERROR;
  });
}

}  // namespace

std::vector<SharedGroups::Group> SharedGroups::ofMaster() {
  return {{"system", systemGroup, {systemGroup}},
          {"snmp", {1, 3, 6, 1, 2, 1, 11}, {{1, 3, 6, 1, 2, 1, 11}}},
          {"snmpModules", {1, 3, 6, 1, 6, 3}, {snmpEngine, snmpMpdStats, usmStats}}};
}

std::vector<SharedGroups::Group> SharedGroups::ofSubagent() {
  return {{"system", systemGroup, {systemGroup}}, {"snmpEngine", snmpEngine, {snmpEngine}}};
}

SharedGroups::SharedGroups(std::vector<Group> groups) : groups_(std::move(groups)), registree_(this) {
}

SharedGroups::~SharedGroups() = default;

void SharedGroups::initHandler(Kel::String context) {
  if (context.empty()) return;
  for (const auto& group : groups_) registerGroup(group, context);
}

void SharedGroups::registerGroup(const Group& group, const Kel::String& context) {
  const Kel::String label = Kel::String(group.name) + "_" + context;
  auto* const registration = netsnmp_create_handler_registration(
      label.c_str(), handleSharedGroup, group.root.data(), group.root.size(), HANDLER_CAN_RONLY);
  if (registration == nullptr) throw std::bad_alloc();
  registration->contextName = strdup(context.c_str());
  registration->priority = Snmp::registrationPriority();
  // Read-only, so every copy that net-snmp makes of the registration can share it.
  registration->handler->myvoid = const_cast<Group*>(&group);
  if (netsnmp_register_handler(registration) != MIB_REGISTERED_OK) {
    QTRACE(sharedGroupsTrace, 0) << "the agent refuses the group " << group.name << " in context \"" << context
                                 << "\", which then lacks it; does another module serve it there?";
    return;
  }
  registered_[context].push_back(&group);
}

void SharedGroups::exitHandler(Kel::String context) {
  for (const auto* group : registered_[context]) {
    std::vector<oid> root = group->root;
    unregister_mib_context(root.data(), root.size(), Snmp::registrationPriority(), 0, 0, context.c_str());
  }
  registered_.erase(context);
}

}  // namespace Host

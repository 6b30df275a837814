#include "host/agent/CommunityContexts.h"

// The agent headers need the library's.
#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/snmp_vars.h>
#include <net-snmp/library/snmpTCPDomain.h>
#include <net-snmp/library/snmpTCPIPv6Domain.h>
#include <net-snmp/library/snmpUDPDomain.h>
#include <net-snmp/library/snmpUDPIPv6Domain.h>
#include <net-snmp/library/snmpUnixDomain.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "snmp/CBoundary.h"
#include "snmp/Config.h"
#include "snmp/Contexts.h"

// Exported by the module library without a header that declares it for C++.
extern "C" int vacm_in_view_callback(int majorID, int minorID, void* serverarg, void* clientarg);

namespace Host {

static Kel::TraceHandle communityContextsTrace("CommunityContexts");

namespace {

constexpr std::size_t longestContext = 32;  // vacmContextName
constexpr int checks[] = {SNMPD_CALLBACK_ACM_CHECK, SNMPD_CALLBACK_ACM_CHECK_INITIAL,
                          SNMPD_CALLBACK_ACM_CHECK_SUBTREE};

struct Mapped {
  const char* securityName;
  std::string context;
};

// Returns the security name of a community from the sender's address, if it has one for the default context, or, with
// `inAnyContext`, for any. The name belongs to net-snmp.
const char* securityName(const netsnmp_pdu& pdu, std::string_view community, bool inAnyContext) {
  const char* name = nullptr;
  const char* context = "";
  const auto ask =
      [&]<class Length>(int (*getSecName)(void*, int, const char*, Length, const char**, const char**)) {
        getSecName(pdu.transport_data, pdu.transport_data_length, community.data(),
                   static_cast<Length>(community.size()), &name, &context);
      };
  if (pdu.tDomain == netsnmpUDPDomain || pdu.tDomain == netsnmp_snmpTCPDomain) {
    ask(netsnmp_udp_getSecName);
  } else if (pdu.tDomain == netsnmp_UDPIPv6Domain || pdu.tDomain == netsnmp_TCPIPv6Domain) {
    ask(netsnmp_udp6_getSecName);
  } else if (pdu.tDomain == netsnmp_UnixDomain) {
    ask(netsnmp_unix_getSecName);
  }
  return inAnyContext || *context == '\0' ? name : nullptr;
}

// Whom the request's community stands for; none if net-snmp's own check decides.
std::optional<Mapped> mapped(const netsnmp_pdu& pdu) {
  const auto& separator = Snmp::currentConfig()->contextCommunities();
  if (separator.empty() || (pdu.version != SNMP_VERSION_1 && pdu.version != SNMP_VERSION_2c)) return std::nullopt;
  if (pdu.community == nullptr) return std::nullopt;
  const std::string_view community(reinterpret_cast<const char*>(pdu.community), pdu.community_len);
  // A base may have the separator in its name only if no context has.
  const auto at = community.find(separator);
  if (at == std::string_view::npos || at == 0) return std::nullopt;
  const auto context = community.substr(at + separator.size());
  if (context.empty() || context.size() > longestContext) return std::nullopt;
  if (securityName(pdu, community, true) != nullptr) return std::nullopt;
  const char* const name = securityName(pdu, community.substr(0, at), false);
  if (name == nullptr) return std::nullopt;
  Mapped mapped{name, std::string(context)};
  // Contexts of VRFs that are gone may still be known to net-snmp.
  if (!Snmp::isMibContext(mapped.context)) return std::nullopt;
  return mapped;
}

// The check of RFC 3415, 3.2, for the mapped name and context.
int check(const view_parameters& asked, const Mapped& mapped) {
  const auto& pdu = *asked.pdu;
  const auto* const group = vacm_getGroupEntry(pdu.securityModel, mapped.securityName);
  if (group == nullptr) return VACM_NOGROUP;
  auto* const access =
      vacm_getAccessEntry(group->groupName, mapped.context.c_str(), pdu.securityModel, pdu.securityLevel);
  if (access == nullptr) return VACM_NOACCESS;
  if (asked.name == nullptr) return VACM_SUCCESS;
  char* const view = access->views[pdu.command == SNMP_MSG_SET ? VACM_VIEW_WRITE : VACM_VIEW_READ];
  if (asked.check_subtree != 0) return vacm_checkSubtree(view, asked.name, asked.namelen);
  const auto* const part = vacm_getViewEntry(view, asked.name, asked.namelen, VACM_MODE_FIND);
  if (part == nullptr) return VACM_NOVIEW;
  return part->viewType == SNMP_VIEW_EXCLUDED ? VACM_NOTINVIEW : VACM_SUCCESS;
}

bool setContext(netsnmp_pdu& pdu, const std::string& context) {
  if (pdu.contextName != nullptr && context == pdu.contextName) return true;
  char* const copy = strdup(context.c_str());
  if (copy == nullptr) return false;
  std::free(pdu.contextName);
  pdu.contextName = copy;
  pdu.contextNameLen = context.size();
  return true;
}

int checkAccess(int major, int minor, void* serverArgument, void* clientArgument) {
  auto* const asked = static_cast<view_parameters*>(serverArgument);
  if (asked == nullptr || asked->pdu == nullptr) {
    return vacm_in_view_callback(major, minor, serverArgument, clientArgument);
  }
  return Snmp::atCBoundary(communityContextsTrace, __func__, 1, [&] {
    asked->errorcode = VACM_NOACCESS;  // if an exception ends the check
    const auto found = mapped(*asked->pdu);
    asked->errorcode = VACM_SUCCESS;
    if (!found) return vacm_in_view_callback(major, minor, serverArgument, clientArgument);
    asked->errorcode = setContext(*asked->pdu, found->context) ? check(*asked, *found) : VACM_NOACCESS;
    return 0;
  });
}

}  // namespace

CommunityContexts::CommunityContexts() {
  for (const int minor : checks) {
    snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, minor, vacm_in_view_callback, nullptr, 1);
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, minor, checkAccess, nullptr);
  }
}

CommunityContexts::~CommunityContexts() {
  for (const int minor : checks) {
    snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, minor, checkAccess, nullptr, 1);
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, minor, vacm_in_view_callback, nullptr);
  }
}

}  // namespace Host

#include "host/composition/SharedGroups.h"

#include <algorithm>

#include "modules/frame/ContextObjects.h"
#include "snmp/Config.h"

namespace Host {

namespace {

const std::vector<oid> systemGroup{1, 3, 6, 1, 2, 1, 1};
const std::vector<oid> snmpGroup{1, 3, 6, 1, 2, 1, 11};
const std::vector<oid> snmpEngine{1, 3, 6, 1, 6, 3, 10, 2, 1};
const std::vector<oid> snmpMpdStats{1, 3, 6, 1, 6, 3, 11, 2, 1};
const std::vector<oid> usmStats{1, 3, 6, 1, 6, 3, 15, 1, 1};

// Gives the context of a VRF a sysName of its own, if it is configured.
void nameVrf(netsnmp_variable_list& variable, const char* context) {
  static const std::vector<oid> sysName{1, 3, 6, 1, 2, 1, 1, 5, 0};
  constexpr std::size_t longest = 255;  // bytes (RFC 3418)
  const auto config = Snmp::currentConfig();
  const auto& text = config->vrfSysName();
  if (text.empty() || context == nullptr || variable.type != ASN_OCTET_STR) return;
  if (Modules::compare(Modules::nameOf(variable), sysName) != 0) return;
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

}  // namespace

SharedGroups::Groups SharedGroups::ofMaster() {
  return {systemGroup, snmpGroup, snmpEngine, snmpMpdStats, usmStats};
}

SharedGroups::Groups SharedGroups::ofSubagent() {
  return {systemGroup, snmpEngine};
}

SharedGroups::SharedGroups(const Groups& groups) {
  for (const auto& group : groups) {
    Modules::ContextObjects::instance().offerStock(group, group == systemGroup ? nameVrf : nullptr);
  }
}

SharedGroups::~SharedGroups() {
  Modules::ContextObjects::instance().withdraw(nullptr);
}

}  // namespace Host

#include "snmp/SnmpUtil.h"

#include "snmp/Config.h"

namespace SnmpUtil {
namespace {

Kel::Ptr<Kel::Dir>& root() {
  static auto* const instance = new Kel::Ptr<Kel::Dir>;
  return *instance;
}

}  // namespace

Snmp::Config::PtrConst getSnmpConfig() {
  return Snmp::currentConfig();
}

bool objectsDisabled(const Snmp::Config::PtrConst& config, const Kel::String& group) {
  return config->disabledObjects().contains(group);
}

Kel::Ptr<Kel::Entity> getEntityRelative(const char* path) {
  if (!root()) return nullptr;
  return Kel::resolve(root(), path);
}

void rootIs(Kel::Ptr<Kel::Dir> newRoot) {
  root() = std::move(newRoot);
}

}  // namespace SnmpUtil

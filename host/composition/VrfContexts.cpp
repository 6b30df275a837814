#include "host/composition/VrfContexts.h"

#include "host/composition/AgentLog.h"
#include "varnix/ByteText.h"

namespace Host {

class VrfContexts::ConfigWatch : public Routing::VrfConfigDir::Notifiee {
 public:
  explicit ConfigWatch(VrfContexts& owner) : owner_(owner) {}
  void handleVrfConfig(const Kel::Name& vrf) override { owner_.configured(vrf); }

 private:
  VrfContexts& owner_;
};

VrfContexts::VrfContexts(Snmp::Contexts& contexts, const Kel::Ptr<const Routing::VrfConfigDir>& configDir)
    : contexts_(contexts), configDir_(configDir) {
  const auto watch = Kel::makePtr<ConfigWatch>(*this);
  watch->notifierIs(configDir);
  configWatch_ = watch;
}

VrfContexts::~VrfContexts() = default;

void VrfContexts::reenter() {
  for (const auto& [vrf, config] : served_) enter(vrf);
}

void VrfContexts::setServed(const Kel::Name& vrf, bool isServed) {
  if (!isServed) {
    if (served_.erase(vrf) != 0) contexts_.leave(vrf);
    return;
  }
  if (!canBeContext(vrf) || !served_.emplace(vrf, nullptr).second) return;
  enter(vrf);
}

AgentSnmp::VrfReadiness VrfContexts::readiness(const Kel::Name& vrf) const {
  if (vrf == L3::VrfName::defaultName) return AgentSnmp::vrfReady;
  if (vrf.size() > longest || vrf.find('\0') != Kel::String::npos) return AgentSnmp::vrfNoContext;
  const auto at = served_.find(vrf);
  return at != served_.end() && at->second ? AgentSnmp::vrfReady : AgentSnmp::vrfWaiting;
}

bool VrfContexts::canBeContext(const Kel::Name& name) {
  if (name.find('\0') != Kel::String::npos) {
    logError("VRF \"{}\" has a null byte in its name, which no SNMP context can have: it has none; rename it",
             Varnix::escapeBytes(name));
    return false;
  }
  if (name.size() > longest) {
    logError("VRF \"{}\" has a name of {} bytes, and an SNMP context {} at most: it has none; rename it",
             Varnix::escapeBytes(name), name.size(), longest);
    return false;
  }
  if (name.size() > longestAccessible) {
    logInfo(
        "VRF \"{}\" has a name of {} bytes: net-snmp's access control (VACM) refuses contexts of more than {}; "
        "rename it to reach its context",
        Varnix::escapeBytes(name), name.size(), longestAccessible);
  }
  return true;
}

void VrfContexts::enter(const Kel::Name& vrf) {
  // While a VRF is being removed, its configuration may be deleted first.
  const auto config = configDir_->vrfConfig(vrf);
  served_[vrf] = config;
  if (!config) {
    logInfo("VRF \"{}\" has no routing configuration: its SNMP context waits for it", Varnix::escapeBytes(vrf));
    return;
  }
  contexts_.enter(vrf);
}

void VrfContexts::configured(const Kel::Name& vrf) {
  const auto at = served_.find(vrf);
  const auto config = configDir_->vrfConfig(vrf);
  // Without a new configuration the entered context continues.
  if (at == served_.end() || !config || at->second == config) return;
  contexts_.leave(vrf);
  enter(vrf);
}

}  // namespace Host

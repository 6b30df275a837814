// The reflection of the entity types, and the registry of the providers of interface details.

#include <map>

#include "varnix/AgentStatus.h"
#include "varnix/Interface.h"
#include "varnix/Ip.h"
#include "varnix/L3.h"
#include "varnix/Routing.h"
#include "varnix/Vrf.h"

KEL_TYPE_DEFINE(Snmp::AgentStatus)
KEL_TYPE_DEFINE(Snmp::Status)
KEL_TYPE_DEFINE(Quillo::Fib::FecModeStatus)
KEL_TYPE_DEFINE(Interface::IntfStatus)
KEL_TYPE_DEFINE(Interface::AllIntfStatusDir)
KEL_TYPE_DEFINE(Interface::IntfCounters)
KEL_TYPE_DEFINE(Interface::AllIntfCounters)
KEL_TYPE_DEFINE(Ip::IntfStats)
KEL_TYPE_DEFINE(Ip::AllIntfStats)
KEL_TYPE_DEFINE(Ip::IntfProtocol)
KEL_TYPE_DEFINE(Ip::AllIntfProtocol)
KEL_TYPE_DEFINE(L3::Config)
KEL_TYPE_DEFINE(L3::Intf::Config)
KEL_TYPE_DEFINE(L3::Intf::ConfigDir)
KEL_TYPE_DEFINE(L3::Intf::Status)
KEL_TYPE_DEFINE(L3::Intf::StatusDir)
KEL_TYPE_DEFINE(Ip::IpIntfConfig)
KEL_TYPE_DEFINE(Ip::Config)
KEL_TYPE_DEFINE(Ip::IpIntfStatus)
KEL_TYPE_DEFINE(Ip::Status)
KEL_TYPE_DEFINE(Ip::VrfConfig)
KEL_TYPE_DEFINE(Ip::AllVrfConfig)
KEL_TYPE_DEFINE(Ip::VrfStatusGlobal)
KEL_TYPE_DEFINE(Ip::AllVrfStatusGlobal)
KEL_TYPE_DEFINE(Ip::VrfStatusLocal)
KEL_TYPE_DEFINE(Ip::AllVrfStatusLocal)
KEL_TYPE_DEFINE(Ip6::IntfConfig)
KEL_TYPE_DEFINE(Ip6::Config)
KEL_TYPE_DEFINE(Ip6::IntfStatus)
KEL_TYPE_DEFINE(Ip6::Status)
KEL_TYPE_DEFINE(Vrf::VrfIdMap::Status)
KEL_TYPE_DEFINE(Vrf::VrfIdMap::NameToIdMap)
KEL_TYPE_DEFINE(Vrf::VrfIdMap::NameToIdMapWrapper)
KEL_TYPE_DEFINE(Routing::Config)
KEL_TYPE_DEFINE(Routing::VrfConfigDir)
KEL_TYPE_DEFINE(Routing::VrfInfo)
KEL_TYPE_DEFINE(Routing6::Config)
KEL_TYPE_DEFINE(Routing6::VrfConfigDir)

namespace Interface {
namespace {

std::map<Kel::String, const IntfDetailsProvider*>& providers() {
  static std::map<Kel::String, const IntfDetailsProvider*> all;
  return all;
}

}  // namespace

const IntfDetailsProvider* IntfDetailsProvider::find(const IntfStatus& status) {
  const auto at = providers().find(status.kind());
  return at == providers().end() ? nullptr : at->second;
}

void IntfDetailsProvider::providerIs(const Kel::String& kind, const IntfDetailsProvider* provider) {
  if (provider) {
    providers()[kind] = provider;
  } else {
    providers().erase(kind);
  }
}

}  // namespace Interface

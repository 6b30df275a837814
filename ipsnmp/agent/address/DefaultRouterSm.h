#pragma once
// Keeps ipDefaultRouterTable of all VRFs' caches equal to the default routers in the VRFs' IPv4 routing configurations,
// which hold those of both IP versions. A router has a row while its interface has an ifIndex and its VRF a cache.
// Lifetime: stopping or destroying the machine removes its rows.

#include <map>
#include <set>

#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/address/Reactors.h"
#include "snmp/IfMib.h"
#include "varnix/Routing.h"

namespace IpSnmp {

class DefaultRouterSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::DefaultRouterSm", DefaultRouterSm, Kel::Entity)
 public:
  // Requires: no handle is null. `config` and `ipMib` are the default VRF's.
  // clang-format off
  KEL_CONSTRUCTOR(DefaultRouterSm,
    ((Kel::Ptr<const Routing::Config>, config))
    ((Kel::Ptr<const Routing::VrfConfigDir>, vrfConfigDir))
    ((Kel::Ptr<const IntfSnmp::IfMib>, ifMib))
    ((Kel::Ptr<IpMib>, ipMib))
    ((Kel::Ptr<VrfMibsDir>, vrfMibsDir)))
  // clang-format on
  KEL_TYPE_END_DECLARE

  ~DefaultRouterSm() override;
  void kelStart() override;
  void kelStop() override;

 private:
  // Watches the configuration of one VRF.
  class KelConfig : public OwnedReactor<DefaultRouterSm, Routing::Config> {
   public:
    KelConfig(DefaultRouterSm* owner, Kel::Name vrfName) : OwnedReactor(owner), vrfName_(std::move(vrfName)) {}
    void handleDefaultRouter(const Routing::DefaultRouterKey&) override { owner_->update(vrfName_); }

   private:
    const Kel::Name vrfName_;
  };
  struct KelVrfConfigDir : OwnedReactor<DefaultRouterSm, Routing::VrfConfigDir> {
    using OwnedReactor::OwnedReactor;
    void handleVrfConfig(const Kel::Name& vrfName) override { owner_->handleVrfConfig(vrfName); }
  };
  struct KelVrfMibsDir : OwnedReactor<DefaultRouterSm, VrfMibsDir> {
    using OwnedReactor::OwnedReactor;
    void handleMibs(const Kel::Name& vrfName) override { owner_->update(vrfName); }
  };
  struct KelIfMib : OwnedReactor<DefaultRouterSm, IntfSnmp::IfMib> {
    using OwnedReactor::OwnedReactor;
    void handleIfIndexByIntfId(const Vantu::IntfId& intfId) override { owner_->handleIfIndex(intfId); }
  };
  struct Vrf {
    Kel::Ptr<KelConfig> config;
    std::set<Vantu::IntfId> interfaces;  // of its routers
  };

  void handleVrfConfig(const Kel::Name& vrfName);
  void handleIfIndex(const Vantu::IntfId& intfId);
  // Makes the rows of a VRF agree with its configuration and the ifIndexes.
  void update(const Kel::Name& vrfName);
  Kel::Ptr<IpMib> mibOf(const Kel::Name& vrfName) const;

  std::vector<Kel::Ptr<Kel::NotifieeBase>> reactors_;  // empty: stopped
  std::map<Kel::Name, Vrf> vrfs_;
  std::map<Vantu::IntfId, std::set<Kel::Name>> users_;  // the VRFs with routers on an interface
};

}  // namespace IpSnmp

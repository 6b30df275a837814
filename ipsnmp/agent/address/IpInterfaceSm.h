#pragma once
// Keeps the rows of one IP version in IpMib::ipInterfaceTable and ipIfTrafficTable of all VRFs' caches. An interface
// has a row of the first while the publisher has its protocol record (Ip::IntfProtocol), of the second while it has its
// counters (Ip::IntfStats). Both require an ifIndex and a VRF with a cache. A row moves with the ifIndex and the VRF.
// Of two interfaces with the same ifIndex in a VRF, the one notified last has the row.
// The machine also records when the tables last changed.
// Lifetime: stopping or destroying the machine removes its rows.

#include <map>
#include <set>

#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/address/Reactors.h"
#include "varnix/L3.h"

namespace IpSnmp {

class IpInterfaceSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpInterfaceSm", IpInterfaceSm, Kel::Entity)
 public:
  // Requires: no handle is null. `ipMib` is the default VRF's cache.
  // clang-format off
  KEL_CONSTRUCTOR(IpInterfaceSm,
    ((Ip::IpVersion, ipVersion))
    ((Kel::Ptr<const Interface::AllIntfStatusDir>, intfStatusDir))
    ((Kel::Ptr<const L3::Intf::ConfigDir>, l3ConfigDir))
    ((Kel::Ptr<const Ip::AllIntfProtocol>, allIntfProtocol))
    ((Kel::Ptr<const Ip::AllIntfStats>, allIntfStats))
    ((Kel::Ptr<const Ip6::Config>, ip6Config))
    ((Kel::Ptr<IpMib>, ipMib))
    ((Kel::Ptr<VrfMibsDir>, vrfMibsDir)))
  // clang-format on
  KEL_TYPE_END_DECLARE

  ~IpInterfaceSm() override;
  void kelStart() override;
  void kelStop() override;

 private:
  // Call handleIntf for each member that is added or removed.
  struct KelL3ConfigDir : OwnedReactor<IpInterfaceSm, L3::Intf::ConfigDir> {
    using OwnedReactor::OwnedReactor;
    void handleIntfConfig(const Vantu::IntfId& intfId) override { owner_->handleIntf(intfId); }
  };
  struct KelAllIntfProtocol : OwnedReactor<IpInterfaceSm, Ip::AllIntfProtocol> {
    using OwnedReactor::OwnedReactor;
    void handleIntfProtocol(const Vantu::IntfId& intfId) override { owner_->handleIntf(intfId); }
  };
  struct KelAllIntfStats : OwnedReactor<IpInterfaceSm, Ip::AllIntfStats> {
    using OwnedReactor::OwnedReactor;
    void handleIntfStats(const Vantu::IntfId& intfId) override { owner_->handleIntf(intfId); }
  };
  struct KelIp6Config : OwnedReactor<IpInterfaceSm, Ip6::Config> {
    using OwnedReactor::OwnedReactor;
    void handleIntf(const Vantu::IntfId& intfId) override { owner_->handleIntf(intfId); }
  };
  struct KelVrfMibsDir : OwnedReactor<IpInterfaceSm, VrfMibsDir> {
    using OwnedReactor::OwnedReactor;
    void handleMibs(const Kel::Name& vrfName) override { owner_->handleVrf(vrfName); }
  };
  struct KelL3Config : OwnedReactor<IpInterfaceSm, L3::Intf::Config> {
    using OwnedReactor::OwnedReactor;
    void handleVrf() override { owner_->handleIntf(notifier()->intfId()); }
  };
  // Watch the records of an interface with a row, for the time of the last change.
  struct KelIntfProtocol : OwnedReactor<IpInterfaceSm, Ip::IntfProtocol> {
    using OwnedReactor::OwnedReactor;
    void handleParameters() override { owner_->rowChanged(notifier()->intfId()); }
  };
  struct KelIp6IntfConfig : OwnedReactor<IpInterfaceSm, Ip6::IntfConfig> {
    using OwnedReactor::OwnedReactor;
    void handleAddr(const Vantu::Ip6AddrWithMask& addr) override;
  };
  struct Place {
    L3::VrfName vrf;
    std::uint32_t ifIndex = 0;  // 0: none
    friend bool operator==(const Place&, const Place&) = default;
  };
  struct Watch {
    Kel::Ptr<IfIndexWatch> status;
    Kel::Ptr<KelL3Config> l3Config;
    Kel::Ptr<KelIntfProtocol> protocol;
    Kel::Ptr<KelIp6IntfConfig> addresses;  // null: of IPv4
    Place place;
  };

  void handleIntf(const Vantu::IntfId& intfId);
  void handleVrf(const Kel::Name& vrfName);
  void leaveVrf(const L3::VrfName& vrf, const Vantu::IntfId& intfId);
  void rowChanged(const Vantu::IntfId& intfId);
  Place placeOf(const Vantu::IntfId& intfId) const;
  Kel::Ptr<IpMib> mibOf(const L3::VrfName& vrf) const;
  void write(const Vantu::IntfId& intfId, const Place& place);
  void remove(const Vantu::IntfId& intfId, const Place& place);
  void interfacesChanged(IpMib& mib) const;

  bool isRunning_ = false;
  Kel::Ptr<KelIntfStatusDir> kelIntfStatusDir_;
  std::vector<Kel::Ptr<Kel::NotifieeBase>> reactors_;
  std::map<Vantu::IntfId, Watch> watches_;                     // the interfaces with one of the two records
  std::map<L3::VrfName, std::set<Vantu::IntfId>> interfaces_;  // the same, by VRF
};

}  // namespace IpSnmp

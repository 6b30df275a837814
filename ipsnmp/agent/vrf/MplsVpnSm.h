#pragma once
// Keeps the cache of MPLS-L3VPN-STD-MIB equal to the VRF tables (IpVrfMib.h). A VRF other than "default" has a row
// while it is in IpVrfMib::vrfTable. An interface has a row while it is in IpVrfMib::vrfIfTable and its VRF has a row.
//
// It also counts the interfaces of each VRF and the changes of the number of its routes.
//
// Lifetime: stopping or destroying the machine removes its rows.

#include <map>
#include <set>

#include "ipsnmp/IpMib.h"
#include "ipsnmp/MplsVpnMib.h"
#include "ipsnmp/agent/address/Reactors.h"

namespace IpSnmp {

class MplsVpnSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::MplsVpnSm", MplsVpnSm, Kel::Entity)
 public:
  // Requires: no handle is null.
  KEL_CONSTRUCTOR(MplsVpnSm, ((Kel::Ptr<const IpVrfMib>, ipVrfMib))((Kel::Ptr<const VrfMibsDir>,
                                                                     vrfMibsDir))((Kel::Ptr<MplsVpnMib>, mib)))
  KEL_TYPE_END_DECLARE

  ~MplsVpnSm() override;
  void kelStart() override;
  void kelStop() override;

 private:
  struct VrfsWatch : OwnedReactor<MplsVpnSm, IpVrfMib> {
    using OwnedReactor::OwnedReactor;
    void handleVrfTable(const Snmp::String& name) override { owner_->handleVrf(name); }
    void handleVrfIfTable(const std::uint32_t& ifIndex) override { owner_->handleInterface(ifIndex); }
  };
  struct MibsWatch : OwnedReactor<MplsVpnSm, VrfMibsDir> {
    using OwnedReactor::OwnedReactor;
    void handleMibs(const Kel::Name& name) override { owner_->handleRoutes(Snmp::String(name)); }
  };
  struct RoutesWatch : IpForwardMib::Notifiee {
    RoutesWatch(MplsVpnSm* owner, Snmp::String name) : owner_(owner), name_(std::move(name)) {}
    void handleInetNumRoutes() override { owner_->handleRoutes(name_); }
    MplsVpnSm* const owner_;
    const Snmp::String name_;
    std::uint32_t counted_ = 0;  // IpForwardMib::inetNumRoutes() as last seen
  };
  struct ConfigWatch : Ip::VrfConfig::Notifiee {
    explicit ConfigWatch(VpnVrfEntry* entry) : entry_(entry) {}
    void handleRouteDistinguisher() override { entry_->lastChangedIs(Kel::System::currentTime()); }
    VpnVrfEntry* const entry_;
  };
  struct RowWatch : OwnedReactor<MplsVpnSm, VrfIfTableEntry> {
    using OwnedReactor::OwnedReactor;
    void handleVrfName() override { owner_->handleInterface(notifier()->ifIndex()); }
    void handleIntfStatus() override { owner_->handleInterface(notifier()->ifIndex()); }
  };
  struct StatusWatch : Interface::IntfStatus::Notifiee {
    StatusWatch(MplsVpnSm* owner, std::uint32_t ifIndex) : owner_(owner), ifIndex_(ifIndex) {}
    void handleOperStatus() override { owner_->handleInterface(ifIndex_); }
    void handleAdminStatus() override { owner_->handleInterface(ifIndex_); }
    MplsVpnSm* const owner_;
    const std::uint32_t ifIndex_;
  };
  struct Member {
    Kel::Ptr<RowWatch> row;
    Kel::Ptr<StatusWatch> status;
    Snmp::String vrf;
    bool isUp = false;
    bool isListed = false;  // has a row in ifConfTable
  };

  void handleVrf(const Snmp::String& name);
  void handleInterface(std::uint32_t ifIndex);
  // Adds the change of the VRF's number of routes since the last call to routesAdded or routesDeleted.
  void handleRoutes(const Snmp::String& name);
  void list(std::uint32_t ifIndex, Member& member);
  void unlist(std::uint32_t ifIndex, Member& member);
  void setActive(VpnVrfEntry& vrf, std::uint32_t interfaces);
  // Calls `visit(ifIndex, member)` for each interface of the VRF.
  template <class Visit>
  void forEachMember(const Snmp::String& vrf, Visit visit);

  Kel::Ptr<VrfsWatch> vrfsWatch_;  // null: stopped
  Kel::Ptr<MibsWatch> mibsWatch_;
  std::map<Snmp::String, Kel::Ptr<RoutesWatch>> routes_;
  std::map<Snmp::String, Kel::Ptr<ConfigWatch>> configs_;  // of each row of vrfTable
  std::map<std::uint32_t, Member> members_;
  std::set<std::pair<Snmp::String, std::uint32_t>> membersByVrf_;
};

}  // namespace IpSnmp

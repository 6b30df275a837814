#pragma once
// Keeps the interface tables of all contexts. An interface has a row in the cache of its VRF while it has a status
// record with an ifIndex and a layer-3 configuration, which names the VRF. The default context can also show the
// interfaces of all VRFs. Of two interfaces with the same ifIndex in one cache, the one notified last has the row.
//
// Rows refer to the records of the state database, so most changes cost nothing here. The machine reacts to changes of
// the operational state (ifLastChange), to counters that decrease (ifCounterDiscontinuityTime), and to changes of
// ifIndex, VRF and stacking.
//
// Lifetime: stopping or destroying the machine removes its rows.

#include <absl/container/btree_set.h>

#include <map>

#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/address/Reactors.h"
#include "varnix/AgentStatus.h"
#include "varnix/L3.h"

namespace IpSnmp {

class IfTableSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IfTableSm", IfTableSm, Kel::Entity)
 public:
  // Requires: no handle is null.
  // clang-format off
  KEL_CONSTRUCTOR(IfTableSm,
    ((Kel::Ptr<const Interface::AllIntfStatusDir>, intfStatusDir))
    ((Kel::Ptr<const Interface::AllIntfCounters>, allIntfCounters))
    ((Kel::Ptr<const L3::Intf::ConfigDir>, l3ConfigDir))
    ((Kel::Ptr<const Snmp::Status>, snmpStatus))
    ((Kel::Ptr<IfTables>, defaultTables))
    ((Kel::Ptr<VrfMibsDir>, vrfMibsDir)))
  // clang-format on
  KEL_TYPE_END_DECLARE

  ~IfTableSm() override;
  void kelStart() override;
  void kelStop() override;

  // Sets whether the default context has the interfaces of all VRFs, or only those of the default VRF (the initial
  // value).
  void setAllInDefault(bool areAllInDefault);

 private:
  struct KelAllIntfCounters;
  struct KelL3ConfigDir;
  struct KelVrfMibsDir;
  struct KelIntfStatus : OwnedReactor<IfTableSm, Interface::IntfStatus> {
    using OwnedReactor::OwnedReactor;
    void handleIfIndex() override { changed(); }
    void handleKind() override { changed(); }
    void handleOperStatus() override { changed(); }
    void handleAdminStatus() override { changed(); }
    void handleLowerIfIndex() override { changed(); }
    void handleUpperIfIndex() override { changed(); }

   private:
    void changed() { owner_->handleIntf(notifier()->intfId()); }
  };
  struct KelIntfCounters : OwnedReactor<IfTableSm, Interface::IntfCounters> {
    using OwnedReactor::OwnedReactor;
    void handleCounters() override { owner_->handleCounters(notifier()->intfId()); }
  };
  struct KelL3Config : OwnedReactor<IfTableSm, L3::Intf::Config> {
    using OwnedReactor::OwnedReactor;
    void handleVrf() override { owner_->handleIntf(notifier()->intfId()); }
  };

  struct Watch {
    Kel::Ptr<KelIntfStatus> status;
    Kel::Ptr<KelIntfCounters> counters;
    Kel::Ptr<KelL3Config> l3Config;
    Kel::Ptr<IfEntry> row;                                            // null: none
    L3::VrfName vrf;                                                  // of the row
    Interface::OperStatus operStatus = Interface::operStatusUnknown;  // of the row, as last seen
    std::optional<Interface::LinkCounters> known;                     // the counters as last seen
  };

  void handleIntf(const Vantu::IntfId& intfId);
  void handleCounters(const Vantu::IntfId& intfId);
  void handleMibs(const Kel::Name& vrfName);
  void setCounters(Watch& watch) const;
  void removeRow(Watch& watch);
  // Calls `visit` for each cache that shows the interfaces of the VRF.
  template <class Visit>
  void forEachTables(const L3::VrfName& vrf, const Visit& visit) const;
  // The time for IfTables::enter() and remove(); 0 before the agent is ready.
  Kel::Seconds now() const;

  std::vector<Kel::Ptr<Kel::NotifieeBase>> reactors_;  // empty: stopped
  std::map<Vantu::IntfId, Watch> watches_;
  absl::btree_set<std::pair<L3::VrfName, Vantu::IntfId>> members_;  // the interfaces with a row, by VRF
  bool areAllInDefault_ = false;
};

}  // namespace IpSnmp

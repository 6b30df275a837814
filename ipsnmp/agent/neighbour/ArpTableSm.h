#pragma once
// Mirrors the neighbours of one VRF from the shared table into ipNetToPhysicalTable of the VRF's IP-MIB cache.
//
// It watches neither the shared table nor the directory of interfaces: VrfRootSm does, once for all VRFs, and passes
// each change on. It does watch the status records of the interfaces that its neighbours are on. A neighbour whose
// interface has no ifIndex is remembered and gets its row when the ifIndex comes; the rows of an interface move with its
// ifIndex and go when it has none.
//
// A row is known by ifIndex and address. Should two interfaces have the same ifIndex, the row is that of the lower
// interface id among those that have the neighbour. A row stays the same object, with the time of its creation, as
// long as its neighbour does.
//
// Damage that is met while reading is reported to the table; what was not read is left as it is.

#include <absl/container/btree_set.h>

#include <map>
#include <vector>

#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/address/IntfWatches.h"

namespace IpSnmp {

class ArpTableSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::ArpTableSm", ArpTableSm, Kel::Entity)
 public:
  // No handle may be null. `arpQuilloVrfId` is the id to start with.
  using KelCtorTypes = std::tuple<Kel::Ptr<const Interface::AllIntfStatusDir>, Kel::Ptr<IpMib>,
                                  Kel::Ptr<const Arp::Table::Status>, Vrf::VrfIdMap::VrfId>;
  static constexpr const char* kelCtorNames[] = {"intfStatusDir", "ipMib", "arpQuillo", "arpQuilloVrfId"};
  ArpTableSm(Kel::Ptr<const Interface::AllIntfStatusDir> intfStatusDir, Kel::Ptr<IpMib> ipMib,
             Kel::Ptr<const Arp::Table::Status> arpQuillo, Vrf::VrfIdMap::VrfId arpQuilloVrfId);
  auto kelCtorTie() const { return std::tie(intfStatusDir_, ipMib_, arpQuillo_, firstArpQuilloVrfId_); }

  const Kel::Ptr<const Interface::AllIntfStatusDir>& intfStatusDir() const { return intfStatusDir_; }
  const Kel::Ptr<IpMib>& ipMib() const { return ipMib_; }  // the VRF's cache
  const Kel::Ptr<const Arp::Table::Status>& arpQuillo() const { return arpQuillo_; }
  // The id under which the shared table keys this VRF's entries; not known: there are no rows.
  const Vrf::VrfIdMap::VrfId& arpQuilloVrfId() const { return arpQuilloVrfId_; }
  // Another id: every row goes, and those of that id come.
  void arpQuilloVrfIdIs(Vrf::VrfIdMap::VrfId vrfId);

  KEL_LINK(__COUNTER__, , type.add(::Kel::constructorInfo<KelSelf>("intfStatusDir", [](const KelSelf& self) {
    return self.intfStatusDir();
  })))
  KEL_LINK(__COUNTER__, ,
           type.add(::Kel::constructorInfo<KelSelf>("ipMib", [](const KelSelf& self) { return self.ipMib(); })))
  KEL_LINK(__COUNTER__, , type.add(::Kel::constructorInfo<KelSelf>("arpQuillo", [](const KelSelf& self) {
    return self.arpQuillo();
  })))
  KEL_LINK(__COUNTER__, virtual void handleArpQuilloVrfId(){},
           type.add(::Kel::storedInfo<KelSelf, Vrf::VrfIdMap::VrfId>(
               "arpQuilloVrfId",
               [](const KelSelf& self) -> const Vrf::VrfIdMap::VrfId& { return self.arpQuilloVrfId(); },
               [](KelSelf& self, Vrf::VrfIdMap::VrfId value) { self.arpQuilloVrfIdIs(value); })))
  // The shared table could be read when this was last told.
  KEL_STORED(bool, initialized, Initialized, false)
  KEL_TYPE_END_DECLARE

 public:
  ~ArpTableSm() override;
  void kelStart() override;
  // Leaves the rows to whoever deletes the cache.
  void kelStop() override;

  // Adds or refreshes the row of one neighbour, which must be of this VRF's id.
  void addArpEntry(const Arp::Table::ArpEntry& entry);
  // Removes the row of one neighbour.
  void delArpEntry(const Arp::Table::ArpKey& key);
  // The status record of the interface was created or deleted.
  void handleIntfStatus(const Vantu::IntfId& intfId);
  // Adds a row for every entry of this VRF in the shared table.
  void populate();
  // Removes every row.
  void cleanup();
  // The shared table can be read now.
  void handleInitialized();
  // Anything in the shared table may have changed: the rows whose entry is gone go, missing ones come, the others
  // stay.
  void handleTable();

 private:
  // The neighbours of one interface, with a row or without.
  struct Intf;
  // What a walk of the shared table gave. Not complete: it met damage.
  struct Walked {
    std::vector<Arp::Table::ArpEntry> entries;
    bool isComplete = true;
  };

  bool isServed(const Vrf::VrfIdMap::VrfId& vrfId) const;
  std::uint32_t currentIfIndex(const Vantu::IntfId& intfId) const;
  Intf& intfIs(const Vantu::IntfId& intfId);
  void intfDel(const Vantu::IntfId& intfId);
  void forget(const Arp::Table::ArpKey& key);
  void settle(std::uint32_t ifIndex, const Vantu::IpGenAddr& addr);
  const Vantu::IntfId* ownerOf(std::uint32_t ifIndex, const Vantu::IpGenAddr& addr) const;
  Walked walk() const;
  void add(const Walked& walked);
  void removeGone(const Walked& walked);
  bool isGone(const Arp::Table::ArpKey& key) const;
  void stop();

  const Kel::Ptr<const Interface::AllIntfStatusDir> intfStatusDir_;
  const Kel::Ptr<IpMib> ipMib_;
  const Kel::Ptr<const Arp::Table::Status> arpQuillo_;
  const Vrf::VrfIdMap::VrfId firstArpQuilloVrfId_;
  Vrf::VrfIdMap::VrfId arpQuilloVrfId_;
  bool isStarted_ = false;  // and not stopped
  std::map<Vantu::IntfId, Kel::Ptr<Intf>> intfs_;
  absl::btree_set<std::pair<std::uint32_t, Vantu::IntfId>> intfsByIfIndex_;  // those that have one
};

}  // namespace IpSnmp

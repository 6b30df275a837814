#pragma once
// Mirrors the neighbours of one VRF from the shared table into ipNetToPhysicalTable of the VRF's IP-MIB cache.
//
// VrfRootSm watches the shared table and the directory of interfaces once for all VRFs, and passes each change here.
// This machine watches the status records of its neighbours' interfaces. A neighbour whose interface has no ifIndex is
// kept without a row; the rows of an interface move with its ifIndex.
//
// Rows are keyed by ifIndex and address. If two interfaces have the same ifIndex, the lower interface id that has the
// neighbour gets the row. A row stays the same object, with its creation time, as long as its neighbour exists.
//
// Damage found by a read is reported to the table; rows of unread neighbours stay, and all rows while the table cannot
// be read.
//
// Requires: reactors of the rows do not change or stop the machine.

#include <absl/container/btree_set.h>

#include <map>
#include <vector>

#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/address/Reactors.h"

namespace IpSnmp {

class ArpTableSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::ArpTableSm", ArpTableSm, Kel::Entity)
 public:
  // Requires: no handle is null. `arpQuilloVrfId` is the initial id.
  using KelCtorTypes = std::tuple<Kel::Ptr<const Interface::AllIntfStatusDir>, Kel::Ptr<IpMib>,
                                  Kel::Ptr<const Arp::Table::Status>, Vrf::VrfIdMap::VrfId>;
  static constexpr const char* kelCtorNames[] = {"intfStatusDir", "ipMib", "arpQuillo", "arpQuilloVrfId"};
  ArpTableSm(Kel::Ptr<const Interface::AllIntfStatusDir> intfStatusDir, Kel::Ptr<IpMib> ipMib,
             Kel::Ptr<const Arp::Table::Status> arpQuillo, Vrf::VrfIdMap::VrfId arpQuilloVrfId);
  auto kelCtorTie() const { return std::tie(intfStatusDir_, ipMib_, arpQuillo_, firstArpQuilloVrfId_); }

  const Kel::Ptr<const Interface::AllIntfStatusDir>& intfStatusDir() const { return intfStatusDir_; }
  const Kel::Ptr<IpMib>& ipMib() const { return ipMib_; }  // the VRF's cache
  const Kel::Ptr<const Arp::Table::Status>& arpQuillo() const { return arpQuillo_; }
  // The VRF's id in the keys of the shared table. While it is unknown there are no rows.
  const Vrf::VrfIdMap::VrfId& arpQuilloVrfId() const { return arpQuilloVrfId_; }
  // Changes the id: replaces all rows by those of the new id.
  void arpQuilloVrfIdIs(Vrf::VrfIdMap::VrfId vrfId);

  KEL_LINK(__COUNTER__, , BOOST_PP_SEQ_FOR_EACH(KEL_PP_INFO, _, ((, intfStatusDir))((, ipMib))((, arpQuillo))))
  KEL_LINK(__COUNTER__, virtual void handleArpQuilloVrfId(){},
           type.add(::Kel::storedInfo<KelSelf, Vrf::VrfIdMap::VrfId>(
               "arpQuilloVrfId",
               [](const KelSelf& self) -> const Vrf::VrfIdMap::VrfId& { return self.arpQuilloVrfId(); },
               [](KelSelf& self, Vrf::VrfIdMap::VrfId value) { self.arpQuilloVrfIdIs(value); })))
  // Whether the shared table could be read at its last notification.
  KEL_STORED(bool, initialized, Initialized, false)
  KEL_TYPE_END_DECLARE

 public:
  ~ArpTableSm() override;
  // Throws as populate() if the table could be read before.
  void kelStart() override;
  // Leaves the rows in the cache, which VrfRootSm deletes.
  void kelStop() override;

  // Adds or refreshes the row of one neighbour. Requires: the neighbour has this VRF's id.
  void addArpEntry(const Arp::Table::ArpEntry& entry);
  // Removes the row of one neighbour.
  void delArpEntry(const Arp::Table::ArpKey& key);
  // Call it when the interface's status record was created or deleted.
  void handleIntfStatus(const Vantu::IntfId& intfId);
  // Adds a row for every entry of this VRF in the shared table. Throws Quillo::StoreException while it cannot be read.
  void populate();
  // Removes every row.
  void cleanup();
  // Call it when the shared table becomes readable.
  void handleInitialized();
  // Call it when any entry of the shared table may have changed: removes rows without an entry, and adds missing ones.
  void handleTable();

 private:
  // The neighbours of one interface, with a row or without.
  struct Intf;
  // The result of a walk of the shared table; incomplete after damage.
  struct Walked {
    std::vector<Arp::Table::ArpEntry> entries;
    bool isComplete = true;
  };

  bool isServed(const Vrf::VrfIdMap::VrfId& vrfId) const;
  std::uint32_t currentIfIndex(const Vantu::IntfId& intfId) const;
  // Removes a neighbour, and its row.
  void forget(const Arp::Table::ArpKey& key);
  // Adds, replaces or removes the row of ifIndex and address as its owner requires.
  void settle(std::uint32_t ifIndex, const Vantu::IpGenAddr& addr);
  // Null if no interface with the ifIndex has the neighbour.
  const Vantu::IntfId* ownerOf(std::uint32_t ifIndex, const Vantu::IpGenAddr& addr) const;
  Walked walk() const;
  void add(const Walked& walked);
  void removeGone(const Walked& walked);
  bool isGone(const Arp::Table::ArpKey& key) const;

  const Kel::Ptr<const Interface::AllIntfStatusDir> intfStatusDir_;
  const Kel::Ptr<IpMib> ipMib_;
  const Kel::Ptr<const Arp::Table::Status> arpQuillo_;
  const Vrf::VrfIdMap::VrfId firstArpQuilloVrfId_;
  Vrf::VrfIdMap::VrfId arpQuilloVrfId_;
  bool isStarted_ = false;
  std::map<Vantu::IntfId, Kel::Ptr<Intf>> intfs_;
  absl::btree_set<std::pair<std::uint32_t, Vantu::IntfId>> intfsByIfIndex_;  // interfaces with an ifIndex
};

}  // namespace IpSnmp

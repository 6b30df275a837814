#pragma once
// What the four per-interface reactors of the address state machine have in common.
//
// A reactor watches one record of an interface's addresses, the layer-3 record that names the interface's VRF, and
// the interface's status record, from which the ifIndex comes. It reports every address of the record to its owner
// under one source, one VRF and one ifIndex, and remembers what it reported. When one of the three changes, it
// takes everything back as it was reported and reports anew. Without a status record nothing is reported; without a
// reference to a layer-3 record the interface is in the default VRF.
//
// Several prefix lengths of one address: the owner keeps the first that it was told of and ignores the others. So
// whenever one of them goes, those that remain are reported again, the shortest first.
//
// A reactor belongs to its owner's collection and must not outlive the owner.

#include <optional>
#include <vector>

#include "ipsnmp/AddressEnums.h"
#include "kel/Collection.h"
#include "varnix/Interface.h"
#include "varnix/L3.h"

namespace IpSnmp {

class IpAddressTableSm;

namespace AddressReactors {

// Under what an interface's addresses are reported.
struct ReportedAs {
  AddressSource source = addressSourceStatus;
  L3::VrfName vrf;
  std::optional<std::int32_t> ifIndex;  // empty: the interface has no status record

  friend bool operator==(const ReportedAs&, const ReportedAs&) = default;
};

// `Record` holds the addresses, `L3Record` the VRF; `Info` is what the record says of one address.
template <class Record, class L3Record, class AddrWithMask, class Info>
class IntfAddressReactor : public Record::Notifiee {
 public:
  IntfAddressReactor(IpAddressTableSm* owner, Kel::Ptr<const Record> record)
      : owner_(owner), record_(std::move(record)) {}
  static const Vantu::IntfId& kelKeyOf(const IpAddressTableSm*, const Kel::Ptr<const Record>& record) {
    return record->intfId();
  }

  const Vantu::IntfId& intfId() const { return record_->intfId(); }
  // The interface's status record as the owner last gave it; null when there is none.
  Kel::Ptr<const Interface::IntfStatus> intfStatus() const { return intfStatusWatch_->notifier(); }
  void intfStatusIs(const Kel::Ptr<const Interface::IntfStatus>& status);
  // The cache of that VRF has come (again): reports everything that belongs there.
  void handleVrf(const Kel::Name& vrfName);

  // The addresses last reported.
  const Kel::OrderedMap<AddrWithMask, Info>& oldAddr() const { return oldAddr_; }

  // The owner's collection calls these when the reactor is entered and taken out. Stopping takes back every address
  // and detaches.
  virtual void kelStart();
  void kelStop();

  void handleDel() override { kelStop(); }

 protected:
  // Watches the layer-3 record: KelL3Config or KelL3Status.
  struct KelL3 : L3Record::Notifiee {
    explicit KelL3(IntfAddressReactor* reactor) : reactor_(reactor) {}
    void handleVrf() override { reactor_->refresh(); }
    IntfAddressReactor* reactor_;
  };

  const Record& record() const { return *record_; }

  virtual AddressSource source() const = 0;
  virtual Kel::Ptr<const L3Record> l3Record() const = 0;
  // Empty when the record does not hold the address.
  virtual std::optional<Info> addrInfo(const AddrWithMask& addr) const = 0;
  // Every address of the record, in ascending order.
  virtual std::vector<AddrWithMask> addresses() const = 0;

  // To be called when the record's reference to its layer-3 record changed.
  void l3RecordChanged();
  // Compares what is reported with what the source, the VRF and the ifIndex are now.
  void refresh();
  // One address of the record came, changed or went.
  void addressChanged(const AddrWithMask& addr);

 private:
  struct KelIntfStatus : Interface::IntfStatus::Notifiee {
    explicit KelIntfStatus(IntfAddressReactor* reactor) : reactor_(reactor) {}
    void handleIfIndex() override { reactor_->refresh(); }
    void handleKind() override { reactor_->refresh(); }
    IntfAddressReactor* reactor_;
  };

  ReportedAs reportedAsNow() const;
  void reportAll();
  void report(const AddrWithMask& addr, const Info& info);
  void takeBack(const AddrWithMask& addr);
  void takeBackAll();

  IpAddressTableSm* const owner_;
  const Kel::Ptr<const Record> record_;
  Kel::Ptr<KelL3> l3Watch_ = Kel::makePtr<KelL3>(this);
  Kel::Ptr<KelIntfStatus> intfStatusWatch_ = Kel::makePtr<KelIntfStatus>(this);
  ReportedAs reportedAs_;
  Kel::OrderedMap<AddrWithMask, Info> oldAddr_;
};

}  // namespace AddressReactors
}  // namespace IpSnmp

#pragma once
// The per-interface reactors of the address state machine, for configured and operational IPv4 and IPv6 addresses.
//
// A reactor watches an interface's address record, its layer-3 record, which names the VRF, and its status record,
// which has the ifIndex. It reports every address of its record to the state machine, with one source, VRF and
// ifIndex. When one of these changes, it withdraws each address as it was reported, and reports all again. Without a
// status record it reports nothing. Without a layer-3 record the interface is in the default VRF.
//
// The state machine keeps the first prefix length reported for an address. So when one of several lengths is removed,
// the reactor reports the others again, the shortest first.
//
// Lifetime: a reactor belongs to a collection of the state machine, and must not outlive it.

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "ipsnmp/IpAddressEntry.h"
#include "ipsnmp/agent/address/Reactors.h"
#include "kel/Collection.h"
#include "varnix/Ip.h"
#include "varnix/L3.h"

namespace IpSnmp {

class IpAddressTableSm;

namespace AddressReactors {

// How an interface's addresses are reported.
struct ReportedAs {
  AddressSource source = addressSourceStatus;
  L3::VrfName vrf;
  std::optional<std::int32_t> ifIndex;  // empty: the interface has no status record

  friend bool operator==(const ReportedAs&, const ReportedAs&) = default;
};

// `Record` holds the addresses, `L3Record` the VRF; `Info` is the record's value for an address.
template <class Record, class L3Record, class AddrWithMask, class Info>
class IntfAddressReactor : public Record::Notifiee {
 public:
  IntfAddressReactor(IpAddressTableSm* owner, Kel::Ptr<const Record> record)
      : owner_(owner), record_(std::move(record)) {}
  static const Vantu::IntfId& kelKeyOf(const IpAddressTableSm*, const Kel::Ptr<const Record>& record) {
    return record->intfId();
  }

  const Vantu::IntfId& intfId() const { return record_->intfId(); }
  // The interface's status record as last passed by the state machine; null without one.
  Kel::Ptr<const Interface::IntfStatus> intfStatus() const { return intfStatusWatch_->notifier(); }
  void intfStatusIs(const Kel::Ptr<const Interface::IntfStatus>& status);
  // The VRF has another cache: reports the addresses of that VRF again.
  void handleVrf(const Kel::Name& vrfName);

  // The addresses last reported.
  const Kel::OrderedMap<AddrWithMask, Info>& oldAddr() const { return oldAddr_; }

  // The collection calls these when it adds and removes the reactor. Stopping withdraws every address.
  virtual void kelStart();
  void kelStop();

  void handleDel() override { kelStop(); }

 protected:
  // Watches the layer-3 record: KelL3Config or KelL3Status.
  struct KelL3 : OwnedReactor<IntfAddressReactor, L3Record> {
    using OwnedReactor<IntfAddressReactor, L3Record>::OwnedReactor;
    void handleVrf() override { this->owner_->refresh(); }
  };

  const Record& record() const { return *record_; }

  virtual AddressSource source() const = 0;
  virtual Kel::Ptr<const L3Record> l3Record() const = 0;
  // None for an address that the record does not hold.
  virtual std::optional<Info> addrInfo(const AddrWithMask& addr) const = 0;
  // Every address of the record, in ascending order.
  virtual std::vector<AddrWithMask> addresses() const = 0;

  // Call it when the record refers to another layer-3 record.
  void l3RecordChanged();
  // Reports all addresses again; withdraws them first if source, VRF or ifIndex changed.
  void refresh();
  // Call it when an address of the record was added, changed or removed.
  void addressChanged(const AddrWithMask& addr);

 private:
  struct KelIntfStatus : OwnedReactor<IntfAddressReactor, Interface::IntfStatus> {
    using OwnedReactor<IntfAddressReactor, Interface::IntfStatus>::OwnedReactor;
    void handleIfIndex() override { this->owner_->refresh(); }
    void handleKind() override { this->owner_->refresh(); }
  };

  ReportedAs reportedAsNow() const;
  void report(const AddrWithMask& addr, const Info& info);
  void withdraw(const AddrWithMask& addr);
  void withdrawAll();

  IpAddressTableSm* const owner_;
  const Kel::Ptr<const Record> record_;
  Kel::Ptr<KelL3> l3Watch_ = Kel::makePtr<KelL3>(this);
  Kel::Ptr<KelIntfStatus> intfStatusWatch_ = Kel::makePtr<KelIntfStatus>(this);
  ReportedAs reportedAs_;
  Kel::OrderedMap<AddrWithMask, Info> oldAddr_;
};

// An IPv4 record holds a primary address (0.0.0.0: none) and secondary ones. All are reported alike.
template <class Record, class L3Record>
class Ip4Reactor : public IntfAddressReactor<Record, L3Record, Vantu::IpAddrWithMask, bool> {
  using Base = IntfAddressReactor<Record, L3Record, Vantu::IpAddrWithMask, bool>;

 public:
  using Base::Base;
  void kelStart() override {
    primary_ = primary();
    Base::kelStart();
  }
  void handleSecondaryAddrWithMask(const Vantu::IpAddrWithMask& addr) override { this->addressChanged(addr); }

 protected:
  virtual Vantu::IpAddrWithMask primary() const = 0;
  void primaryChanged() {
    const auto gone = std::exchange(primary_, primary());
    this->addressChanged(gone);
    this->addressChanged(primary_);
  }

  std::optional<bool> addrInfo(const Vantu::IpAddrWithMask& addr) const override {
    const bool isPresent = addr == primary() || this->record().secondaryAddrWithMaskHas(addr);
    return isPresent && !addr.address().isZero() ? std::optional(true) : std::nullopt;
  }
  std::vector<Vantu::IpAddrWithMask> addresses() const override {
    auto all = this->record().secondaryAddrWithMask().keys();
    if (this->record().secondaryAddrWithMaskHas(primary())) return all;
    all.insert(std::upper_bound(all.begin(), all.end(), primary()), primary());
    return all;
  }

 private:
  Vantu::IpAddrWithMask primary_;  // as last seen
};

template <class Record, class L3Record>
class Ip6Reactor : public IntfAddressReactor<Record, L3Record, Vantu::Ip6AddrWithMask, Ip6::AddressInfo> {
 public:
  using IntfAddressReactor<Record, L3Record, Vantu::Ip6AddrWithMask, Ip6::AddressInfo>::IntfAddressReactor;
  void handleAddr(const Vantu::Ip6AddrWithMask& addr) override { this->addressChanged(addr); }

 protected:
  std::optional<Ip6::AddressInfo> addrInfo(const Vantu::Ip6AddrWithMask& addr) const override {
    const auto* info = this->record().addr(addr);
    return info ? std::optional(*info) : std::nullopt;
  }
  std::vector<Vantu::Ip6AddrWithMask> addresses() const override { return this->record().addr().keys(); }
};

class KelIpIntfConfig : public Ip4Reactor<Ip::IpIntfConfig, L3::Intf::Config> {
 public:
  using KelL3Config = KelL3;
  using Ip4Reactor::Ip4Reactor;
  void handleAddrWithMask() override { primaryChanged(); }
  void handleL3Config() override { l3RecordChanged(); }

 protected:
  AddressSource source() const override { return addressSourceConfig; }
  Kel::Ptr<const L3::Intf::Config> l3Record() const override { return record().l3Config(); }
  Vantu::IpAddrWithMask primary() const override { return record().addrWithMask(); }
};

class KelIpIntfStatus : public Ip4Reactor<Ip::IpIntfStatus, L3::Intf::Status> {
 public:
  using KelL3Status = KelL3;
  using Ip4Reactor::Ip4Reactor;
  void handleActiveAddrWithMask() override { primaryChanged(); }
  void handleUnnumberedIntfId() override { refresh(); }
  void handleL3Status() override { l3RecordChanged(); }

 protected:
  AddressSource source() const override {
    return record().unnumberedIntfId().empty() ? addressSourceStatus : addressSourceBorrowed;
  }
  Kel::Ptr<const L3::Intf::Status> l3Record() const override { return record().l3Status(); }
  Vantu::IpAddrWithMask primary() const override { return record().activeAddrWithMask(); }
};

class KelIp6IntfConfig : public Ip6Reactor<Ip6::IntfConfig, L3::Intf::Config> {
 public:
  using KelL3Config = KelL3;
  using Ip6Reactor::Ip6Reactor;
  void handleL3Config() override { l3RecordChanged(); }

 protected:
  AddressSource source() const override { return addressSourceConfig; }
  Kel::Ptr<const L3::Intf::Config> l3Record() const override { return record().l3Config(); }
};

class KelIp6IntfStatus : public Ip6Reactor<Ip6::IntfStatus, L3::Intf::Status> {
 public:
  using KelL3Status = KelL3;
  using Ip6Reactor::Ip6Reactor;
  void handleL3Status() override { l3RecordChanged(); }

 protected:
  AddressSource source() const override { return addressSourceStatus; }
  Kel::Ptr<const L3::Intf::Status> l3Record() const override { return record().l3Status(); }
};

}  // namespace AddressReactors
}  // namespace IpSnmp

#include "ipsnmp/agent/address/IntfAddressReactors.h"

#include "ipsnmp/IpMibKeys.h"
#include "ipsnmp/agent/address/IpAddressTableSm.h"

namespace IpSnmp::AddressReactors {
namespace {

void add(IpAddressTableSm& sm, const Vantu::IntfId& intfId, const ReportedAs& as,
         const Vantu::IpAddrWithMask& addr) {
  sm.doAddAddr(intfId, as.source, *as.ifIndex, as.vrf, addr);
}
void add(IpAddressTableSm& sm, const Vantu::IntfId& intfId, const ReportedAs& as,
         const Vantu::Ip6AddrWithMask& addr) {
  sm.doAddAddr6(intfId, as.source, *as.ifIndex, as.vrf, addr);
}
void del(IpAddressTableSm& sm, const Vantu::IntfId& intfId, const ReportedAs& as,
         const Vantu::IpAddrWithMask& addr) {
  sm.doDelAddr(intfId, as.source, as.vrf, addr);
}
void del(IpAddressTableSm& sm, const Vantu::IntfId& intfId, const ReportedAs& as,
         const Vantu::Ip6AddrWithMask& addr) {
  sm.doDelAddr6(intfId, as.source, as.vrf, addr);
}

}  // namespace

template <class Record, class L3Record, class AddrWithMask, class Info>
void IntfAddressReactor<Record, L3Record, AddrWithMask, Info>::kelStart() {
  this->notifierIs(record_);
  l3Watch_->notifierIs(l3Record());
  intfStatusIs(owner_->intfStatusDir()->intfStatus(intfId()));
}

template <class Record, class L3Record, class AddrWithMask, class Info>
void IntfAddressReactor<Record, L3Record, AddrWithMask, Info>::kelStop() {
  this->notifierIs(nullptr);
  l3Watch_->notifierIs(nullptr);
  intfStatusWatch_->notifierIs(nullptr);
  withdrawAll();
  reportedAs_ = {};
}

template <class Record, class L3Record, class AddrWithMask, class Info>
void IntfAddressReactor<Record, L3Record, AddrWithMask, Info>::intfStatusIs(
    const Kel::Ptr<const Interface::IntfStatus>& status) {
  if (!this->notifier()) return;  // stopped
  intfStatusWatch_->notifierIs(status);
  refresh();
}

template <class Record, class L3Record, class AddrWithMask, class Info>
void IntfAddressReactor<Record, L3Record, AddrWithMask, Info>::handleVrf(const Kel::Name& vrfName) {
  if (reportedAs_.vrf.stringValue() == vrfName) refresh();
}

template <class Record, class L3Record, class AddrWithMask, class Info>
void IntfAddressReactor<Record, L3Record, AddrWithMask, Info>::l3RecordChanged() {
  l3Watch_->notifierIs(l3Record());
  refresh();
}

template <class Record, class L3Record, class AddrWithMask, class Info>
ReportedAs IntfAddressReactor<Record, L3Record, AddrWithMask, Info>::reportedAsNow() const {
  const auto l3 = l3Watch_->notifier();
  const auto status = intfStatus();
  return {source(), l3 ? l3->vrf() : L3::VrfName(""),
          status ? std::optional(static_cast<std::int32_t>(ifIndex(status))) : std::nullopt};
}

template <class Record, class L3Record, class AddrWithMask, class Info>
void IntfAddressReactor<Record, L3Record, AddrWithMask, Info>::refresh() {
  auto now = reportedAsNow();
  if (now != reportedAs_) {
    withdrawAll();
    reportedAs_ = std::move(now);
  }
  for (const auto& addr : addresses()) {
    if (const auto info = addrInfo(addr)) report(addr, *info);
  }
}

// A details provider may change an ifIndex without a notification.
template <class Record, class L3Record, class AddrWithMask, class Info>
void IntfAddressReactor<Record, L3Record, AddrWithMask, Info>::addressChanged(const AddrWithMask& addr) {
  if (reportedAsNow() != reportedAs_) return refresh();
  if (const auto info = addrInfo(addr)) {
    report(addr, *info);
  } else {
    withdraw(addr);
  }
}

template <class Record, class L3Record, class AddrWithMask, class Info>
void IntfAddressReactor<Record, L3Record, AddrWithMask, Info>::report(const AddrWithMask& addr, const Info& info) {
  if (!reportedAs_.ifIndex) return;
  oldAddr_.insert_or_assign(addr, info);
  add(*owner_, intfId(), reportedAs_, addr);
}

template <class Record, class L3Record, class AddrWithMask, class Info>
void IntfAddressReactor<Record, L3Record, AddrWithMask, Info>::withdraw(const AddrWithMask& addr) {
  if (oldAddr_.erase(addr) == 0) return;
  del(*owner_, intfId(), reportedAs_, addr);
  std::vector<AddrWithMask> others;
  for (auto at = oldAddr_.lower_bound(AddrWithMask(addr.address(), 0));
       at != oldAddr_.end() && at->first.address() == addr.address(); ++at) {
    others.push_back(at->first);
  }
  for (const auto& other : others) add(*owner_, intfId(), reportedAs_, other);
}

template <class Record, class L3Record, class AddrWithMask, class Info>
void IntfAddressReactor<Record, L3Record, AddrWithMask, Info>::withdrawAll() {
  const auto gone = std::exchange(oldAddr_, {});
  for (const auto& [addr, info] : gone) del(*owner_, intfId(), reportedAs_, addr);
}

template class IntfAddressReactor<Ip::IpIntfConfig, L3::Intf::Config, Vantu::IpAddrWithMask, bool>;
template class IntfAddressReactor<Ip::IpIntfStatus, L3::Intf::Status, Vantu::IpAddrWithMask, bool>;
template class IntfAddressReactor<Ip6::IntfConfig, L3::Intf::Config, Vantu::Ip6AddrWithMask, Ip6::AddressInfo>;
template class IntfAddressReactor<Ip6::IntfStatus, L3::Intf::Status, Vantu::Ip6AddrWithMask, Ip6::AddressInfo>;

}  // namespace IpSnmp::AddressReactors

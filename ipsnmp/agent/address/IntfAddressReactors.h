#pragma once
// The four per-interface reactors: the IPv4 and IPv6 addresses of an interface, configured and in force.

#include <algorithm>
#include <utility>

#include "ipsnmp/agent/address/IntfAddressReactor.h"
#include "varnix/Ip.h"

namespace IpSnmp::AddressReactors {

// IPv4 records hold one primary address, 0.0.0.0 for none, and secondary ones. All are reported alike.
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

}  // namespace IpSnmp::AddressReactors

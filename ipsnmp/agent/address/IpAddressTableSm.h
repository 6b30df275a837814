#pragma once
// Keeps the address tables of the IP-MIB caches equal to the interfaces' IPv4 and IPv6 addresses.
//
// One instance serves all VRFs: it writes to the default VRF's cache and to those in `vrfIpMib`, which VrfRootSm fills.
// It runs only when a watched record changes. The tables (RFC 4293):
//   ipAddressTable        every address, with one (source, interface) pair for each interface that holds it
//   ipAddrTable           the IPv4 addresses
//   ipAddressPrefixTable  the prefix of each address, on the interface of its first pair; the row is this pair's
//                         prefix entry. Addresses with the same prefix on the same interface share a row.
// An address gets its rows once its interface has an ifIndex and its VRF has a cache.
// Requires: no reactor on a cache's address tables changes an address, or removes a VRF's cache, from its handler.
// Lifetime: stopping or destroying the machine removes its rows from every cache.

#include <map>
#include <set>
#include <vector>

#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/address/IntfAddressReactors.h"

namespace IpSnmp {

// The ifIndex of each of a set of interfaces, as a value.
class IfIndexMap {
 public:
  static constexpr const char* kelTypeName = "IpSnmp::IfIndexMap";

  // None without an ifIndex.
  std::optional<std::int32_t> ifIndex(const Vantu::IntfId& intfId) const {
    const auto at = ifIndex_.find(intfId);
    return at == ifIndex_.end() ? std::nullopt : std::optional(at->second);
  }
  // In order of the interface ids.
  const std::map<Vantu::IntfId, std::int32_t>& ifIndex() const { return ifIndex_; }

  void ifIndexIs(const Vantu::IntfId& intfId, std::int32_t ifIndex) { ifIndex_.insert_or_assign(intfId, ifIndex); }
  // Returns whether the interface had one.
  bool ifIndexDel(const Vantu::IntfId& intfId) { return ifIndex_.erase(intfId) > 0; }
  void ifIndexDelAll() { ifIndex_.clear(); }

  friend bool operator==(const IfIndexMap&, const IfIndexMap&) = default;

  // Reflection: an object with one field for each interface.
  template <class Visitor>
  void kelForEachField(Visitor&& visit) const {
    for (const auto& [intfId, ifIndex] : ifIndex_) visit(intfId.text().c_str(), ifIndex);
  }

 private:
  std::map<Vantu::IntfId, std::int32_t> ifIndex_;
};

class IpAddressTableSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpAddressTableSm", IpAddressTableSm, Kel::Entity)
 public:
  using KelIpIntfConfig = AddressReactors::KelIpIntfConfig;
  using KelIpIntfStatus = AddressReactors::KelIpIntfStatus;
  using KelIp6IntfConfig = AddressReactors::KelIp6IntfConfig;
  using KelIp6IntfStatus = AddressReactors::KelIp6IntfStatus;

  // Requires: no handle is null.
  // clang-format off
  KEL_CONSTRUCTOR(IpAddressTableSm,
    ((Kel::Ptr<const Interface::AllIntfStatusDir>, intfStatusDir))
    ((Kel::Ptr<IpMib>, ipMib))
    ((Kel::Ptr<const Ip::Config>, config))
    ((Kel::Ptr<const Ip::Status>, status))
    ((Kel::Ptr<const Ip6::Config>, config6))
    ((Kel::Ptr<const Ip6::Status>, status6)))
  // clang-format on

  // The caches of the VRFs other than the default one, by VRF name. Each belongs to its VRF.
  KEL_MEMBERS_READ(Hashed, Kel::Name, IpMib, vrfIpMib, VrfIpMib)

  // One reactor for each record that exists.
  KEL_MEMBERS(Hashed, Vantu::IntfId, KelIpIntfConfig, ipIntfConfig, IpIntfConfig)
  KEL_MEMBERS(Hashed, Vantu::IntfId, KelIpIntfStatus, ipIntfStatus, IpIntfStatus)
  KEL_MEMBERS(Hashed, Vantu::IntfId, KelIp6IntfConfig, ip6IntfConfig, Ip6IntfConfig)
  KEL_MEMBERS(Hashed, Vantu::IntfId, KelIp6IntfStatus, ip6IntfStatus, Ip6IntfStatus)
  KEL_TYPE_END_DECLARE

  ~IpAddressTableSm() override;
  void kelStart() override;
  void kelStop() override;

  // Adds the cache of a VRF under its own name, in place of another of that name. Call handleIntfInVrf to fill it.
  void vrfIpMibIs(const Kel::Ptr<IpMib>& ipMib);
  // Empties the address tables of the VRF's cache, and removes it. Returns whether there was one.
  bool vrfIpMibDel(const Kel::Name& vrfName);
  void vrfIpMibDelAll();
  // The VRF has another cache: every interface in the VRF reports its addresses again.
  void handleIntfInVrf(const Kel::Name& vrfName);
  // The interface's status record was created or deleted: passes it to the interface's reactors.
  void handleIntfStatus(const Vantu::IntfId& intfId);

  // The interface holds the address. The first prefix length reported for a source and interface is kept until the
  // address is deleted for them. No-op when `ifIndex` is below 1, the address is zero, or the VRF has no cache.
  void doAddAddr(const Vantu::IntfId& intfId, AddressSource source, std::int32_t ifIndex,
                 const L3::VrfName& vrfName, const Vantu::IpAddrWithMask& addr);
  void doAddAddr6(const Vantu::IntfId& intfId, AddressSource source, std::int32_t ifIndex,
                  const L3::VrfName& vrfName, const Vantu::Ip6AddrWithMask& addr);
  // The interface no longer holds the address, whatever its prefix length.
  void doDelAddr(const Vantu::IntfId& intfId, AddressSource source, const L3::VrfName& vrfName,
                 const Vantu::IpAddrWithMask& addr);
  void doDelAddr6(const Vantu::IntfId& intfId, AddressSource source, const L3::VrfName& vrfName,
                  const Vantu::Ip6AddrWithMask& addr);

  // The prefix entries of the first pairs of all addresses in one cache, by prefix. Any entry with a prefix's key can
  // serve as its row.
  struct ByPrefix {
    using is_transparent = void;
    using Entry = Kel::Ptr<IpAddressPrefixEntry>;
    bool operator()(const Entry& a, const Entry& b) const {
      const auto order = a->index() <=> b->index();
      return order != 0 ? order < 0 : a < b;
    }
    bool operator()(const Entry& a, const IpAddressPrefixKey& b) const { return a->index() < b; }
  };
  using PrefixCandidates = std::set<Kel::Ptr<IpAddressPrefixEntry>, ByPrefix>;

 private:
  struct KelConfig;
  struct KelStatus;
  struct KelConfig6;
  struct KelStatus6;

  Kel::Ptr<IpMib> ipMibOf(const L3::VrfName& vrfName);
  template <class AddrWithMask>
  void addAddr(const Vantu::IntfId& intfId, AddressSource source, std::int32_t ifIndex, const L3::VrfName& vrfName,
               const AddrWithMask& addr);
  template <class AddrWithMask>
  void delAddr(const Vantu::IntfId& intfId, AddressSource source, const L3::VrfName& vrfName,
               const AddrWithMask& addr);

  std::map<const IpMib*, PrefixCandidates> prefixCandidates_;
  std::vector<Kel::Ptr<Kel::NotifieeBase>> reactors_;  // empty: stopped
};

}  // namespace IpSnmp

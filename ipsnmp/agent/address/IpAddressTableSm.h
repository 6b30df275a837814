#pragma once
// Keeps the address tables of the IP-MIB caches in step with the interfaces' IPv4 and IPv6 addresses.
//
// One instance serves all VRFs: it writes the default VRF's cache directly, and every other VRF's through
// `vrfIpMib`, which whoever makes the VRFs' caches fills. It has no thread and no timer, and runs only when a
// watched record changes. The tables (RFC 4293):
//   ipAddressTable        every address, shared by the interfaces that hold it: one (source, interface) pair each
//   ipAddrTable           the IPv4 ones
//   ipAddressPrefixTable  the prefix of each address, on the interface of its first pair. The row is the very object
//                         that this pair holds; addresses with the same prefix on the same interface share a row,
//                         and it stays while one of them does.
// An address that cannot be placed yet (its interface has no status record or ifIndex, its VRF no cache) is placed
// when that comes. Stopping or destroying the machine takes out of every cache what it put in.

#include <map>
#include <memory>
#include <set>

#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/address/IntfAddressReactors.h"
#include "ipsnmp/agent/address/RecordReactors.h"

namespace IpSnmp {

class IpAddressTableSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpAddressTableSm", IpAddressTableSm, Kel::Entity)
 public:
  using KelIpIntfConfig = AddressReactors::KelIpIntfConfig;
  using KelIpIntfStatus = AddressReactors::KelIpIntfStatus;
  using KelIp6IntfConfig = AddressReactors::KelIp6IntfConfig;
  using KelIp6IntfStatus = AddressReactors::KelIp6IntfStatus;

  // None may be null.
  KEL_CONSTRUCTOR(IpAddressTableSm,
                  ((Kel::Ptr<const Interface::AllIntfStatusDir>, intfStatusDir))((Kel::Ptr<IpMib>, ipMib))(
                      (Kel::Ptr<const Ip::Config>, config))((Kel::Ptr<const Ip::Status>, status))(
                      (Kel::Ptr<const Ip6::Config>, config6))((Kel::Ptr<const Ip6::Status>, status6)))

  // The caches of the VRFs other than the default one, by VRF name. They belong to their VRFs.
  KEL_MEMBERS_READ(Hashed, Kel::Name, IpMib, vrfIpMib, VrfIpMib)

  // One reactor an interface and record kind, made and removed as the records come and go.
  KEL_MEMBERS(Hashed, Vantu::IntfId, KelIpIntfConfig, ipIntfConfig, IpIntfConfig)
  KEL_MEMBERS(Hashed, Vantu::IntfId, KelIpIntfStatus, ipIntfStatus, IpIntfStatus)
  KEL_MEMBERS(Hashed, Vantu::IntfId, KelIp6IntfConfig, ip6IntfConfig, Ip6IntfConfig)
  KEL_MEMBERS(Hashed, Vantu::IntfId, KelIp6IntfStatus, ip6IntfStatus, Ip6IntfStatus)
  KEL_TYPE_END_DECLARE

  ~IpAddressTableSm() override;
  void kelStart() override;
  void kelStop() override;

  // Enters the cache of a VRF under its own name, in the place of another of that name. Call handleIntfInVrf when
  // the cache may be filled.
  void vrfIpMibIs(const Kel::Ptr<IpMib>& ipMib);
  // Gives the cache up, its address tables emptied. False when there was none.
  bool vrfIpMibDel(const Kel::Name& vrfName);
  void vrfIpMibDelAll();
  // The cache of that VRF has come: every interface in it reports its addresses again.
  void handleIntfInVrf(const Kel::Name& vrfName);
  // The interface's status record came or went: its reactors get it.
  void handleIntfStatus(const Vantu::IntfId& intfId);

  // An interface holds an address. The first prefix length told for a source and interface stays until
  // the address is deleted for them; without an ifIndex (below 1) or a cache of the VRF nothing happens.
  void doAddAddr(const Vantu::IntfId& intfId, AddressSource source, std::int32_t ifIndex,
                 const L3::VrfName& vrfName, const Vantu::IpAddrWithMask& addr);
  void doAddAddr6(const Vantu::IntfId& intfId, AddressSource source, std::int32_t ifIndex,
                  const L3::VrfName& vrfName, const Vantu::Ip6AddrWithMask& addr);
  // It does so no longer, whatever prefix length was in force.
  void doDelAddr(const Vantu::IntfId& intfId, AddressSource source, const L3::VrfName& vrfName,
                 const Vantu::IpAddrWithMask& addr);
  void doDelAddr6(const Vantu::IntfId& intfId, AddressSource source, const L3::VrfName& vrfName,
                  const Vantu::Ip6AddrWithMask& addr);

  // The prefix entries of the first pairs of all addresses in one cache, by prefix. The row of a prefix is one of
  // those with its key; which of them makes no difference to a reader.
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
  void stop();
  Kel::Ptr<IpMib> ipMibOf(const L3::VrfName& vrfName);
  template <class AddrWithMask>
  void addAddr(const Vantu::IntfId& intfId, AddressSource source, std::int32_t ifIndex, const L3::VrfName& vrfName,
               const AddrWithMask& addr);
  template <class AddrWithMask>
  void delAddr(const Vantu::IntfId& intfId, AddressSource source, const L3::VrfName& vrfName,
               const AddrWithMask& addr);

  // Take the handle before anything is notified: a reactor may delete the cache, and its candidates with it.
  std::shared_ptr<PrefixCandidates> candidatesOf(const IpMib& ipMib);

  std::map<const IpMib*, std::shared_ptr<PrefixCandidates>> prefixCandidates_;
  Kel::Ptr<AddressReactors::KelConfig> kelConfig_;
  Kel::Ptr<AddressReactors::KelStatus> kelStatus_;
  Kel::Ptr<AddressReactors::KelConfig6> kelConfig6_;
  Kel::Ptr<AddressReactors::KelStatus6> kelStatus6_;
  Kel::Ptr<AddressReactors::KelIntfStatusDir> kelIntfStatusDir_;
};

}  // namespace IpSnmp

#include "ipsnmp/agent/address/IpAddressTableSm.h"

#include "kel/Trace.h"

KEL_TYPE_DEFINE(IpSnmp::IpAddressTableSm)

namespace IpSnmp {
namespace {

Kel::TraceHandle ipAddressTableSmTrace("IpAddressTableSm");

InetAddress inetAddress(const Vantu::IpAddr& addr) {
  return InetAddress::fromIpAddr(addr);
}
InetAddress inetAddress(const Vantu::Ip6Addr& addr) {
  return InetAddress::fromIp6Addr(addr);
}

template <class AddrWithMask>
Kel::Ptr<IpAddressPrefixEntry> makePrefixEntry(std::int32_t ifIndex, const AddrWithMask& addr) {
  const auto prefix = inetAddress(addr.prefix());
  return Kel::makePtr<IpAddressPrefixEntry>(
      IpAddressPrefixKey(static_cast<std::uint32_t>(ifIndex), prefix.version(), prefix.bytes(), addr.length()));
}

using PrefixEntry = Kel::Ptr<IpAddressPrefixEntry>;
using PrefixCandidates = IpAddressTableSm::PrefixCandidates;

// Call it when the first pair of an address changes from the one with `former` to the one with `next` (null: none).
// Moves the row along. Another address with `former`'s prefix on the same interface inherits the row of `former`.
void passPrefixRow(IpMib& ipMib, PrefixCandidates& candidates, const PrefixEntry& former, const PrefixEntry& next) {
  if (former) candidates.erase(former);
  if (next) candidates.insert(next);
  // With the same key, `next` just replaces the row.
  const bool isKeyLeft = former && (!next || next->index() != former->index());
  if (isKeyLeft && ipMib.ipAddressPrefixTable(former->index()) == former) {
    const auto other = candidates.lower_bound(former->index());
    if (other != candidates.end() && (*other)->index() == former->index()) {
      ipMib.ipAddressPrefixTableInsert(*other);
    } else {
      ipMib.ipAddressPrefixTableDel(former->index());
    }
  }
  if (next) ipMib.ipAddressPrefixTableInsert(next);
}

void decidePrefixRow(IpMib& ipMib, PrefixCandidates& candidates, const IpAddressEntry& entry,
                     const IntfData& pair) {
  const auto& intfId = pair.key().intfId();
  if (entry.intf().empty()) {
    QTRACE(ipAddressTableSmTrace, 6) << intfId << " (ifIndex " << pair.ifIndex()
                                     << ") is the first in the prefix table";
    return passPrefixRow(ipMib, candidates, nullptr, pair.prefixEntry());
  }
  const IntfData first = entry.intf().begin()->second;
  if (pair.key() < first.key()) {
    QTRACE(ipAddressTableSmTrace, 6) << intfId << " (ifIndex " << pair.ifIndex() << ") taking over prefix table"
                                     << " row for ifIndex " << first.ifIndex() << " because old intfKey "
                                     << first.key() << " < new intfKey " << pair.key();
    return passPrefixRow(ipMib, candidates, first.prefixEntry(), pair.prefixEntry());
  }
  QTRACE(ipAddressTableSmTrace, 6) << intfId << " not added to the prefix table; ifIndex " << first.ifIndex()
                                   << " is better";
}

void delPair(IpMib& ipMib, PrefixCandidates& candidates, IpAddressEntry& entry, const IntfData& pair) {
  const bool isFirst = entry.intf().begin()->first == pair.key();
  entry.intfDel(pair.key());
  if (isFirst) passPrefixRow(ipMib, candidates, pair.prefixEntry(), entry.prefixEntry());
  if (!entry.intf().empty()) return;
  if (entry.addrVersion() == Ip::ipVersion4) ipMib.ipAddrTableDel(entry.ipAdEntAddr());
  ipMib.ipAddressTableDel(entry.index());
}

void emptyAddressTables(IpMib& ipMib) {
  ipMib.ipAddrTableDelAll();
  ipMib.ipAddressTableDelAll();
  ipMib.ipAddressPrefixTableDelAll();
}

template <class Reactor>
void giveIntfStatus(const Kel::Ptr<Reactor>& reactor, const Kel::Ptr<const Interface::IntfStatus>& status,
                    const char* found) {
  if (!reactor) return;
  QTRACE(ipAddressTableSmTrace, 6) << reactor->intfId() << found;
  reactor->intfStatusIs(status);
}

}  // namespace

// Each creates and deletes the per-interface reactors of one kind. A record may be deleted and created again before
// the change is notified, so its reactor is always created again.
struct IpAddressTableSm::KelConfig : OwnedReactor<IpAddressTableSm, Ip::Config> {
  using OwnedReactor::OwnedReactor;
  void handleIpIntfConfig(const Vantu::IntfId& intfId) override {
    owner_->ipIntfConfigDel(intfId);
    if (const auto record = notifier()->ipIntfConfig(intfId)) owner_->ipIntfConfigIs(owner_, record);
  }
};

struct IpAddressTableSm::KelStatus : OwnedReactor<IpAddressTableSm, Ip::Status> {
  using OwnedReactor::OwnedReactor;
  void handleIpIntfStatus(const Vantu::IntfId& intfId) override {
    owner_->ipIntfStatusDel(intfId);
    if (const auto record = notifier()->ipIntfStatus(intfId)) owner_->ipIntfStatusIs(owner_, record);
  }
};

struct IpAddressTableSm::KelConfig6 : OwnedReactor<IpAddressTableSm, Ip6::Config> {
  using OwnedReactor::OwnedReactor;
  void handleIntf(const Vantu::IntfId& intfId) override {
    owner_->ip6IntfConfigDel(intfId);
    if (const auto record = notifier()->intf(intfId)) owner_->ip6IntfConfigIs(owner_, record);
  }
};

struct IpAddressTableSm::KelStatus6 : OwnedReactor<IpAddressTableSm, Ip6::Status> {
  using OwnedReactor::OwnedReactor;
  void handleIntf(const Vantu::IntfId& intfId) override {
    owner_->ip6IntfStatusDel(intfId);
    if (const auto record = notifier()->intf(intfId)) owner_->ip6IntfStatusIs(owner_, record);
  }
};

IpAddressTableSm::~IpAddressTableSm() {
  IpAddressTableSm::kelStop();
}

void IpAddressTableSm::kelStart() {
  const auto kelConfig = Kel::makePtr<KelConfig>(this);
  const auto kelStatus = Kel::makePtr<KelStatus>(this);
  const auto kelConfig6 = Kel::makePtr<KelConfig6>(this);
  const auto kelStatus6 = Kel::makePtr<KelStatus6>(this);
  const auto kelIntfStatusDir =
      Kel::makePtr<KelIntfStatusDir>([this](const Vantu::IntfId& intfId) { handleIntfStatus(intfId); });
  reactors_ = {kelConfig, kelStatus, kelConfig6, kelStatus6, kelIntfStatusDir};
  kelConfig->notifierIs(config());
  kelStatus->notifierIs(status());
  kelConfig6->notifierIs(config6());
  kelStatus6->notifierIs(status6());
  kelIntfStatusDir->notifierIs(intfStatusDir());
  for (const auto& intfId : config()->ipIntfConfig().keys()) kelConfig->handleIpIntfConfig(intfId);
  for (const auto& intfId : status()->ipIntfStatus().keys()) kelStatus->handleIpIntfStatus(intfId);
  for (const auto& intfId : config6()->intf().keys()) kelConfig6->handleIntf(intfId);
  for (const auto& intfId : status6()->intf().keys()) kelStatus6->handleIntf(intfId);
}

void IpAddressTableSm::kelStop() {
  reactors_.clear();
  ipIntfConfigDelAll();
  ipIntfStatusDelAll();
  ip6IntfConfigDelAll();
  ip6IntfStatusDelAll();
  vrfIpMibDelAll();  // the collection's destructor would detach the caches from their VRFs
}

void IpAddressTableSm::vrfIpMibIs(const Kel::Ptr<IpMib>& ipMib) {
  QTRACE_ENTRY(ipAddressTableSmTrace, ipMib.get());
  const Kel::Name vrfName = ipMib->name();
  if (vrfIpMib(vrfName) == ipMib) return;
  vrfIpMibDel(vrfName);
  vrfIpMib_.map.kelInsert(vrfName, ipMib);
  KEL_NOTIFY_KEY(VrfIpMib, vrfName);
}

bool IpAddressTableSm::vrfIpMibDel(const Kel::Name& givenName) {
  QTRACE_ENTRY(ipAddressTableSmTrace, this);
  const Kel::Name vrfName = givenName;  // the caller's may live in the cache
  const auto ipMib = vrfIpMib_.map.kelTake(vrfName);
  if (!ipMib) return false;
  prefixCandidates_.erase(ipMib.get());
  emptyAddressTables(*ipMib);
  KEL_NOTIFY_KEY(VrfIpMib, vrfName);
  return true;
}

void IpAddressTableSm::vrfIpMibDelAll() {
  for (const auto& vrfName : vrfIpMib().keys()) vrfIpMibDel(vrfName);
}

void IpAddressTableSm::handleIntfInVrf(const Kel::Name& vrfName) {
  QTRACE_ENTRY(ipAddressTableSmTrace, this);
  QTRACE(ipAddressTableSmTrace, 2) << "reporting the addresses of vrf " << vrfName << " again";
  for (const auto& [intfId, reactor] : ipIntfConfig()) reactor->handleVrf(vrfName);
  for (const auto& [intfId, reactor] : ipIntfStatus()) reactor->handleVrf(vrfName);
  for (const auto& [intfId, reactor] : ip6IntfConfig()) reactor->handleVrf(vrfName);
  for (const auto& [intfId, reactor] : ip6IntfStatus()) reactor->handleVrf(vrfName);
}

void IpAddressTableSm::handleIntfStatus(const Vantu::IntfId& intfId) {
  QTRACE_ENTRY(ipAddressTableSmTrace, this);
  const auto status = intfStatusDir()->intfStatus(intfId);
  giveIntfStatus(ipIntfConfig(intfId), status, " Have IpIntfConfig");
  giveIntfStatus(ipIntfStatus(intfId), status, " Have IpIntfStatus");
  giveIntfStatus(ip6IntfConfig(intfId), status, " Have Ip6IntfConfig");
  giveIntfStatus(ip6IntfStatus(intfId), status, " Have Ip6IntfStatus");
}

Kel::Ptr<IpMib> IpAddressTableSm::ipMibOf(const L3::VrfName& vrfName) {
  if (vrfName.isDefault()) return ipMib();
  auto found = vrfIpMib(vrfName.stringValue());
  if (!found) {
    QTRACE(ipAddressTableSmTrace, 6) << "no ipmib in vrf " << vrfName;
  }
  return found;
}

template <class AddrWithMask>
void IpAddressTableSm::addAddr(const Vantu::IntfId& intfId, AddressSource source, std::int32_t ifIndex,
                               const L3::VrfName& vrfName, const AddrWithMask& addr) {
  QTRACE(ipAddressTableSmTrace, 6) << "add: intf " << intfId << " source " << Kel::enumName(source) << " ifIndex "
                                   << ifIndex << " address " << addr << " vrf " << vrfName;
  const auto ipMib = ipMibOf(vrfName);
  if (!ipMib) return;
  if (addr.address().isZero() || ifIndex < 1) {
    QTRACE(ipAddressTableSmTrace, 6) << intfId << " has no " << (ifIndex < 1 ? "ifIndex" : "address")
                                     << "; ignoring " << addr;
    return;
  }
  auto& candidates = prefixCandidates_[ipMib.get()];
  auto entry = ipMib->ipAddressTableIs(inetAddress(addr.address()));
  const IntfData pair(IntfDataKey(source, intfId), makePrefixEntry(ifIndex, addr));
  if (const auto* present = entry->intf(pair.key())) {
    const IntfData held = *present;
    const auto& heldPrefix = held.prefixEntry()->index();
    if (heldPrefix.length() != addr.length()) {
      QTRACE(ipAddressTableSmTrace, 6) << intfId << " already has address " << addr.address()
                                       << " with prefix length " << heldPrefix.length() << "; ignoring it";
      return;
    }
    // Reported again: the pair keeps its prefix entry, which may be a row of the prefix table.
    if (heldPrefix == pair.prefixEntry()->index()) return;
    // The ifIndex has changed.
    delPair(*ipMib, candidates, *entry, held);
    entry = ipMib->ipAddressTableIs(inetAddress(addr.address()));
  }
  decidePrefixRow(*ipMib, candidates, *entry, pair);
  entry->intfIs(pair);
  if (entry->addrVersion() == Ip::ipVersion4) ipMib->ipAddrTableIs(entry);
}

template <class AddrWithMask>
void IpAddressTableSm::delAddr(const Vantu::IntfId& intfId, AddressSource source, const L3::VrfName& vrfName,
                               const AddrWithMask& addr) {
  QTRACE(ipAddressTableSmTrace, 6) << "delete: intf " << intfId << " source " << Kel::enumName(source)
                                   << " address " << addr << " vrf " << vrfName;
  const auto ipMib = ipMibOf(vrfName);
  if (!ipMib) return;
  const auto entry = ipMib->ipAddressTable(inetAddress(addr.address()));
  if (!entry) return;
  if (const auto* present = entry->intf(IntfDataKey(source, intfId))) {
    const IntfData pair = *present;
    delPair(*ipMib, prefixCandidates_[ipMib.get()], *entry, pair);
  }
}

void IpAddressTableSm::doAddAddr(const Vantu::IntfId& intfId, AddressSource source, std::int32_t ifIndex,
                                 const L3::VrfName& vrfName, const Vantu::IpAddrWithMask& addr) {
  QTRACE_ENTRY(ipAddressTableSmTrace, this);
  addAddr(intfId, source, ifIndex, vrfName, addr);
}

void IpAddressTableSm::doAddAddr6(const Vantu::IntfId& intfId, AddressSource source, std::int32_t ifIndex,
                                  const L3::VrfName& vrfName, const Vantu::Ip6AddrWithMask& addr) {
  QTRACE_ENTRY(ipAddressTableSmTrace, this);
  addAddr(intfId, source, ifIndex, vrfName, addr);
}

void IpAddressTableSm::doDelAddr(const Vantu::IntfId& intfId, AddressSource source, const L3::VrfName& vrfName,
                                 const Vantu::IpAddrWithMask& addr) {
  QTRACE_ENTRY(ipAddressTableSmTrace, this);
  delAddr(intfId, source, vrfName, addr);
}

void IpAddressTableSm::doDelAddr6(const Vantu::IntfId& intfId, AddressSource source, const L3::VrfName& vrfName,
                                  const Vantu::Ip6AddrWithMask& addr) {
  QTRACE_ENTRY(ipAddressTableSmTrace, this);
  delAddr(intfId, source, vrfName, addr);
}

}  // namespace IpSnmp

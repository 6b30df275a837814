#include "ipsnmp/agent/vrf/VrfIfTableSm.h"

#include "kel/Trace.h"

KEL_TYPE_DEFINE(IpSnmp::VrfIfTableSm)

namespace IpSnmp {
namespace {

Kel::TraceHandle vrfIfTableSmTrace("VrfIfTableSm");

}  // namespace

namespace VrfIfReactors {

template <class Record>
void IntfReactor<Record>::kelStart() {
  this->notifierIs(record_);
  l3Watch_->notifierIs(record_->l3Config());
  intfStatusIs(owner_->intfStatusDir()->intfStatus(record_->intfId()));
}

template <class Record>
void IntfReactor<Record>::kelStop() {
  this->notifierIs(nullptr);
  l3Watch_->notifierIs(nullptr);
  intfStatusWatch_->notifierIs(nullptr);
}

template <class Record>
void IntfReactor<Record>::intfStatusIs(const Kel::Ptr<const Interface::IntfStatus>& status) {
  if (!this->notifier()) return;  // stopped
  intfStatusWatch_->notifierIs(status);
  changed();
}

template <class Record>
L3::VrfName IntfReactor<Record>::vrf() const {
  const auto l3 = l3Watch_->notifier();
  return l3 ? l3->vrf() : L3::VrfName();
}

template <class Record>
void IntfReactor<Record>::handleL3Config() {
  l3Watch_->notifierIs(record_->l3Config());
  changed();
}

template <class Record>
void IntfReactor<Record>::changed() {
  owner_->handleIntf(record_->intfId());
}

template class IntfReactor<Ip::IpIntfConfig>;
template class IntfReactor<Ip6::IntfConfig>;

}  // namespace VrfIfReactors

// A record may be deleted and created again before the change is notified, so its reactor is always created again.
struct VrfIfTableSm::KelConfig : OwnedReactor<VrfIfTableSm, Ip::Config> {
  using OwnedReactor::OwnedReactor;
  void handleIpIntfConfig(const Vantu::IntfId& givenId) override {
    const Vantu::IntfId intfId = givenId;
    owner_->ipIntfConfigDel(intfId);
    if (const auto record = notifier()->ipIntfConfig(intfId)) owner_->ipIntfConfigIs(owner_, record);
    owner_->handleIntf(intfId);
  }
};

struct VrfIfTableSm::KelConfig6 : OwnedReactor<VrfIfTableSm, Ip6::Config> {
  using OwnedReactor::OwnedReactor;
  void handleIntf(const Vantu::IntfId& givenId) override {
    const Vantu::IntfId intfId = givenId;
    owner_->ip6IntfConfigDel(intfId);
    if (const auto record = notifier()->intf(intfId)) owner_->ip6IntfConfigIs(owner_, record);
    owner_->handleIntf(intfId);
  }
};

struct VrfIfTableSm::KelIpVrfMib : OwnedReactor<VrfIfTableSm, IpVrfMib> {
  using OwnedReactor::OwnedReactor;
  void handleVrfTable(const Snmp::String& vrfName) override {
    if (notifier()->vrfTableHas(vrfName)) owner_->handleVrf(L3::VrfName(vrfName.raw()));
  }
};

VrfIfTableSm::~VrfIfTableSm() {
  VrfIfTableSm::kelStop();
}

void VrfIfTableSm::kelStart() {
  const auto kelConfig = Kel::makePtr<KelConfig>(this);
  const auto kelConfig6 = Kel::makePtr<KelConfig6>(this);
  const auto kelIpVrfMib = Kel::makePtr<KelIpVrfMib>(this);
  const auto kelIntfStatusDir =
      Kel::makePtr<KelIntfStatusDir>([this](const Vantu::IntfId& intfId) { handleIntfStatus(intfId); });
  reactors_ = {kelConfig, kelConfig6, kelIpVrfMib, kelIntfStatusDir};
  kelConfig->notifierIs(config());
  kelConfig6->notifierIs(config6());
  kelIpVrfMib->notifierIs(ipVrfMib());
  kelIntfStatusDir->notifierIs(intfStatusDir());
  for (const auto& intfId : config()->ipIntfConfig().keys()) kelConfig->handleIpIntfConfig(intfId);
  for (const auto& intfId : config6()->intf().keys()) kelConfig6->handleIntf(intfId);
}

void VrfIfTableSm::kelStop() {
  if (reactors_.empty()) return;
  reactors_.clear();
  ipIntfConfigDelAll();
  ip6IntfConfigDelAll();
  claims_.clear();
  claimsByIfIndex_.clear();
  ipVrfMib()->vrfIfTableDelAll();
}

void VrfIfTableSm::handleIntfStatus(const Vantu::IntfId& givenId) {
  QTRACE_ENTRY(vrfIfTableSmTrace, this);
  const Vantu::IntfId intfId = givenId;  // the caller's may live in the record
  const Kel::Ptr<VrfIfTableSm> self(this);
  const auto status = intfStatusDir()->intfStatus(intfId);
  if (const auto reactor = ipIntfConfig(intfId)) reactor->intfStatusIs(status);
  if (const auto reactor = ip6IntfConfig(intfId)) reactor->intfStatusIs(status);
}

std::optional<VrfIfTableSm::Claim> VrfIfTableSm::claimOf(const Vantu::IntfId& intfId) const {
  const auto status = intfStatusDir()->intfStatus(intfId);
  const auto ifIndex = assignedIfIndex(status);
  if (ifIndex == 0) return std::nullopt;
  L3::VrfName vrf;
  if (const auto reactor = ipIntfConfig(intfId)) vrf = reactor->vrf();
  if (const auto reactor = ip6IntfConfig(intfId); reactor && vrf.isDefault()) vrf = reactor->vrf();
  if (vrf.isDefault()) return std::nullopt;
  return Claim{ifIndex, vrf, status};
}

void VrfIfTableSm::handleIntf(const Vantu::IntfId& givenId) {
  if (reactors_.empty()) return;  // stopped
  const Vantu::IntfId intfId = givenId;
  const Kel::Ptr<VrfIfTableSm> self(this);
  const auto now = claimOf(intfId);
  std::optional<Claim> before;
  if (const auto at = claims_.find(intfId); at != claims_.end()) before = at->second;
  if (now == before) return;
  if (before) claimsByIfIndex_.erase({before->ifIndex, intfId});
  if (now) {
    claims_.insert_or_assign(intfId, *now);
    claimsByIfIndex_.emplace(now->ifIndex, intfId);
  } else {
    claims_.erase(intfId);
  }
  if (before && (!now || now->ifIndex != before->ifIndex)) settle(before->ifIndex);
  if (now) settle(now->ifIndex);
}

void VrfIfTableSm::settle(std::uint32_t ifIndex) {
  const auto first = claimsByIfIndex_.lower_bound({ifIndex, Vantu::IntfId()});
  if (first == claimsByIfIndex_.end() || first->first != ifIndex) return delFromVrfIfTable(ifIndex);
  const Claim claim = claims_.at(first->second);
  addToVrfIfTable(claim.vrf.stringValue(), claim.intfStatus);
}

void VrfIfTableSm::addToVrfIfTable(const Kel::Name& vrfName,
                                   const Kel::Ptr<const Interface::IntfStatus>& intfStatus) {
  QTRACE_ENTRY(vrfIfTableSmTrace, this);
  QTRACE(vrfIfTableSmTrace, 6) << " for vrf " << vrfName;
  const auto ifIndex = assignedIfIndex(intfStatus);
  if (ifIndex == 0) return;
  if (L3::VrfName(vrfName).isDefault()) {
    ipVrfMib()->vrfIfTableDel(ifIndex);
    return;
  }
  const auto row = ipVrfMib()->vrfIfTableIs(ifIndex);
  row->vrfNameIs(vrfName);
  row->intfStatusIs(intfStatus);
}

void VrfIfTableSm::delFromVrfIfTable(std::uint32_t ifIndex) {
  QTRACE_ENTRY(vrfIfTableSmTrace, this);
  ipVrfMib()->vrfIfTableDel(ifIndex);
}

void VrfIfTableSm::handleVrf(const L3::VrfName& vrfName) {
  const Kel::Ptr<VrfIfTableSm> self(this);
  std::vector<std::uint32_t> claimed;
  for (const auto& [intfId, claim] : claims_) {
    if (claim.vrf == vrfName) claimed.push_back(claim.ifIndex);
  }
  for (const auto ifIndex : claimed) settle(ifIndex);
}

}  // namespace IpSnmp

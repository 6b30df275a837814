#include "ipsnmp/agent/interface/IfTableSm.h"

#include <algorithm>

KEL_TYPE_DEFINE(IpSnmp::IfTableSm)

namespace IpSnmp {
namespace {

bool hasFallen(const Interface::LinkCounters& from, const Interface::LinkCounters& to) {
  return to.inOctets() < from.inOctets() || to.inPkts() < from.inPkts() || to.inMcastPkts() < from.inMcastPkts() ||
         to.inDiscards() < from.inDiscards() || to.inErrors() < from.inErrors() ||
         to.outOctets() < from.outOctets() || to.outPkts() < from.outPkts() ||
         to.outDiscards() < from.outDiscards() || to.outErrors() < from.outErrors();
}

}  // namespace

struct IfTableSm::KelAllIntfCounters : OwnedReactor<IfTableSm, Interface::AllIntfCounters> {
  using OwnedReactor::OwnedReactor;
  void handleIntfCounters(const Vantu::IntfId& intfId) override { owner_->handleCounters(intfId); }
};

struct IfTableSm::KelL3ConfigDir : OwnedReactor<IfTableSm, L3::Intf::ConfigDir> {
  using OwnedReactor::OwnedReactor;
  void handleIntfConfig(const Vantu::IntfId& intfId) override { owner_->handleIntf(intfId); }
};

struct IfTableSm::KelVrfMibsDir : OwnedReactor<IfTableSm, VrfMibsDir> {
  using OwnedReactor::OwnedReactor;
  void handleMibs(const Kel::Name& vrfName) override { owner_->handleMibs(vrfName); }
};

IfTableSm::~IfTableSm() {
  IfTableSm::kelStop();
}

void IfTableSm::kelStart() {
  const auto statusDir =
      Kel::makePtr<KelIntfStatusDir>([this](const Vantu::IntfId& intfId) { handleIntf(intfId); });
  const auto counters = Kel::makePtr<KelAllIntfCounters>(this);
  const auto l3Configs = Kel::makePtr<KelL3ConfigDir>(this);
  const auto mibs = Kel::makePtr<KelVrfMibsDir>(this);
  reactors_ = {statusDir, counters, l3Configs, mibs};
  statusDir->notifierIs(intfStatusDir());
  counters->notifierIs(allIntfCounters());
  l3Configs->notifierIs(l3ConfigDir());
  mibs->notifierIs(vrfMibsDir());
  for (const auto& intfId : intfStatusDir()->intfStatus().keys()) handleIntf(intfId);
}

void IfTableSm::kelStop() {
  if (reactors_.empty()) return;
  for (auto& [intfId, watch] : watches_) removeRow(watch);
  reactors_.clear();
  watches_.clear();
}

Kel::Seconds IfTableSm::now() const {
  const auto status = snmpStatus()->agentStatus();
  return status && status->agentReady() ? Kel::System::currentTime() : 0;
}

template <class Visit>
void IfTableSm::forEachTables(const L3::VrfName& vrf, const Visit& visit) const {
  if (vrf.isDefault() || areAllInDefault_) visit(*defaultTables());
  if (vrf.isDefault()) return;
  const auto mibs = vrfMibsDir()->mibs(vrf.stringValue());
  if (const auto tables = mibs ? mibs->iftables() : nullptr) visit(*tables);
}

void IfTableSm::setAllInDefault(bool areAllInDefault) {
  if (areAllInDefault_ == areAllInDefault) return;
  areAllInDefault_ = areAllInDefault;
  for (const auto& [vrf, intfId] : members_) {
    if (vrf.isDefault()) continue;
    const auto& row = watches_.at(intfId).row;
    if (areAllInDefault) {
      defaultTables()->enter(row, now());
    } else {
      defaultTables()->remove(row, now());
    }
  }
}

// A VRF was created, with empty tables, or removed.
void IfTableSm::handleMibs(const Kel::Name& vrfName) {
  const auto mibs = vrfMibsDir()->mibs(vrfName);
  if (!mibs || !mibs->iftables()) return;
  const L3::VrfName vrf(vrfName);
  for (auto at = members_.lower_bound({vrf, Vantu::IntfId()}); at != members_.end() && at->first == vrf; ++at) {
    mibs->iftables()->enter(watches_.at(at->second).row, 0);
  }
}

void IfTableSm::handleIntf(const Vantu::IntfId& givenId) {
  if (reactors_.empty()) return;         // stopped
  const Vantu::IntfId intfId = givenId;  // the caller's may live in the record
  const auto status = intfStatusDir()->intfStatus(intfId);
  if (!status) {
    const auto at = watches_.find(intfId);
    if (at == watches_.end()) return;
    removeRow(at->second);
    watches_.erase(at);
    return;
  }
  Watch& watch = watches_[intfId];
  if (!watch.status) {
    watch.status = Kel::makePtr<KelIntfStatus>(this);
    watch.counters = Kel::makePtr<KelIntfCounters>(this);
    watch.l3Config = Kel::makePtr<KelL3Config>(this);
  }
  const auto l3Config = l3ConfigDir()->intfConfig(intfId);
  watch.status->notifierIs(status);
  watch.l3Config->notifierIs(l3Config);
  const auto ifIndex = l3Config ? assignedIfIndex(status) : 0;
  const bool isSame =
      watch.row && watch.row->status() == status && watch.row->ifIndex() == ifIndex && watch.vrf == l3Config->vrf();
  if (!isSame) removeRow(watch);
  if (ifIndex == 0) return;
  const auto time = now();
  if (!watch.row) {
    watch.row = Kel::makePtr<IfEntry>(ifIndex, status);
    watch.row->lastChangeIs(time);
    // Its counters may be those of another device than the last one with this ifIndex had.
    watch.row->discontinuityTimeIs(time);
    watch.vrf = l3Config->vrf();
    members_.emplace(watch.vrf, intfId);
    handleCounters(intfId);
  } else if (watch.operStatus != watch.row->operStatus()) {
    watch.row->lastChangeIs(time);
  }
  watch.operStatus = watch.row->operStatus();
  forEachTables(watch.vrf, [&](IfTables& tables) { tables.enter(watch.row, time); });
}

void IfTableSm::handleCounters(const Vantu::IntfId& intfId) {
  const auto at = watches_.find(intfId);
  if (reactors_.empty() || at == watches_.end()) return;
  Watch& watch = at->second;
  watch.counters->notifierIs(allIntfCounters()->intfCounters(intfId));
  if (watch.row) setCounters(watch);
}

void IfTableSm::setCounters(Watch& watch) const {
  const auto record = watch.counters->notifier();
  watch.row->countersIs(record);
  if (!record) return;
  const auto& counters = record->counters();
  const bool isContinued = watch.known && !hasFallen(*watch.known, counters);
  if (watch.known && !isContinued) watch.row->discontinuityTimeIs(Kel::System::currentTime());
  const auto unicast = counters.inPkts() - std::min(counters.inPkts(), counters.inMcastPkts());
  watch.row->inUcastPktsIs(isContinued ? std::max(unicast, watch.row->inUcastPkts()) : unicast);
  watch.known = counters;
}

void IfTableSm::removeRow(Watch& watch) {
  const auto row = std::exchange(watch.row, nullptr);
  if (!row) return;
  members_.erase({watch.vrf, row->status()->intfId()});
  watch.known.reset();
  forEachTables(watch.vrf, [&](IfTables& tables) { tables.remove(row, now()); });
}

}  // namespace IpSnmp

#include "ipsnmp/agent/address/IpIfStatsSm.h"

KEL_TYPE_DEFINE(IpSnmp::IpIfStatsSm)

namespace IpSnmp {
namespace {

void copy(const Ip::IntfStats& from, IpIfStatsEntry& row) {
  const Ip::IntfCounters& counters = from.counters();
  row.ipIfStatsInPktsIs(counters.inPkts());
  row.ipIfStatsInOctetsIs(counters.inOctets());
  row.ipIfStatsOutPktsIs(counters.outPkts());
  row.ipIfStatsOutOctetsIs(counters.outOctets());
  row.ipIfStatsInUcastPktsIs(counters.inUcastPkts());
  row.ipIfStatsInUcastOctetsIs(counters.inUcastOctets());
  row.ipIfStatsOutUcastPktsIs(counters.outUcastPkts());
  row.ipIfStatsOutUcastOctetsIs(counters.outUcastOctets());
  row.ipIfStatsInMcastPktsIs(counters.inMcastPkts());
  row.ipIfStatsInMcastOctetsIs(counters.inMcastOctets());
  row.ipIfStatsOutMcastPktsIs(counters.outMcastPkts());
  row.ipIfStatsOutMcastOctetsIs(counters.outMcastOctets());
  row.discontinuityTimeIs(Kel::System::localTime(from.discontinuityTime(), from.utcOffset()));
}

}  // namespace

IpIfStatsSm::~IpIfStatsSm() {
  IpIfStatsSm::kelStop();
}

void IpIfStatsSm::kelStart() {
  kelIntfStatusDir_ = Kel::makePtr<KelIntfStatusDir>([this](const Vantu::IntfId& intfId) { handleIntf(intfId); });
  kelIntfStatusDir_->notifierIs(intfStatusDir());
  kelAllIntfStats_ = Kel::makePtr<KelAllIntfStats>(this);
  kelAllIntfStats_->notifierIs(allIntfStats());
  for (const auto& intfId : allIntfStats()->intfStats().keys()) handleIntf(intfId);
}

void IpIfStatsSm::kelStop() {
  if (!kelIntfStatusDir_) return;
  kelIntfStatusDir_ = nullptr;
  kelAllIntfStats_ = nullptr;
  for (auto& [intfId, watch] : watches_) removeRow(intfId, watch);
  watches_.clear();
}

void IpIfStatsSm::handleIntf(const Vantu::IntfId& givenId) {
  if (!kelIntfStatusDir_) return;
  const Vantu::IntfId intfId = givenId;  // the caller's may live in the record
  const auto stats = allIntfStats()->intfStats(intfId);
  const auto at = watches_.find(intfId);
  if (!stats) {
    if (at == watches_.end()) return;
    Watch gone = std::move(at->second);
    watches_.erase(at);
    return removeRow(intfId, gone);
  }
  Watch& watch = watches_[intfId];
  if (!watch.stats) {
    watch.stats = Kel::makePtr<KelIntfStats>(this);
    watch.status = Kel::makePtr<IfIndexWatch>([this, intfId] { handleIntf(intfId); });
  }
  const auto status = intfStatusDir()->intfStatus(intfId);
  watch.stats->notifierIs(stats);
  watch.status->notifierIs(status);
  setRow(intfId, watch, assignedIfIndex(status));
}

void IpIfStatsSm::setRow(const Vantu::IntfId& intfId, Watch& watch, std::uint32_t ifIndex) {
  if (watch.ifIndex != ifIndex) removeRow(intfId, watch);
  if (ifIndex == 0) return;
  watch.ifIndex = ifIndex;
  owners_[ifIndex] = intfId;
  copy(*allIntfStats()->intfStats(intfId), *ipMib()->ipIfStatsTableIs(IpVersionIfIndex(ipVersion(), ifIndex)));
}

void IpIfStatsSm::removeRow(const Vantu::IntfId& intfId, Watch& watch) {
  const auto ifIndex = std::exchange(watch.ifIndex, 0);
  const auto owner = owners_.find(ifIndex);
  if (owner == owners_.end() || owner->second != intfId) return;
  owners_.erase(owner);
  ipMib()->ipIfStatsTableDel(IpVersionIfIndex(ipVersion(), ifIndex));
}

}  // namespace IpSnmp

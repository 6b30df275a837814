#include "ipsnmp/IfTables.h"

KEL_TYPE_DEFINE(IpSnmp::IfEntry)
KEL_TYPE_DEFINE(IpSnmp::IfStackEntry)
KEL_TYPE_DEFINE(IpSnmp::IfTables)

namespace IpSnmp {

Interface::OperStatus ifOperStatus(const Interface::IntfStatus& status) {
  const auto known = status.operStatus();
  if (known != Interface::operStatusUnknown) return known;
  switch (status.adminStatus()) {
    case Interface::adminStatusUp:
      return Interface::operStatusUp;
    case Interface::adminStatusDown:
      return Interface::operStatusDown;
    default:
      return known;
  }
}

void IfTables::enter(const Kel::Ptr<IfEntry>& entry, Kel::Seconds now) {
  const auto hold = Kel::kept(*this);
  const auto ifIndex = entry->ifIndex();
  const auto before = ifTable(ifIndex);
  if (before != entry) {
    if (before) ifTableDel(ifIndex);
    ifTable_.map.kelInsert(ifIndex, entry);
    KEL_NOTIFY_KEY(IfTable, ifIndex);
    if (now != 0) ifTableLastChangeIs(now);
  }
  hasStackChanged_ = false;
  if (!before) {
    rowIs(0, ifIndex);
    rowIs(ifIndex, 0);
    forEachPair(ifIndex, [this](const Pair& pair) { connect(pair); });
  }
  const auto& status = *entry->status();
  Pairs pairs;
  const auto isOther = [&](std::uint32_t other) { return other != 0 && other != ifIndex; };
  if (isOther(status.lowerIfIndex())) pairs.emplace_back(ifIndex, status.lowerIfIndex());
  if (isOther(status.upperIfIndex())) pairs.emplace_back(status.upperIfIndex(), ifIndex);
  setPairs(ifIndex, pairs);
  if (hasStackChanged_ && now != 0) ifStackLastChangeIs(now);
}

void IfTables::remove(const Kel::Ptr<IfEntry>& entry, Kel::Seconds now) {
  const auto hold = Kel::kept(*this);
  const auto ifIndex = entry->ifIndex();
  if (ifTable(ifIndex) != entry) return;
  setPairs(ifIndex, {});
  forEachPair(ifIndex, [this](const Pair& pair) { disconnect(pair); });
  rowDel(0, ifIndex);
  rowDel(ifIndex, 0);
  ifTableDel(ifIndex);
  if (now == 0) return;
  ifTableLastChangeIs(now);
  ifStackLastChangeIs(now);
}

void IfTables::setPairs(std::uint32_t ifIndex, const Pairs& pairs) {
  auto& known = pairs_[ifIndex];
  if (known != pairs) {
    const auto areBothThere = [this](const Pair& pair) {
      return ifTableHas(pair.first) && ifTableHas(pair.second);
    };
    for (const auto& pair : known) {
      for (const auto end : {pair.first, pair.second}) ends_.erase({end, ifIndex, pair});
      const auto isStatedBy = [&](std::uint32_t end) { return ends_.contains({pair.first, end, pair}); };
      const bool isStated = isStatedBy(pair.first) || isStatedBy(pair.second);  // by the record of the other end
      if (areBothThere(pair) && !isStated) disconnect(pair);
    }
    for (const auto& pair : pairs) {
      for (const auto end : {pair.first, pair.second}) ends_.emplace(end, ifIndex, pair);
      if (areBothThere(pair)) connect(pair);
    }
    known = pairs;
  }
  if (pairs.empty()) pairs_.erase(ifIndex);
}

// Visits the pairs that have the interface as an end, where the other end is in the cache too.
template <class Visit>
void IfTables::forEachPair(std::uint32_t ifIndex, const Visit& visit) const {
  for (auto at = ends_.lower_bound({ifIndex, 0, {}}); at != ends_.end() && std::get<0>(*at) == ifIndex; ++at) {
    const auto& pair = std::get<2>(*at);
    if (ifTableHas(pair.first == ifIndex ? pair.second : pair.first)) visit(pair);
  }
}

void IfTables::connect(const Pair& pair) {
  const auto [higher, lower] = pair;
  rowIs(higher, lower);
  rowDel(higher, 0);
  rowDel(0, lower);
  uppers_.emplace(lower, higher);
}

void IfTables::disconnect(const Pair& pair) {
  const auto [higher, lower] = pair;
  rowDel(higher, lower);
  uppers_.erase({lower, higher});
  const auto below = ifStackTable().lowerBound(IfStackKey(higher, 0));
  if (below == ifStackTable().end() || below->first.higher() != higher) rowIs(higher, 0);
  const auto above = uppers_.lower_bound({lower, 0});
  if (above == uppers_.end() || above->first != lower) rowIs(0, lower);
}

void IfTables::rowIs(std::uint32_t higher, std::uint32_t lower) {
  const IfStackKey key(higher, lower);
  if (ifStackTableHas(key)) return;
  ifStackTableIs(key);
  hasStackChanged_ = true;
}

void IfTables::rowDel(std::uint32_t higher, std::uint32_t lower) {
  const IfStackKey key(higher, lower);
  if (ifStackTableDel(key)) hasStackChanged_ = true;
}

}  // namespace IpSnmp

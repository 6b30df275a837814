#include "mirror/kernel/IntfCounters.h"

#include <algorithm>

namespace Mirror {

namespace {

bool hasFallen(const Ip::IntfCounters& from, const Ip::IntfCounters& to) {
  return to.inPkts() < from.inPkts() || to.inOctets() < from.inOctets() || to.outPkts() < from.outPkts() ||
         to.outOctets() < from.outOctets() || to.inMcastPkts() < from.inMcastPkts() ||
         to.outMcastPkts() < from.outMcastPkts();
}

}  // namespace

KernelCounters readCounters(std::istream& file) {
  KernelCounters told;
  std::string name;
  for (std::uint64_t value = 0; file >> name >> value;) told[name] = value;
  return told;
}

Ip::IntfCounters countersOf(const KernelCounters& told, const Ip::IntfCounters& before) {
  const auto at = [&](const char* name) {
    const auto found = told.find(name);
    return found == told.end() ? 0 : found->second;
  };
  const auto unicast = [](std::uint64_t all, std::uint64_t multicast, std::uint64_t last) {
    return std::max(all > multicast ? all - multicast : 0, last);
  };
  // Since Linux 6.6 every packet that is handed down is counted. Before, there are those from here and those that are
  // forwarded.
  const auto outPkts =
      told.contains("Ip6OutTransmits") ? at("Ip6OutTransmits") : at("Ip6OutRequests") + at("Ip6OutForwDatagrams");
  const auto inPkts = at("Ip6InReceives"), inOctets = at("Ip6InOctets"), outOctets = at("Ip6OutOctets");
  const auto inMcastPkts = at("Ip6InMcastPkts"), inMcastOctets = at("Ip6InMcastOctets");
  const auto outMcastPkts = at("Ip6OutMcastPkts"), outMcastOctets = at("Ip6OutMcastOctets");
  return Ip::IntfCounters(inPkts, inOctets, outPkts, outOctets, unicast(inPkts, inMcastPkts, before.inUcastPkts()),
                          unicast(inOctets, inMcastOctets, before.inUcastOctets()),
                          unicast(outPkts, outMcastPkts, before.outUcastPkts()),
                          unicast(outOctets, outMcastOctets, before.outUcastOctets()), inMcastPkts, inMcastOctets,
                          outMcastPkts, outMcastOctets);
}

void countersAre(Ip::AllIntfStats& all, const Vantu::IntfId& id, const KernelCounters& told, Kel::Seconds now) {
  const auto known = all.intfStats(id);
  const auto record = all.intfStatsIs(id);
  const auto counters = countersOf(told, record->counters());
  const bool isContinued = known && !hasFallen(known->counters(), counters);
  if (!isContinued) {
    record->discontinuityTimeIs(now);
    record->utcOffsetIs(Kel::System::utcOffset());
  }
  record->countersIs(isContinued ? counters : countersOf(told, {}));
}

}  // namespace Mirror

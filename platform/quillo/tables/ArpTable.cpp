#include "quillo/tables/ArpTable.h"

#include <ostream>

namespace Arp::Table {
namespace {

Status::VisitWhile toTheEnd(const Status::Visit& visit) {
  return [&visit](const ArpEntry& entry) {
    visit(entry);
    return true;
  };
}

}  // namespace

void Status::forEachArpEntry(const Vrf::VrfIdMap::VrfId& vrfId, const Visit& visit) const {
  forEachArpEntry(vrfId, {}, toTheEnd(visit));
}

void Status::forEachNeighborEntry(const Vrf::VrfIdMap::VrfId& vrfId, const Visit& visit) const {
  forEachNeighborEntry(vrfId, {}, toTheEnd(visit));
}

std::ostream& operator<<(std::ostream& out, const ArpKey& key) {
  return out << key.vrfId << "/" << key.addr << "/" << key.intfId;
}

}  // namespace Arp::Table

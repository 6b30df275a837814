#include "quillo/ArpTable.h"

#include <ostream>

namespace Arp::Table {

std::ostream& operator<<(std::ostream& out, const ArpKey& key) {
  return out << key.vrfId << "/" << key.addr << "/" << key.intfId;
}

}  // namespace Arp::Table

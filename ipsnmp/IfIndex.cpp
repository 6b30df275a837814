#include "ipsnmp/IfIndex.h"

namespace IpSnmp {

std::uint32_t ifIndex(const Kel::Ptr<const Interface::IntfStatus>& status) {
  const auto* provider = status ? Interface::IntfDetailsProvider::find(*status) : nullptr;
  return provider ? provider->ifIndex(*status) : noIfIndex;
}

}  // namespace IpSnmp

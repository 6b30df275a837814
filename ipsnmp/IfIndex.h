#pragma once
// The one way to an interface's ifIndex.

#include "varnix/Interface.h"

namespace IpSnmp {

inline constexpr std::uint32_t noIfIndex = 0xFFFFFFFF;

// Asks the details provider of the record's kind; noIfIndex when there is no provider (or no record). 0 when the
// provider knows no index yet.
std::uint32_t ifIndex(const Kel::Ptr<const Interface::IntfStatus>& status);

}  // namespace IpSnmp

#pragma once
// An IPv4 address with a prefix length of 0 to 32; see AddrWithMask.h.

#include "vantu/AddrWithMask.h"
#include "vantu/IpAddr.h"

namespace Vantu {

extern template class AddrWithMask<IpAddr>;
using IpAddrWithMask = AddrWithMask<IpAddr>;

}  // namespace Vantu

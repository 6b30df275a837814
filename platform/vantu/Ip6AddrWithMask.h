#pragma once
// An IPv6 address with a prefix length of 0 to 128; see AddrWithMask.h.

#include "vantu/AddrWithMask.h"
#include "vantu/IpAddr.h"

namespace Vantu {

extern template class AddrWithMask<Ip6Addr>;
using Ip6AddrWithMask = AddrWithMask<Ip6Addr>;

}  // namespace Vantu

#pragma once
// An IPv6 prefix; see BasicPrefix.h.

#include "vantu/BasicPrefix.h"
#include "vantu/Ip6AddrWithMask.h"

namespace Vantu {

extern template class BasicPrefix<Ip6Addr>;
using Ip6Prefix = BasicPrefix<Ip6Addr>;

}  // namespace Vantu

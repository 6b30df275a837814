#pragma once
// An IPv4 prefix; see BasicPrefix.h.

#include "vantu/BasicPrefix.h"
#include "vantu/IpAddrWithMask.h"

namespace Vantu {

extern template class BasicPrefix<IpAddr>;
using Prefix = BasicPrefix<IpAddr>;

}  // namespace Vantu

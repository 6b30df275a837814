#pragma once
// The software-forwarding statistics object of one VRF and IP version.

#include "kel/Attribute.h"
#include "varnix/IpVersion.h"

namespace Ip {

class SwFwdStats : public Kel::Notifier {
  KEL_TYPE_BEGIN("Ip::SwFwdStats", SwFwdStats, Kel::Notifier)
 public:
  KEL_CONSTRUCTOR(SwFwdStats, ((Ip::IpVersion, ipVersion))((Kel::Name, name)))  // name: of the VRF
  KEL_TYPE_END_DECLARE
};

}  // namespace Ip

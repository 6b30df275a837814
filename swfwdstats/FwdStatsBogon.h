#pragma once
// A container of software-forwarding statistics by IP version, for whoever has no MIB cache to keep them in.

#include "kel/Entity.h"
#include "swfwdstats/SwFwdStats.h"

namespace Ip {

class FwdStatsBogon : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::FwdStatsBogon", FwdStatsBogon, Kel::Entity)
 public:
  KEL_NAMED(FwdStatsBogon, Kel::Entity)
  KEL_MEMBERS(Hashed, Ip::IpVersion, Ip::SwFwdStats, bogon, Bogon)
  KEL_TYPE_END_DECLARE

 public:
  // Tells the observers of a key, as every change of the collection does.
  void bogonNotify(Ip::IpVersion ipVersion) { KEL_NOTIFY_KEY(Bogon, ipVersion); }
};

}  // namespace Ip

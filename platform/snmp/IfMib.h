#pragma once
// The cache of the interface MIB: the ifIndex of each interface.

#include "kel/Entity.h"
#include "vantu/IntfId.h"

namespace IntfSnmp {

class IfMib : public Kel::Entity {
  KEL_TYPE_BEGIN("IntfSnmp::IfMib", IfMib, Kel::Entity)
 public:
  KEL_NAMED(IfMib, Kel::Entity)
  // Interfaces that have an ifIndex (1 to 2147483647, RFC 2863 InterfaceIndex).
  KEL_VALUES(Hashed, Vantu::IntfId, std::int32_t, ifIndexByIntfId, IfIndexByIntfId)
  KEL_TYPE_END_DECLARE
};

}  // namespace IntfSnmp

#pragma once
// How the switch keeps its forwarding equivalence classes now. The agent has one, which follows L3::Config.

#include "kel/Attribute.h"
#include "kel/Entity.h"
#include "quillo/tables/Fec.h"

namespace Quillo::Fib {

class FecModeStatus : public Kel::Entity {
  KEL_TYPE_BEGIN("Quillo::Fib::FecModeStatus", FecModeStatus, Kel::Entity)
 public:
  KEL_NAMED(FecModeStatus, Kel::Entity)
  KEL_STORED(FecMode, fecMode, FecMode, fecModeUnknown)
  KEL_TYPE_END_DECLARE
};

}  // namespace Quillo::Fib

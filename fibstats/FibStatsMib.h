#pragma once
// The FIB statistics cache of one VRF: the entity that the statistics tables of a context are pointed at.

#include "kel/Attribute.h"
#include "kel/Entity.h"

namespace FibStatsSnmp {

class FibStatsMib : public Kel::Entity {
  KEL_TYPE_BEGIN("FibStatsSnmp::FibStatsMib", FibStatsMib, Kel::Entity)
 public:
  KEL_NAMED(FibStatsMib, Kel::Entity)

  // The default VRF's cache bears the name of its place, every other one the name of its VRF.
  Kel::Name vrfName() const { return name() == "fibstatsmib" ? Kel::Name("default") : name(); }
  KEL_COMPUTED(vrfName)
  KEL_TYPE_END_DECLARE
};

}  // namespace FibStatsSnmp

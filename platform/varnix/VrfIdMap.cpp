#include "varnix/VrfIdMap.h"

KEL_TYPE_DEFINE(Vrf::VrfIdMap::Status)
KEL_TYPE_DEFINE(Vrf::VrfIdMap::NameToIdMap)
KEL_TYPE_DEFINE(Vrf::VrfIdMap::NameToIdMapWrapper)

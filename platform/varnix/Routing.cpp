#include "varnix/Routing.h"

KEL_TYPE_DEFINE(Routing::Config)
KEL_TYPE_DEFINE(Routing::VrfConfigDir)
KEL_TYPE_DEFINE(Routing::VrfInfo)
KEL_TYPE_DEFINE(Routing6::Config)
KEL_TYPE_DEFINE(Routing6::VrfConfigDir)

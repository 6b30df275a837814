#include "varnix/Ip.h"

KEL_TYPE_DEFINE(Ip::IpIntfConfig)
KEL_TYPE_DEFINE(Ip::Config)
KEL_TYPE_DEFINE(Ip::IpIntfStatus)
KEL_TYPE_DEFINE(Ip::Status)
KEL_TYPE_DEFINE(Ip::VrfConfig)
KEL_TYPE_DEFINE(Ip::AllVrfConfig)
KEL_TYPE_DEFINE(Ip::VrfStatusGlobal)
KEL_TYPE_DEFINE(Ip::AllVrfStatusGlobal)
KEL_TYPE_DEFINE(Ip::VrfStatusLocal)
KEL_TYPE_DEFINE(Ip::AllVrfStatusLocal)

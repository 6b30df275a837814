#include "varnix/Ip6.h"

KEL_TYPE_DEFINE(Ip6::IntfConfig)
KEL_TYPE_DEFINE(Ip6::Config)
KEL_TYPE_DEFINE(Ip6::IntfStatus)
KEL_TYPE_DEFINE(Ip6::Status)

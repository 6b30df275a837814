#include "varnix/L3.h"

KEL_TYPE_DEFINE(L3::Config)
KEL_TYPE_DEFINE(L3::Intf::Config)
KEL_TYPE_DEFINE(L3::Intf::ConfigDir)
KEL_TYPE_DEFINE(L3::Intf::Status)
KEL_TYPE_DEFINE(L3::Intf::StatusDir)

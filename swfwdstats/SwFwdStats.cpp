#include "swfwdstats/SwFwdStats.h"

KEL_TYPE_DEFINE(Ip::SwFwdStats)

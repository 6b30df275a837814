#include "varnix/IntfStats.h"

KEL_TYPE_DEFINE(Ip::IntfStats)
KEL_TYPE_DEFINE(Ip::AllIntfStats)

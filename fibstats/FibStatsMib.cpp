#include "fibstats/FibStatsMib.h"

KEL_TYPE_DEFINE(FibStatsSnmp::FibStatsMib)

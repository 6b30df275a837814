#pragma once
// The trace handle that the source files of the state machines share. Not for others.

#include "kel/Trace.h"

namespace FibStatsSnmp {

extern Kel::TraceHandle fibStatsSmTrace;

}  // namespace FibStatsSnmp

#pragma once
// The trace handle that the source files of the route table's state machine share. Not for others.

#include "kel/Trace.h"

namespace IpSnmp {

extern Kel::TraceHandle ipRouteTableSmTrace;

}  // namespace IpSnmp

#include "ipsnmp/IpForwardFecs.h"

KEL_TYPE_DEFINE(IpSnmp::IpForwardFec)
KEL_TYPE_DEFINE(IpSnmp::IpForwardFecs)
KEL_TYPE_DEFINE(IpSnmp::FecsAndPrefixes)

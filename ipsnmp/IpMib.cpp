#include "ipsnmp/IpMib.h"

KEL_TYPE_DEFINE(IpSnmp::IpIfStatsEntry)
KEL_TYPE_DEFINE(IpSnmp::IpMib)
KEL_TYPE_DEFINE(IpSnmp::VrfMibs)
KEL_TYPE_DEFINE(IpSnmp::VrfMibsDir)

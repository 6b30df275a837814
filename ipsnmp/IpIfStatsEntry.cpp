#include "ipsnmp/IpIfStatsEntry.h"

KEL_TYPE_DEFINE(IpSnmp::IpIfStatsEntry)

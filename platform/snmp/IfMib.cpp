#include "snmp/IfMib.h"

KEL_TYPE_DEFINE(IntfSnmp::IfMib)

#include "varnix/SnmpStatus.h"

KEL_TYPE_DEFINE(Snmp::Status)

#include "ipsnmp/MplsVpnMib.h"

KEL_TYPE_DEFINE(IpSnmp::VpnVrfEntry)
KEL_TYPE_DEFINE(IpSnmp::VpnIfEntry)
KEL_TYPE_DEFINE(IpSnmp::MplsVpnMib)

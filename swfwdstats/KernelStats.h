#pragma once
// Reads the kernel's IP counters from its text files, in the network namespace that the thread is in. Which files:
// swfwdstats/SwFwdStats.h.

#include "kel/Name.h"
#include "swfwdstats/Counter.h"

namespace Ip {

enum class IpHeader {
  strict,  // the header line has the known length
  any      // or it begins with the known names
};

// Write what they find into `data`; false, after a trace, when the files cannot be used: what `data` holds then is
// of no use. A name in snmp6 that no counter has is passed over, and a counter that is not in the files keeps its
// value.
bool readKernelIp4(SwFwdStatsData& data, IpHeader header);
bool readKernelIp6(SwFwdStatsData& data);

// What to tell the operator of a kernel whose header takes IpHeader::any; empty for any other.
Kel::String adviceOnIpHeader();

}  // namespace Ip

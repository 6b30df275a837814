#pragma once
// Reads the kernel's IP counters from its text files, in the thread's network namespace. swfwdstats/SwFwdStats.h lists
// the files.

#include "kel/Name.h"
#include "swfwdstats/Counter.h"

namespace Ip {

enum class IpHeader {
  strict,  // the header line has the known length
  any      // it has the known length, or begins with the known names
};

// Read the counters into `data` and `more`, if given. A counter that the files lack keeps its value in `data`, and has
// none in `more`; unknown names in snmp6 are skipped.
// Return false, after a trace, if the files cannot be used; both are then invalid.
bool readKernelIp4(SwFwdStatsData& data, IpHeader header, SwFwdStatsMore* more = nullptr);
bool readKernelIp6(SwFwdStatsData& data, SwFwdStatsMore* more = nullptr);

// Returns advice for the operator if the kernel's header needs IpHeader::any; else an empty string.
Kel::String adviceOnIpHeader();

}  // namespace Ip

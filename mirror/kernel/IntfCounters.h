#pragma once
// From what a Linux kernel counts for IPv6 at an interface to what is published of it. For IPv4 a Linux kernel counts
// nothing at single interfaces, so nothing is published.

#include <cstdint>
#include <istream>
#include <map>
#include <string>

#include "kel/System.h"
#include "varnix/Interface.h"

namespace Mirror {

// What the kernel says of one interface, by its own names, as "Ip6InReceives"; "ifIndex" among them.
using KernelCounters = std::map<std::string, std::uint64_t, std::less<>>;

// Reads a file of /proc/net/dev_snmp6; what follows a line that is none is left out.
KernelCounters readCounters(std::istream& file);

// What the kernel does not name counts as 0. Unicast is what is not multicast; as the kernel reads its numbers one
// after the other while packets pass, that may seem to fall by a few, and then stays as it was in `before`.
Ip::IntfCounters countersOf(const KernelCounters& told, const Ip::IntfCounters& before);

// Enters what the kernel said. The counters of an interface that has no record begin `now`, and those that have
// fallen begin again.
void countersAre(Ip::AllIntfStats& all, const Vantu::IntfId& id, const KernelCounters& told, Kel::Seconds now);

}  // namespace Mirror

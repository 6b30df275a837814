// get_myaddr() of net-snmp's library, in front of the library's own: the agent-addr of an SNMPv1 trap (RFC 1157), an
// IPv4 address of this host.
//
// net-snmp asks for it before each notification, even if nobody gets one as an SNMPv1 trap. The library asks the kernel
// for all addresses again and again, with room for eight more each time: at 10,000 interfaces the agent would answer
// nothing for more than a second. This one asks twice. The answer is the same: the address of the first interface that
// is up and running and is not a loopback; 0.0.0.0 if there is none.
//
// The program's definition takes precedence over that of the shared library (ld.so(8)), for net-snmp too.

#include <absl/cleanup/cleanup.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include "snmp/CBoundary.h"

namespace {

Kel::TraceHandle trapAddressTrace("TrapAddress");

in_addr_t firstAddress() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return INADDR_ANY;
  const absl::Cleanup closing = [fd] { close(fd); };
  ifconf all{};
  if (ioctl(fd, SIOCGIFCONF, &all) < 0) return INADDR_ANY;  // the length alone
  constexpr std::size_t addedMeanwhile = 16;
  std::vector<ifreq> addresses(static_cast<std::size_t>(all.ifc_len) / sizeof(ifreq) + addedMeanwhile);
  all.ifc_len = static_cast<int>(addresses.size() * sizeof(ifreq));
  all.ifc_req = addresses.data();
  if (ioctl(fd, SIOCGIFCONF, &all) < 0) return INADDR_ANY;
  addresses.resize(static_cast<std::size_t>(all.ifc_len) / sizeof(ifreq));
  for (const auto& entry : addresses) {
    ifreq interface = entry;
    if (entry.ifr_addr.sa_family != AF_INET || ioctl(fd, SIOCGIFFLAGS, &interface) < 0) continue;
    constexpr int wanted = IFF_UP | IFF_RUNNING;
    if ((interface.ifr_flags & (wanted | IFF_LOOPBACK)) != wanted) continue;
    return reinterpret_cast<const sockaddr_in&>(entry.ifr_addr).sin_addr.s_addr;
  }
  return INADDR_ANY;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) in_addr_t get_myaddr() {
  return Snmp::atCBoundary(trapAddressTrace, "get_myaddr", in_addr_t{INADDR_ANY}, firstAddress);
}

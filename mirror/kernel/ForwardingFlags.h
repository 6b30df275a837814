#pragma once
// Reads sysctls of a network namespace as a whole: whether it forwards (net.ipv4.ip_forward,
// net.ipv6.conf.all.forwarding), and the defaults of packets.

#include <cstdint>
#include <memory>
#include <string>

#include "kel/Errors.h"
#include "vantu/NetNs.h"

namespace Mirror {

// The flag exists but cannot be read now (the process has no free descriptor, for example). The text names the file and
// the cause.
class UnreadableFlagException : public Kel::Exception {
 public:
  using Kel::Exception::Exception;
};

// The defaults of packets that the namespace sends. 0: the kernel does not have the sysctl.
struct IpDefaults {
  std::uint32_t ttl = 0;           // net.ipv4.ip_default_ttl
  std::uint32_t reasmTimeout = 0;  // net.ipv4.ipfrag_time, seconds
  std::uint32_t hopLimit = 0;      // net.ipv6.conf.default.hop_limit
};

// What the sysctls say. A kernel without one of the families has false and 0 for it.
struct IpSysctls {
  bool forwardsIpv4 = false;  // net.ipv4.ip_forward
  bool forwardsIpv6 = false;  // net.ipv6.conf.all.forwarding
  IpDefaults defaults;
};

// The directories of sysctls stay open between readings, which takes two descriptors. The kernel looks up
// /proc/sys/net/ipv4 in a list with an entry for each namespace.
class ForwardingFlags {
 public:
  static constexpr const char* procSys = "/proc/sys";

  // `directory` is the root of the sysctls in network namespace `ns`.
  explicit ForwardingFlags(std::shared_ptr<const Vantu::NetNs> ns = std::make_shared<Vantu::NetNs>(),
                           std::string directory = procSys);
  explicit ForwardingFlags(std::string directory)
      : ForwardingFlags(std::make_shared<Vantu::NetNs>(), std::move(directory)) {}
  ForwardingFlags(ForwardingFlags&& other) noexcept;
  ~ForwardingFlags();

  // Throws UnreadableFlagException.
  IpSysctls read();

 private:
  class Directory;
  const Directory& open(std::unique_ptr<Directory>& directory, const char* name) const;

  std::shared_ptr<const Vantu::NetNs> ns_;
  std::string root_;
  std::unique_ptr<Directory> ipv4_, ipv6_;  // null until the first reading
};

}  // namespace Mirror

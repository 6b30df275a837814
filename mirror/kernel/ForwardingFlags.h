#pragma once
// Reads what the sysctls of a network namespace set for the whole of it: whether it forwards (net.ipv4.ip_forward,
// net.ipv6.conf.all.forwarding), and the defaults of packets.

#include <cstdint>
#include <memory>
#include <string>

#include "kel/Errors.h"
#include "vantu/IpAddr.h"
#include "vantu/NetNs.h"

namespace Mirror {

// The flag exists but cannot be read now (the process has no free descriptor, for example). The text names the file and
// the cause.
class UnreadableFlagException : public Kel::Exception {
 public:
  using Kel::Exception::Exception;
};

// 0: the kernel does not have it.
struct IpDefaults {
  std::uint32_t ttl = 0;           // net.ipv4.ip_default_ttl
  std::uint32_t reasmTimeout = 0;  // net.ipv4.ipfrag_time, seconds
  std::uint32_t hopLimit = 0;      // net.ipv6.conf.default.hop_limit
};

class ForwardingFlags {
 public:
  static constexpr const char* procSys = "/proc/sys";

  // `directory` is the root of the sysctls in network namespace `ns`.
  explicit ForwardingFlags(std::shared_ptr<const Vantu::NetNs> ns = std::make_shared<Vantu::NetNs>(),
                           std::string directory = procSys)
      : ns_(std::move(ns)), directory_(std::move(directory)) {}
  explicit ForwardingFlags(std::string directory)
      : ForwardingFlags(std::make_shared<Vantu::NetNs>(), std::move(directory)) {}

  // Returns whether the namespace forwards; false if the kernel lacks the family. Throws UnreadableFlagException.
  bool read(Vantu::Af af) const;
  // Throws UnreadableFlagException.
  IpDefaults readDefaults() const;

 private:
  // 0 without such a file. Throws UnreadableFlagException.
  long number(const char* sysctl) const;

  std::shared_ptr<const Vantu::NetNs> ns_;
  std::string directory_;
};

}  // namespace Mirror

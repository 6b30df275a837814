#pragma once
// Reads whether a network namespace forwards: the sysctls net.ipv4.ip_forward and net.ipv6.conf.all.forwarding.

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

 private:
  std::shared_ptr<const Vantu::NetNs> ns_;
  std::string directory_;
};

}  // namespace Mirror

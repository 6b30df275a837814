#pragma once
// Whether a network namespace forwards: the sysctls net.ipv4.ip_forward and net.ipv6.conf.all.forwarding.

#include <string>

#include "kel/Errors.h"
#include "vantu/Af.h"

namespace Mirror {

// The flag is there, but cannot be read now (no descriptor is left, say). The text names the file and the cause.
class UnreadableFlagException : public Kel::Exception {
 public:
  using Kel::Exception::Exception;
};

class ForwardingFlags {
 public:
  // `procSys` is the directory of the sysctls.
  explicit ForwardingFlags(std::string procSys = "/proc/sys") : procSys_(std::move(procSys)) {}

  // Of the namespace that the calling thread is in. False for a family that the kernel does not have. Throws
  // UnreadableFlagException.
  bool read(Vantu::Af af) const;

 private:
  std::string procSys_;
};

}  // namespace Mirror

#include "mirror/ForwardingFlags.h"

#include <fstream>

namespace Mirror {

bool ForwardingFlags::read(Vantu::Af af) const {
  const char* file = af == Vantu::ipv4_ ? "/net/ipv4/ip_forward" : "/net/ipv6/conf/all/forwarding";
  int value = 0;
  std::ifstream(procSys_ + file) >> value;
  return value != 0;
}

}  // namespace Mirror

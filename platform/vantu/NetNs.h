#pragma once
// Switching the calling thread between network namespaces.
//
// A namespace is known by its name: "default" is the one that the process started in, any other name N is the one
// whose file is /var/run/netns/N (as `ip netns add N` makes it). The namespace of VRF red is named "ns-red":
//
//   const Vantu::NetNsGuard guard(Vantu::nsNameOfVrf(vrfName));    // files of /proc/net, sockets: the VRF's, in
//   scope
//
// Only what is opened meanwhile belongs to the namespace; what is open already stays where it was. Entering another
// namespace than the present one needs CAP_SYS_ADMIN; entering the present one needs nothing.

#include <string>
#include <string_view>

namespace Vantu {

// "default" for VRF "default" (and for empty text), "ns-" followed by the name for any other VRF.
std::string nsNameOfVrf(std::string_view vrfName);

// Enters the namespace `nsName`. Throws Kel::Exception that names the namespace, its file and the reason; the
// thread then is where it was.
void setNsByName(const char* nsName);

// Enters a namespace for a scope and comes back to the namespace of before, which need not be the default one.
// Aborts the process if it cannot come back: nothing may go on in a namespace where it does not belong.
class NetNsGuard {
 public:
  explicit NetNsGuard(const std::string& nsName);  // throws as setNsByName()
  ~NetNsGuard();
  NetNsGuard(const NetNsGuard&) = delete;
  NetNsGuard& operator=(const NetNsGuard&) = delete;

 private:
  int previous_;  // descriptor of the namespace to come back to
};

}  // namespace Vantu

#pragma once
// A set of descriptors for net-snmp's functions. Unlike fd_set, it can hold descriptors of 1024 and above.

#include <net-snmp/library/large_fd_set.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

namespace Host {

class FdSet {
 public:
  FdSet() {
    netsnmp_large_fd_set_init(&set_, FD_SETSIZE);
    NETSNMP_LARGE_FD_ZERO(&set_);
  }
  ~FdSet() { netsnmp_large_fd_set_cleanup(&set_); }
  FdSet(const FdSet&) = delete;
  FdSet& operator=(const FdSet&) = delete;

  netsnmp_large_fd_set* get() { return &set_; }
  bool contains(int fd) { return NETSNMP_LARGE_FD_ISSET(fd, &set_) != 0; }
  void add(int fd) { NETSNMP_LARGE_FD_SET(fd, &set_); }
  void remove(int fd) { NETSNMP_LARGE_FD_CLR(fd, &set_); }

 private:
  netsnmp_large_fd_set set_;
};

}  // namespace Host

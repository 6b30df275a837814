#pragma once
// The way to the kernel's rtnetlink: requests out, datagrams in.
// RtChannel is the interface, RtSocket the implementation with a netlink socket (libmnl).

#include <cstdint>
#include <memory>
#include <span>

#include "vantu/NetNs.h"

struct mnl_socket;

namespace Mirror {

// In the order in which they are asked for: what refers to others comes after them.
enum class RtDump {
  links,
  ipv4Addresses,
  ipv6Addresses,
  ipv4Neighbours,
  ipv6Neighbours,
  nexthops,
  ipv4Routes,
  ipv6Routes
};

class RtChannel {
 public:
  enum class Outcome {
    datagram,
    empty,    // nothing waits
    overrun,  // messages were lost; what waits still is from before and after the gap
  };

  virtual ~RtChannel() = default;

  // Asks for all objects of a kind; of routes, for those of the table `table` (old kernels list all tables). The
  // replies carry portId() and `sequence`. One dump at a time.
  virtual void dump(RtDump what, std::uint32_t sequence, std::uint32_t table = 0) = 0;
  // Never blocks. A datagram holds one or more messages, and is valid until the next call, for this
  // channel or another.
  virtual Outcome receive(std::span<const std::uint8_t>& datagram) = 0;
  virtual std::uint32_t portId() const = 0;
  // Begins anew: what waited is gone, a dump under way is forgotten, the subscription holds.
  virtual void reopen() = 0;
};

// Subscribed to links, addresses, neighbours, routes, next-hop objects and forwarding flags of a network namespace.
class RtSocket : public RtChannel {
 public:
  // Room for some ten thousand notifications; memory is used only while they wait.
  static constexpr int defaultReceiveBytes = 16 << 20;

  // In network namespace `ns`. All operations throw Kel::Exception when the system refuses: the text says what was
  // tried and why it failed. As long as the socket is open, the namespace and what is in it exist.
  // A receive buffer beyond net.core.rmem_max needs CAP_NET_ADMIN; without, it is as large as is allowed.
  explicit RtSocket(std::shared_ptr<const Vantu::NetNs> ns = std::make_shared<Vantu::NetNs>(),
                    int receiveBytes = defaultReceiveBytes);

  int fd() const;            // readable when datagrams wait; another one after reopen()
  int receiveBytes() const;  // as granted by the kernel, which counts its own overhead too

  void dump(RtDump what, std::uint32_t sequence, std::uint32_t table = 0) override;
  Outcome receive(std::span<const std::uint8_t>& datagram) override;
  std::uint32_t portId() const override;
  // When it throws, the old socket is still there.
  void reopen() override;

 private:
  struct Close {
    void operator()(mnl_socket* socket) const;
  };
  using Handle = std::unique_ptr<mnl_socket, Close>;
  Handle open() const;

  std::shared_ptr<const Vantu::NetNs> ns_;
  int wantedReceiveBytes_;
  Handle socket_;
};

}  // namespace Mirror

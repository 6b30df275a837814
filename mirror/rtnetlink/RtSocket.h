#pragma once
// The connection to the kernel's rtnetlink: sends dump requests, receives datagrams.
// RtChannel is the interface, RtSocket the implementation with a netlink socket (libmnl).

#include <cstdint>
#include <memory>
#include <span>

#include "vantu/NetNs.h"

struct mnl_socket;

namespace Mirror {

// In the order of the requests: objects follow those that they refer to.
enum class RtDump {
  links,
  ipv4Addresses,
  ipv6Addresses,
  ipv4Neighbours,
  ipv6Neighbours,
  nexthops,
  ipv4Routes,
  ipv6Routes,
  // For CounterMirror only.
  linkCounters,
  ipv6Links,       // with their IPv6 counters
  neighbourTables  // their parameters
};

class RtChannel {
 public:
  enum class Outcome {
    datagram,
    empty,    // no datagram waits
    overrun,  // messages were lost; waiting datagrams may be older or newer than the loss
  };

  virtual ~RtChannel() = default;

  // Requests all objects of a kind; of routes, those of `table` (old kernels send all tables). The replies carry
  // portId() and `sequence`. Requires: no other dump is under way.
  virtual void dump(RtDump what, std::uint32_t sequence, std::uint32_t table = 0) = 0;
  // Never blocks. A datagram holds one or more messages. It is valid until the next call for any channel.
  virtual Outcome receive(std::span<const std::uint8_t>& datagram) = 0;
  virtual std::uint32_t portId() const = 0;
  // Starts over: discards waiting datagrams and the dump under way, keeps the subscription.
  virtual void reopen() = 0;
};

// A netlink socket of a network namespace. Unless it is for dumps only, it is subscribed to links, addresses,
// neighbours, routes, next-hop objects and forwarding flags. The namespace exists as long as the socket is open.
//
// Throws, in all operations: Kel::Exception when the system refuses; the text names the step and the reason.
class RtSocket : public RtChannel {
 public:
  // Room for some ten thousand notifications; memory is used only while they wait.
  static constexpr int defaultReceiveBytes = 16 << 20;

  enum class Use { dumpsAndChanges, dumps };

  // Opens the socket. A receive buffer above net.core.rmem_max needs CAP_NET_ADMIN; otherwise the kernel limits it.
  explicit RtSocket(std::shared_ptr<const Vantu::NetNs> ns = std::make_shared<Vantu::NetNs>(),
                    int receiveBytes = defaultReceiveBytes, Use use = Use::dumpsAndChanges);

  int fd() const;            // readable while datagrams wait; changes with reopen()
  int receiveBytes() const;  // as granted by the kernel, with its overhead

  void dump(RtDump what, std::uint32_t sequence, std::uint32_t table = 0) override;
  Outcome receive(std::span<const std::uint8_t>& datagram) override;
  std::uint32_t portId() const override;
  // If it throws, the old socket stays open.
  void reopen() override;

 private:
  struct Close {
    void operator()(mnl_socket* socket) const;
  };
  using Handle = std::unique_ptr<mnl_socket, Close>;
  Handle open() const;

  std::shared_ptr<const Vantu::NetNs> ns_;
  int wantedReceiveBytes_;
  Use use_;
  Handle socket_;
};

}  // namespace Mirror

#pragma once
// The way to the kernel's rtnetlink: requests out, datagrams in. RtSocket is the real one.

#include <cstdint>
#include <span>

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

}  // namespace Mirror

#pragma once
// An rtnetlink socket that is subscribed to links, addresses, neighbours, routes, next-hop objects and forwarding flags
// (libmnl).

#include <memory>

#include "mirror/rtnetlink/RtChannel.h"
#include "vantu/NetNs.h"

struct mnl_socket;

namespace Mirror {

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

#pragma once
// An rtnetlink socket that is subscribed to links, addresses and forwarding flags (libmnl).

#include <memory>
#include <vector>

#include "mirror/RtChannel.h"

struct mnl_socket;

namespace Mirror {

class RtSocket : public RtChannel {
 public:
  // Room for some ten thousand notifications; memory is used only while they wait.
  static constexpr int defaultReceiveBytes = 16 << 20;

  // In the network namespace that the calling thread is in; the socket stays there. All operations throw
  // Kel::Exception when the system refuses: the text says what was tried and why it failed.
  // A receive buffer beyond net.core.rmem_max needs CAP_NET_ADMIN; without, it is as large as is allowed.
  explicit RtSocket(int receiveBytes = defaultReceiveBytes);

  int fd() const;            // readable when datagrams wait; another one after reopen()
  int receiveBytes() const;  // as granted by the kernel, which counts its own overhead too

  void dump(RtDump what, std::uint32_t sequence) override;
  Outcome receive(std::span<const std::uint8_t>& datagram) override;
  std::uint32_t portId() const override;
  // To be called in the namespace that the socket was made in. When it throws, the old socket is still there.
  void reopen() override;

 private:
  struct Close {
    void operator()(mnl_socket* socket) const;
  };
  using Handle = std::unique_ptr<mnl_socket, Close>;
  static Handle open(int receiveBytes);

  int wantedReceiveBytes_;
  Handle socket_;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace Mirror

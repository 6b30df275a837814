#pragma once
// Keeps a tree of entities in step with the links, addresses and forwarding flags of one network namespace.
//
// The channel is subscribed first; then everything is dumped, and notifications that come meanwhile are merged in;
// from then on notifications keep the state. A dump that the kernel calls interrupted is begun again. When messages
// were lost (an overrun of the receive buffer), what waits is read to its end, since it is from before the gap, and
// everything is dumped again: only what really differs changes in the tree. When messages come faster than they are
// read, so that no end is reached, poll() begins anew on a socket of its own.
//
// Until the first dump is complete the tree is left alone.

#include <linux/netlink.h>

#include <cstdint>
#include <optional>
#include <span>

#include "kel/System.h"
#include "mirror/ForwardingFlags.h"
#include "mirror/KernelState.h"
#include "mirror/RtChannel.h"
#include "mirror/TreeWriter.h"

namespace Mirror {

class NamespaceMirror {
 public:
  // `channel` must outlive this object. start() and poll() are to be called in the network namespace.
  NamespaceMirror(RtChannel& channel, const Varnix::Tree& tree, ForwardingFlags flags = ForwardingFlags());

  // Asks for the first dump.
  void start();
  // Works off what has come, up to a limit; true when more may wait. Never blocks. Throws Kel::Exception when the
  // kernel refuses the first dump; later refusals are traced and tried again. The same holds for all operations here.
  bool receive();
  // To be called once a second: what no notification tells, and what has to be tried again.
  void poll();
  // Dumps everything again, for an operator who does not trust what is there.
  void reread();

  bool isComplete() const { return completeDumps_ > 0; }
  std::uint64_t completeDumps() const { return completeDumps_; }
  std::uint64_t overruns() const { return overruns_; }

 private:
  enum class Handling { notified, dumped };

  void reopen();
  void beginDump();
  void ask();
  bool isStuck() const;
  void handleDatagram(std::span<const std::uint8_t> datagram);
  void handleReply(const nlmsghdr& message);
  void handle(const nlmsghdr& message, Handling handling);
  void handleStepEnd();
  void handleInterruption();
  void handleDumpFailure(int status);
  void handleOverrun();
  void completeDump();
  void readForwarding();

  RtChannel& channel_;
  TreeWriter writer_;
  ForwardingFlags flags_;
  KernelState state_;

  // The dump under way.
  std::optional<KernelState> fresh_;
  RtDump step_ = RtDump::links;
  std::uint32_t sequence_ = 0;
  bool isInterrupted_ = false;
  Kel::Seconds lastReply_ = 0;

  std::optional<Kel::Seconds> dumpWantedSince_;  // as soon as nothing waits any more
  bool isReopenWanted_ = false;                  // with the next poll
  bool isRetryWanted_ = false;                   // a dump, with the next poll
  bool isForwardingUnread_ = false;
  unsigned interruptions_ = 0;  // in a row
  std::uint64_t completeDumps_ = 0;
  std::uint64_t overruns_ = 0;
};

}  // namespace Mirror

#pragma once
// Keeps the picture in step with the links, addresses, neighbours, routes and forwarding flags of one network
// namespace.
//
// The channel is subscribed first; then everything is dumped, and notifications that come meanwhile are merged in;
// from then on notifications keep the state. A dump that the kernel calls interrupted is begun again. When messages
// were lost (an overrun of the receive buffer), what waits is read to its end, since it is from before the gap, and
// everything is dumped again: only what really differs changes in the picture. When messages come faster than they are
// read, so that no end is reached, poll() begins anew on a socket of its own.
//
// A list of neighbours that changes while the kernel walks it may lack some, without the kernel's saying so. It is
// listed again then, at once a few times, and later at growing intervals.
//
// Routes are listed after all that, and by themselves when the kernel may have changed them without a word
// (NamespaceRoutes.h). A list of them is as long as it is: it is taken in as fast as it can be written, bit by bit.
//
// Until the first dump is complete the picture is left alone; then the whole namespace is in it at once. Routes go
// ahead: nobody looks for them before their VRF is there.

#include <linux/netlink.h>

#include <cstdint>
#include <optional>
#include <span>

#include "kel/System.h"
#include "mirror/kernel/ForwardingFlags.h"
#include "mirror/kernel/KernelState.h"
#include "mirror/publish/NamespaceWriter.h"
#include "mirror/routes/NamespaceRoutes.h"
#include "mirror/rtnetlink/RtSocket.h"

namespace Mirror {

class NamespaceMirror {
 public:
  // `channel` and `picture` must outlive this object.
  NamespaceMirror(RtChannel& channel, Picture& picture, NamespaceScope scope = NamespaceScope(),
                  ForwardingFlags flags = ForwardingFlags());

  // Asks for the first dump.
  void start();
  // Works off what has come, up to a limit; true when more may wait. Never blocks. Throws Kel::Exception when the
  // kernel refuses the first dump; later refusals are traced and tried again. The same holds for all operations here.
  bool receive();
  // To be called once a second: what no notification tells, and what has to be tried again.
  void poll();
  // Dumps everything again, for an operator who does not trust what is there.
  void reread();

  // Takes in what another namespace's coming or going means for this one.
  void settle();
  // The namespace is gone: nothing of it is left in the picture. The end of this object.
  void withdraw();

  // When receive() has to be called though nothing may have come; none: not before something has.
  std::optional<Kel::Seconds> due() const;

  // The id that an interface is published under; not valid when it is not.
  Vantu::IntfId interfaceId(std::uint32_t ifIndex) const { return writer_.interfaceId(ifIndex); }
  const NamespaceScope& scope() const { return writer_.scope(); }
  const NamespaceRoutes& routes() const { return routes_; }
  bool isComplete() const { return completeDumps_ > 0; }
  std::uint64_t completeDumps() const { return completeDumps_; }
  std::uint64_t overruns() const { return overruns_; }

 private:
  enum class Handling { notified, dumped };

  void reopen();
  enum class Extent { all, allButRoutes, routes };
  void beginDump(Extent extent = Extent::all);
  void beginRoutes();
  void tablesAre();
  void nextOfRoutes();
  void workOnRoutes();
  bool mustWait();
  bool areRoutesDue() const;
  bool isBusy() const { return fresh_ || isListingRoutes_; }
  void stepIs(RtDump step, std::uint32_t table = 0);
  void ask();
  bool areFlagsDue();
  bool isListingDue() const;
  bool isStuck() const;
  void handleDatagram(std::span<const std::uint8_t> datagram);
  void handleReply(const nlmsghdr& message);
  void handle(const nlmsghdr& message, Handling handling);
  void handleLink(const LinkMessage& link);
  void handleStepEnd();
  void handleRoutesEnd(bool mayLack);
  bool mayLackNeighbours();
  void handleInterruption();
  void handleDumpFailure(int status);
  void handleOverrun();
  void completeDump();
  void show();
  void giveUp();
  void readForwarding();

  RtChannel& channel_;
  Picture& picture_;
  NamespaceWriter writer_;
  ForwardingFlags flags_;
  KernelState state_;
  NamespaceRoutes routes_;

  // The dump under way.
  std::optional<KernelState> fresh_;
  Extent extent_ = Extent::all;
  bool isListingRoutes_ = false;  // that is the last part
  bool isRoutesStepOver_ = false;
  RtDump step_ = RtDump::links;
  std::uint32_t table_ = 0;
  std::uint32_t sequence_ = 0;
  bool isInterrupted_ = false;
  Kel::Seconds lastReply_ = 0;
  unsigned pieces_ = 0;               // of this step, so far
  bool areNeighboursMoving_ = false;  // some were notified during this step
  unsigned repetitions_ = 0;          // of this step
  bool mayBeIncomplete_ = false;      // some step was not repeated any more
  Kel::Seconds nextListing_ = 0;      // when that is to be made good; 0: nothing is
  Kel::Seconds listingInterval_ = 0;

  std::optional<Kel::Seconds> dumpWantedSince_;  // as soon as nothing waits any more
  bool isReopenWanted_ = false;                  // with the next poll
  bool isRetryWanted_ = false;                   // a dump, with the next poll
  bool isForwardingUnread_ = false;
  unsigned polls_ = 0;
  std::uint64_t vrfsVersion_ = 0;
  unsigned interruptions_ = 0;  // in a row
  std::uint64_t completeDumps_ = 0;
  std::uint64_t overruns_ = 0;
};

}  // namespace Mirror

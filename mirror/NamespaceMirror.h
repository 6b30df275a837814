#pragma once
// Keeps the picture in step with the links, addresses, neighbours, routes and forwarding flags of one network
// namespace.
//
// The channel is subscribed first. Then the kernel dumps everything, and notifications during the dump are merged in.
// From then on notifications keep the state. An interrupted dump (NLM_F_DUMP_INTR) is repeated. After an overrun of the
// receive buffer the mirror drains the queue, which is from before the gap, and dumps everything again: only what
// differs is changed in the picture. When messages arrive faster than the mirror reads them, so that the queue never
// drains, poll() reopens the socket.
//
// A dump of neighbours may miss entries when the table changes meanwhile, and the kernel does not report that. The
// mirror then repeats the dump, at once a few times, and later at growing intervals.
//
// Routes are dumped last, and again by themselves when the kernel may have changed them without a notification
// (NamespaceRoutes.h). Back-pressure: a dump of routes is read only as fast as the store takes the routes.
//
// The picture does not change until the first dump is complete; then it shows the whole namespace at once. Routes are
// published before that: no reader looks for them before their VRF exists.

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
  // Processes waiting messages, up to a limit; true when more may wait. Never blocks. Throws Kel::Exception when the
  // kernel refuses the first dump; later refusals are traced and retried. The same holds for all operations here.
  bool receive();
  // Call it once a second: reads what no notification reports, and retries what failed.
  void poll();
  // Dumps everything again, for an operator who does not trust what is there.
  void reread();

  // Applies what the arrival or removal of another namespace means for this one.
  void settle();
  // The namespace was deleted: removes all of it from the picture. Make no further call of this object.
  void withdraw();

  // When to call receive() even though no message has arrived; none: not before a message arrives.
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

#pragma once
// Keeps the picture (publish/TreePublisher.h) equal to the links, addresses, neighbours, routes and forwarding flags of
// one network namespace.
//
// The channel subscribes first, then the kernel dumps everything. Notifications during the dump are merged in; later
// ones keep the state up to date. An interrupted dump (NLM_F_DUMP_INTR) is repeated. After an overrun of the receive
// buffer the mirror drains the queue, which is older than the gap, and dumps everything again. Only differences change
// the picture. If messages arrive faster than the mirror reads them, the queue never drains. poll() then reopens the
// socket, as it does for a dump that the kernel does not answer.
//
// A dump of neighbours may miss entries while the table changes, and the kernel does not report that. The mirror then
// repeats the dump: a few times at once, later at growing intervals.
//
// Routes are dumped last, and again when the kernel may have changed them without a notification (NamespaceRoutes.h).
// Back-pressure: a dump of routes is read only as fast as the store takes the routes.
//
// The first complete dump adds the whole namespace to the picture at once. Its routes are published earlier: readers
// look for them only when their VRF exists.

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

  // Requests the first dump.
  void start();
  // Processes waiting messages, up to a limit. Returns whether more may wait. Never blocks.
  // Throws, like all operations: Kel::Exception when the kernel refuses the first dump. Later refusals are traced and
  // retried.
  bool receive();
  // Call it once a second. Reads what the kernel does not notify of, and retries what failed.
  void poll();
  // Dumps everything again, at an operator's request. No-op before the first dump is complete.
  void reread();

  // Applies pending changes. Call it after another namespace was added or removed, which may change the VRFs.
  void settle();
  // Call it with an alias that was read apart from the notifications (KernelState::setAlias).
  void setAlias(std::uint32_t ifIndex, const std::string& alias);
  // Removes the namespace from the picture, since it was deleted. Only the destructor may follow.
  void withdraw();

  // When to call receive() even without a message; none: only for messages.
  std::optional<Kel::Seconds> due() const;

  // The id under which an interface is published; invalid if it is not published.
  Vantu::IntfId interfaceId(std::uint32_t ifIndex) const { return writer_.interfaceId(ifIndex); }
  // Changes whenever an interface is published, changed or removed, and with it perhaps an interfaceId().
  std::uint64_t interfacesVersion() const { return interfacesVersion_; }
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
  void beginRoutes(Extent extent);
  void updateTables();
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
  bool isListingRoutes_ = false;   // the dump's last part: routes and next-hop objects
  bool isRoutesStepOver_ = false;  // NamespaceRoutes::work() has not finished the step
  RtDump step_ = RtDump::links;
  std::uint32_t table_ = 0;
  std::uint32_t sequence_ = 0;
  bool isInterrupted_ = false;
  Kel::Seconds lastReply_ = 0;
  unsigned pieces_ = 0;               // datagrams of this step, so far
  bool areNeighboursMoving_ = false;  // a neighbour was notified during this step
  unsigned repetitions_ = 0;          // of this step
  bool mayBeIncomplete_ = false;      // a step was accepted although neighbours were notified
  Kel::Seconds nextListing_ = 0;      // when to dump again for that reason; 0: never
  Kel::Seconds listingInterval_ = 0;

  std::optional<Kel::Seconds> dumpWantedSince_;  // an overrun; the dump begins when the queue is empty
  bool isReopenWanted_ = false;                  // by the next poll
  bool isRetryWanted_ = false;                   // of an interrupted dump, by the next poll
  bool isForwardingUnread_ = false;
  unsigned polls_ = 0;
  std::uint64_t vrfsVersion_ = 0;
  std::uint64_t interfacesVersion_ = 0;
  unsigned interruptions_ = 0;  // in a row
  std::uint64_t completeDumps_ = 0;
  std::uint64_t overruns_ = 0;
};

}  // namespace Mirror

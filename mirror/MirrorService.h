#pragma once
// Publishes the kernel's state of all VRFs in the store, driven by the caller's event loop. The default VRF is the
// network namespace of the calling thread.
//
//   MirrorService service({.store = {.directory = "/run/quorin", .name = "quorin-mirrord"}});
//   service.start();
//   on fd() readable: while (service.receive()) ...
//   once a second:    service.poll();
//
// Guarantees: one commit publishes a VRF, after the first dump of its namespace; one commit removes it.
// Thread: the one that constructed the service.

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "mirror/CounterMirror.h"
#include "mirror/NamespaceMirror.h"
#include "mirror/publish/TreePublisher.h"
#include "mirror/rtnetlink/RtSocket.h"
#include "mirror/vrf/VrfNamespaces.h"
#include "mirror/vrf/VrfSettings.h"

namespace Mirror {

// A set of descriptors to wait for (epoll), each with a tag that its owner chooses, and one timer.
class EventSet {
 public:
  using Tag = std::uint64_t;

  // Throws Kel::Exception when no descriptor is left.
  explicit EventSet(Tag timerTag);
  ~EventSet();
  EventSet(const EventSet&) = delete;
  EventSet& operator=(const EventSet&) = delete;

  int fd() const { return epoll_; }  // readable while a member is
  // Adds a descriptor. Closing it removes it from the set. Throws Kel::Exception if the system refuses.
  void add(int fd, Tag tag);
  // Returns the tags of readable descriptors, at most 256. The others follow in later calls. Never blocks.
  std::vector<Tag> ready();

  // Sets the timer: ready() returns its tag after `seconds`. Infinity stops the timer.
  void setTimer(double seconds);

 private:
  int epoll_;
  int timer_;
};

struct MirrorConfig {
  Quillo::PublisherConfig store;
  std::string netnsDirectory = Vantu::defaultNetNsDirectory;
  std::string settingsFile = {};  // empty: no file
  bool mustSettingsExist = false;
  int receiveBytes = RtSocket::defaultReceiveBytes;
  std::string vrfIds = {};  // what vrfIds() returned in an earlier process, for ids that the store does not have
};

class MirrorService {
 public:
  // Opens the sockets and the store.
  // Throws, like all operations: Kel::Exception (Quillo::StoreException, Pesk::CorruptionDetectedException) when the
  // program must end; the text is for the operator. A VRF that cannot be served is traced and retried once a second.
  explicit MirrorService(const MirrorConfig& config);

  int fd() const { return events_.fd(); }
  // Requests the first dumps. Call it once, before the following operations.
  void start();
  // Processes and publishes waiting messages. Returns whether more may wait, even if fd() is not readable.
  bool receive();
  void poll();  // call it once a second
  // Dumps everything again, and publishes the differences.
  void reread();

  // Whether the store holds the first complete pass.
  bool isServing() const { return isServing_; }

  // All assigned VRF ids, for MirrorConfig::vrfIds. They are the only contents of the store that cannot be read from
  // the kernel again.
  std::string vrfIds() const;
  const Varnix::Tree& tree() const { return picture_.tree; }
  const Picture& picture() const { return picture_; }
  const NamespaceMirror& mirror() const { return members_.at(defaultTag)->mirror; }
  // Null without such a VRF.
  const NamespaceMirror* mirror(const L3::VrfName& vrf) const;
  std::size_t vrfs() const { return tags_.size(); }  // besides the default one
  const TreePublisher& publisher() const { return publisher_; }

 private:
  using Tag = EventSet::Tag;
  enum : Tag { namespacesTag, settingsTag, defaultTag };  // then one for each other VRF

  // The mirror of one namespace.
  struct Member {
    Member(Picture& picture, NamespaceScope scope, const std::shared_ptr<const Vantu::NetNs>& ns, int receiveBytes);
    RtSocket socket;
    NamespaceMirror mirror;
    CounterMirror counters;
    int watchedFd = -1;
    bool wasComplete = false;
    bool isWhole() const { return mirror.isComplete() && counters.hasRead(); }
  };

  void take(const std::vector<VrfNamespaces::Change>& changes);
  void found(const L3::VrfName& vrf, const std::shared_ptr<const Vantu::NetNs>& ns);
  void lost(const L3::VrfName& vrf);
  void failed(const L3::VrfName& vrf, const std::string& why);
  template <class Operation>
  void run(Tag tag, const Operation& operation);
  template <class Operation>
  void runAll(const Operation& operation);
  void applySettings();
  void armTimer();
  bool isBusy() const { return !busy_.empty() || !reading_.empty(); }
  bool isWhole();
  void publish();

  Picture picture_;
  EventSet events_{namespacesTag};
  std::shared_ptr<const Vantu::NetNs> own_;
  VrfNamespaces namespaces_;
  SettingsFile settings_;
  int receiveBytes_;
  TreePublisher publisher_;
  std::map<Tag, std::unique_ptr<Member>> members_;
  std::map<L3::VrfName, Tag> tags_;
  Tag lastTag_ = defaultTag;
  std::set<Tag> busy_;               // members whose mirror may have more to receive
  std::set<Tag> reading_;            // members whose counters are being read
  std::map<Tag, Kel::Seconds> due_;  // NamespaceMirror::due()
  std::set<L3::VrfName> awaited_;    // VRFs that existed at the start and are not dumped yet
  Kel::Seconds awaitedUntil_ = 0;    // then the first pass ends without them
  bool isServing_ = false;
};

}  // namespace Mirror

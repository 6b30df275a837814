#pragma once
// Publishes the kernel's state of all VRFs in the store, from an event loop. The default VRF is the network namespace
// of the calling thread.
//
//   MirrorService service({.store = {.directory = "/run/quorin", .name = "quorin-mirrord"}});
//   service.start();
//   on fd() readable: while (service.receive()) ...
//   once a second:    service.poll();
//
// Guarantees: a VRF is published as a whole, in one commit, after its namespace was dumped; and removed in one commit.

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

// Which of many descriptors are readable (epoll), by tags that their users choose. It is a descriptor itself.
class EventSet {
 public:
  using Tag = std::uint64_t;

  // Throws Kel::Exception when the system has no descriptors to give.
  EventSet();
  ~EventSet();
  EventSet(const EventSet&) = delete;
  EventSet& operator=(const EventSet&) = delete;

  int fd() const { return epoll_; }  // readable when one of them is
  // A descriptor leaves the set when it is closed.
  void add(int fd, Tag tag);
  // Those that are readable now, a fair choice of them when there are very many. Never blocks.
  std::vector<Tag> ready();

  // ready() gives `tag` in `seconds`, or never when that is infinity; a later call takes the place of an earlier one.
  void timerIs(double seconds, Tag tag);

 private:
  int epoll_;
  int timer_;
  bool isTimerAdded_ = false;
};

struct MirrorConfig {
  Quillo::PublisherConfig store;
  std::string netnsDirectory = Vantu::defaultNetNsDirectory;
  std::string settingsFile = {};  // empty: none
  bool mustSettingsExist = false;
  int receiveBytes = RtSocket::defaultReceiveBytes;
};

class MirrorService {
 public:
  // Opens sockets and store. All operations throw Kel::Exception (Quillo::StoreException,
  // Pesk::CorruptionDetectedException) for what the program cannot go on with; the text is for the operator. A VRF
  // that cannot be served is none of that: it is traced, and tried again once a second.
  explicit MirrorService(const MirrorConfig& config);

  int fd() const { return events_.fd(); }
  void start();
  // Processes and publishes waiting messages; true when more may wait, even if fd() is not readable.
  bool receive();
  void poll();
  // Reads everything again from the kernel; what differs is published as it comes in.
  void reread();

  // The first complete pass is in the store.
  bool isServing() const { return isServing_; }

  const Varnix::Tree& tree() const { return picture_.tree; }
  const Picture& picture() const { return picture_; }
  const NamespaceMirror& mirror() const { return members_.at(defaultTag)->mirror; }
  // Null when there is no such VRF.
  const NamespaceMirror* mirror(const L3::VrfName& vrf) const;
  std::size_t vrfs() const { return tags_.size(); }  // besides the default one
  const TreePublisher& publisher() const { return publisher_; }

 private:
  using Tag = EventSet::Tag;
  enum : Tag { namespacesTag, settingsTag, defaultTag };  // those of VRFs follow

  // One namespace that is mirrored.
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
  bool isWhole();
  void publish();

  Picture picture_;
  EventSet events_;
  std::shared_ptr<const Vantu::NetNs> own_;
  VrfNamespaces namespaces_;
  SettingsFile settings_;
  int receiveBytes_;
  TreePublisher publisher_;
  std::map<Tag, std::unique_ptr<Member>> members_;
  std::map<L3::VrfName, Tag> tags_;
  Tag lastTag_ = defaultTag;
  std::set<Tag> busy_;  // more may wait
  std::map<Tag, Kel::Seconds> due_;
  std::set<L3::VrfName> awaited_;   // there from the start, and not listed and read yet
  Kel::Seconds patienceUntil_ = 0;  // for those
  bool isServing_ = false;
};

}  // namespace Mirror

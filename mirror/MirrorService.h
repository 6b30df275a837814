#pragma once
// The whole way from the kernel to the store, for an event loop: the network namespace of the calling thread.
//
//   MirrorService service({.directory = "/run/quorin", .name = "quorin-mirrord"});
//   service.start();
//   on fd() readable: while (service.receive()) ...       // ask fd() each time, it may change
//   once a second:    service.poll();

#include "mirror/NamespaceMirror.h"
#include "mirror/RtSocket.h"
#include "mirror/TreePublisher.h"

namespace Mirror {

class MirrorService {
 public:
  // Opens socket and store. All operations throw Kel::Exception (Quillo::StoreException,
  // Pesk::CorruptionDetectedException) for what the program cannot go on with; the text is for the operator.
  explicit MirrorService(const Quillo::PublisherConfig& store, int receiveBytes = RtSocket::defaultReceiveBytes);

  int fd() const { return socket_.fd(); }
  void start() { mirror_.start(); }
  // Takes in what has come and publishes it; true when more may wait.
  bool receive();
  void poll();
  // Reads everything again from the kernel; what differs is published as it comes in.
  void reread() { mirror_.reread(); }

  // The first complete pass is in the store.
  bool isServing() const { return isServing_; }

  const Varnix::Tree& tree() const { return tree_; }
  const NamespaceMirror& mirror() const { return mirror_; }
  const TreePublisher& publisher() const { return publisher_; }

 private:
  void publish();

  Varnix::Tree tree_;
  RtSocket socket_;
  TreePublisher publisher_;
  NamespaceMirror mirror_;
  bool isServing_ = false;
};

}  // namespace Mirror

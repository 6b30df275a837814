#pragma once
// A kernel for tests: links, addresses, neighbours and routes that tests change, an rtnetlink queue of limited size, and
// dumps that are produced piece by piece while they are read, as the real one does it.

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "mirror/rtnetlink/RtChannel.h"
#include "mirror/testing/FakeRoutes.h"
#include "mirror/testing/TestMessages.h"

namespace Mirror::Test {

class FakeKernel : public RtChannel {
 public:
  static constexpr std::uint32_t port = 4711;

  // ---- what there is
  std::map<int, TestLink> links;
  std::vector<TestAddress> addresses;  // in the order of the kernel's lists
  std::vector<TestNeighbour> neighbours;
  FakeRoutes routes{[this](const Message& message) { notify(message); }};

  // ---- how it behaves
  std::size_t queueLimit = SIZE_MAX;            // datagrams; what comes beyond is lost
  std::size_t objectsPerPiece = 3;              // of a dump
  std::function<bool()> isPieceLate = never;    // the next notification overtakes a piece that is ready
  std::function<bool()> isInterrupted = never;  // the dump says so in its last message
  int dumpStatus = 0;                           // an errno: dumps are refused
  bool isDumpSilent = false;                    // a dump is never answered
  std::function<bool()> isSendRefused = never;  // a dump cannot be asked for
  bool isReopenRefused = false;
  bool keepsAddresses = false;                  // of links that go down, IPv6; they are tentative then
  std::function<void()> beforeReceive = [] {};  // what happens meanwhile

  // ---- what was asked of it
  unsigned dumps = 0;
  unsigned reopened = 0;

  void linkIs(const TestLink& link) {
    const bool goesDown = links.contains(link.ifIndex) && (links[link.ifIndex].flags & ~link.flags & IFF_UP);
    links[link.ifIndex] = link;
    notify(describe(Message(RTM_NEWLINK), link));
    if (!goesDown) return;
    for (TestAddress address : std::vector<TestAddress>(addresses)) {
      if (address.ifIndex != link.ifIndex || address.local.af() != Vantu::ipv6_) continue;
      if (!keepsAddresses) {
        addressDel(address);
      } else if (!(address.flags & IFA_F_NODAD)) {
        find(address)->flags |= IFA_F_TENTATIVE;
      }
    }
  }
  void linkDel(int ifIndex) {
    const auto gone = links.extract(ifIndex);
    const auto isOfLink = [&](const TestAddress& address) { return address.ifIndex == ifIndex; };
    for (const auto& address : addresses) {
      if (isOfLink(address)) notify(describe(Message(RTM_DELADDR), address));
    }
    std::erase_if(addresses, isOfLink);
    const auto isOnLink = [&](const TestNeighbour& neighbour) { return neighbour.ifIndex == ifIndex; };
    for (const auto& neighbour : neighbours) {
      if (isOnLink(neighbour)) notify(describe(Message(RTM_DELNEIGH), neighbour));
    }
    std::erase_if(neighbours, isOnLink);
    notify(describe(Message(RTM_DELLINK), gone.mapped()));
  }
  void addressIs(const TestAddress& address) {
    if (TestAddress* present = find(address)) {
      *present = address;
    } else {
      addresses.push_back(address);
    }
    notify(describe(Message(RTM_NEWADDR), address));
  }
  void addressDel(const TestAddress& address) {
    const TestAddress gone = *find(address);
    std::erase_if(addresses, [&](const TestAddress& other) { return isSame(other, gone); });
    notify(describe(Message(RTM_DELADDR), gone));
  }
  void neighbourIs(const TestNeighbour& neighbour) {
    std::erase_if(neighbours, [&](const TestNeighbour& other) { return isSame(other, neighbour); });
    neighbours.insert(neighbours.begin(), neighbour);
    notify(describe(Message(RTM_NEWNEIGH), neighbour));
  }
  void neighbourDel(const TestNeighbour& neighbour) {
    const TestNeighbour gone = neighbour;
    std::erase_if(neighbours, [&](const TestNeighbour& other) { return isSame(other, gone); });
    notify(describe(Message(RTM_DELNEIGH), gone));
  }
  void notify(const Message& message) { put(message.bytes()); }
  void put(const Bytes& datagram) {
    if (isCongested_ || queue_.size() >= queueLimit) {
      isCongested_ = isOverrunUntold_ = true;
    } else {
      queue_.push_back(datagram);
    }
    releaseLatePiece();
  }

  static bool isSame(const TestAddress& a, const TestAddress& b) {
    if (a.ifIndex != b.ifIndex || a.local != b.local) return false;
    return a.local.af() == Vantu::ipv6_ || (a.prefixLength == b.prefixLength && a.peer == b.peer);
  }

  static bool isSame(const TestNeighbour& a, const TestNeighbour& b) {
    return a.ifIndex == b.ifIndex && a.addr == b.addr;
  }

  // ---- the channel
  void dump(RtDump what, std::uint32_t sequence, std::uint32_t table = 0) override {
    dumpedTable_ = table;
    ++dumps;
    if (isSendRefused()) throw Kel::Exception("no buffer space");
    if (dumpStatus != 0) {
      queue_.push_back(Message(NLMSG_ERROR, 0, sequence, port).fixed(nlmsgerr{-dumpStatus, {}}).bytes());
    } else if (!isDumpSilent) {
      dumped_ = {what, sequence, 0, true};
      dumpedState_.reset();
      producePiece();
    }
  }
  Outcome receive(std::span<const std::uint8_t>& datagram) override {
    beforeReceive();
    if (std::exchange(isOverrunUntold_, false)) return Outcome::overrun;
    if (queue_.empty()) releaseLatePiece();
    if (queue_.empty()) return Outcome::empty;
    latest_ = std::move(queue_.front());
    queue_.pop_front();
    if (queue_.empty()) isCongested_ = false;
    if (dumped_.isRunning && latePiece_.empty()) producePiece();
    datagram = latest_;
    return Outcome::datagram;
  }
  std::uint32_t portId() const override { return port; }
  void reopen() override {
    if (isReopenRefused) throw Kel::Exception("no socket");
    ++reopened;
    queue_.clear();
    latePiece_.clear();
    dumped_ = {};
    isCongested_ = isOverrunUntold_ = false;
  }

 private:
  struct Dump {
    RtDump what = RtDump::links;
    std::uint32_t sequence = 0;
    std::size_t next = 0;
    bool isRunning = false;
  };

  static bool never() { return false; }

  TestAddress* find(const TestAddress& address) {
    for (auto& other : addresses) {
      if (isSame(other, address)) return &other;
    }
    return nullptr;
  }

  Message reply(std::uint16_t type) const { return Message(type, NLM_F_MULTI, dumped_.sequence, port); }

  std::vector<Bytes> objects() const {
    std::vector<Bytes> all;
    if (dumped_.what == RtDump::links) {
      for (const auto& [ifIndex, link] : links) all.push_back(describe(reply(RTM_NEWLINK), link).bytes());
    } else if (isOfNeighbours()) {
      const auto af = dumped_.what == RtDump::ipv4Neighbours ? Vantu::ipv4_ : Vantu::ipv6_;
      for (const auto& neighbour : neighbours) {
        if (neighbour.addr.af() == af) all.push_back(describe(reply(RTM_NEWNEIGH), neighbour).bytes());
      }
    } else if (dumped_.what == RtDump::ipv4Addresses || dumped_.what == RtDump::ipv6Addresses) {
      const auto af = dumped_.what == RtDump::ipv4Addresses ? Vantu::ipv4_ : Vantu::ipv6_;
      for (const auto& address : addresses) {
        if (address.local.af() == af) all.push_back(describe(reply(RTM_NEWADDR), address).bytes());
      }
    }
    if (isOfRoutes()) {
      all = routes.objects(dumped_.what, dumpedTable_, [this](std::uint16_t type) { return reply(type); });
    }
    return all;
  }
  bool isOfRoutes() const { return dumped_.what >= RtDump::nexthops; }

  // The next few objects by their place in the list, so that one is passed over when another before it has gone.
  void producePiece() {
    const auto all = objects();
    Bytes piece;
    // The kernel goes on with the next prefix there, whatever has become of others.
    const std::size_t limit = dumped_.what == RtDump::ipv4Routes ? SIZE_MAX : objectsPerPiece;
    for (std::size_t count = 0; count < limit && dumped_.next < all.size(); ++count, ++dumped_.next) {
      const Bytes& object = all[dumped_.next];
      piece.insert(piece.end(), object.begin(), object.end());
      piece.resize((piece.size() + 3) / 4 * 4);
    }
    if (!dumpedState_) dumpedState_ = stateText();
    if (dumped_.next >= all.size()) {
      const bool hasChanged = std::exchange(dumpedState_, std::nullopt) != stateText() && !isOfNeighbours() &&
                              (!isOfRoutes() || dumped_.what == RtDump::nexthops);
      const std::uint16_t flags = hasChanged || isInterrupted() ? NLM_F_DUMP_INTR : 0;
      const Bytes done = Message(NLMSG_DONE, NLM_F_MULTI | flags, dumped_.sequence, port).fixed(0).bytes();
      piece.insert(piece.end(), done.begin(), done.end());
      dumped_.isRunning = false;
    }
    latePiece_ = std::move(piece);
    if (!isPieceLate()) releaseLatePiece();
  }

  void releaseLatePiece() {
    if (!latePiece_.empty()) queue_.push_back(std::exchange(latePiece_, {}));
  }

  bool isOfNeighbours() const {
    return dumped_.what == RtDump::ipv4Neighbours || dumped_.what == RtDump::ipv6Neighbours;
  }

  // What the kernel has a counter of changes for; it has none for neighbours.
  Bytes stateText() const {
    Bytes all;
    for (const auto& object : objects()) all.insert(all.end(), object.begin(), object.end());
    return all;
  }

  std::deque<Bytes> queue_;
  Bytes latest_;
  Bytes latePiece_;
  Dump dumped_;
  std::optional<Bytes> dumpedState_;
  std::uint32_t dumpedTable_ = 0;
  bool isCongested_ = false;
  bool isOverrunUntold_ = false;
};

}  // namespace Mirror::Test

#pragma once
// The links, addresses and neighbours of one network namespace, as far as the kernel has told.
//
// The kernel sends notifications, one for each change and in order, and replies of a dump, each of which was true at
// some moment of the dump. A notification received during a dump overrides the dump's reply for the same object: the
// reply may be older, and every later change is notified too.
//
//   KernelState fresh(KernelState::Purpose::dump);     // before the dump is asked for
//   ... fresh.dumped(reply) and fresh.notified(change), as they come ...
//   state = fresh.complete();                          // what was not dumped is not there
//
// Addresses and neighbours may come before their link, and are kept for it. A link takes them along when it goes.
// Of neighbours only those are kept that can be sent to (NeighbourMessage::isResolved).

#include <absl/container/btree_map.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "mirror/rtnetlink/RtMessage.h"
#include "varnix/Ip.h"

namespace Mirror {

// What tells the addresses of an interface apart: for IPv4 the address, the prefix length and the peer, for IPv6
// the address alone.
struct AddressKey {
  Vantu::IpGenAddr local;
  unsigned prefixLength = 0;  // IPv6: 0
  Vantu::IpGenAddr peer;      // IPv6: unset
  explicit AddressKey(const AddressMessage& message);
  friend auto operator<=>(const AddressKey&, const AddressKey&) = default;
};

struct KernelLink {
  std::string name;  // empty while another link has it: a rename that is only half told
  std::uint32_t flags = 0;
  Interface::OperStatus operStatus = Interface::operStatusUnknown;
  Vantu::EthAddr ethAddr;
  std::uint32_t master = 0;               // ifIndex; 0: none
  std::optional<std::uint32_t> vrfTable;  // of a VRF device
  // Whether packets can pass, so that the addresses are in force.
  bool isRunning() const;
};

struct KernelAddress {
  unsigned prefixLength = 0;
  std::uint32_t flags = 0;
  std::uint64_t order = 0;  // of the addresses of an interface, the one that was there first has the lowest
  Ip6::AddressState state() const;
};

struct KernelNeighbour {
  Vantu::EthAddr ethAddr;
  bool isStatic = false;
  friend bool operator==(const KernelNeighbour&, const KernelNeighbour&) = default;
};
using KernelNeighbours = absl::btree_map<Vantu::IpGenAddr, KernelNeighbour>;

struct KernelInterface {
  std::optional<KernelLink> link;
  std::map<AddressKey, KernelAddress> addresses;  // IPv4 first
  KernelNeighbours neighbours;                    // IPv4 first
  bool isEmpty() const { return !link && addresses.empty() && neighbours.empty(); }
  // The link is administratively down from now on. The IPv6 addresses that the kernel keeps then (keep_addr_on_down)
  // are tentative without another word; what becomes of them when the link is up again is told.
  void addressesAreUnproven();
};

class KernelState {
 public:
  using Interfaces = std::map<std::uint32_t, KernelInterface>;  // by ifIndex

  enum class Purpose { current, dump };
  explicit KernelState(Purpose purpose = Purpose::current) : purpose_(purpose) {}

  void notified(const LinkMessage& message);
  void notified(const AddressMessage& message);
  void notified(const NeighbourMessage& message);
  void dumped(const LinkMessage& message);
  void dumped(const AddressMessage& message);
  void dumped(const NeighbourMessage& message);

  // The state after a complete dump, from now on kept by notifications.
  KernelState complete() &&;

  const Interfaces& interfaces() const { return interfaces_; }
  const KernelInterface* interface(std::uint32_t ifIndex) const;
  // What was told since the last call: of the link itself or its addresses, and of single neighbours. Of an interface
  // that is among the former, any neighbour may have changed too.
  struct Changes {
    std::set<std::uint32_t> interfaces;
    std::set<std::uint32_t> names;  // of interfaces that came or went, or have another name
    std::set<std::pair<std::uint32_t, Vantu::IpGenAddr>> neighbours;
  };
  Changes takeChanges() { return std::exchange(changes_, {}); }

 private:
  void apply(const LinkMessage& message);
  void apply(const AddressMessage& message);
  void apply(const NeighbourMessage& message);
  void takeName(const std::string& name, std::uint32_t newOwner);

  Purpose purpose_;
  Interfaces interfaces_;
  std::map<std::string, std::uint32_t> owners_;  // ifIndex by link name
  Changes changes_;
  std::uint64_t lastOrder_ = 0;
  // During a dump: what was notified.
  std::set<std::uint32_t> notifiedLinks_;
  std::set<std::pair<std::uint32_t, AddressKey>> notifiedAddresses_;
  std::set<std::pair<std::uint32_t, Vantu::IpGenAddr>> notifiedNeighbours_;
};

}  // namespace Mirror

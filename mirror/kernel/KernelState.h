#pragma once
// The links, addresses and neighbours of one network namespace, from notifications and dumps.
//
// Notifications arrive in the order of the changes. A dump's reply shows an object as it was at some moment of the
// dump. So a notification received during a dump overrides the dump's reply for the same object: the reply may be
// older, and later changes are notified too.
//
//   KernelState fresh(KernelState::Purpose::dump);     // before the request for the dump
//   ... fresh.dumped(reply) and fresh.notified(change), in the order of receipt ...
//   state = std::move(fresh).complete();               // objects without a reply do not exist
//
// Addresses and neighbours may be received before their link, and are kept for it. Deleting a link deletes them too.
// Only neighbours with a usable address are kept (NeighbourMessage::isResolved).

#include <absl/container/btree_map.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>

#include "mirror/rtnetlink/RtMessage.h"
#include "varnix/Ip.h"

namespace Mirror {

// Identifies an address of an interface: for IPv4 by address, prefix length and peer, for IPv6 by the address alone.
struct AddressKey {
  Vantu::IpGenAddr local;
  unsigned prefixLength = 0;  // IPv6: 0
  Vantu::IpGenAddr peer;      // IPv6: unset
  explicit AddressKey(const AddressMessage& message);
  friend auto operator<=>(const AddressKey&, const AddressKey&) = default;
};

struct KernelLink {
  std::string name;  // empty if another link has taken it and this link's new name is not notified yet
  std::uint32_t flags = 0;
  Interface::OperStatus operStatus = Interface::operStatusUnknown;
  Vantu::EthAddr ethAddr;
  std::uint32_t master = 0;               // ifIndex; 0: none
  std::optional<std::uint32_t> vrfTable;  // routing table of a VRF device
  LinkDetails details;
  // Whether the interface can pass packets, so that its addresses are usable.
  bool isRunning() const;
};

struct KernelAddress {
  unsigned prefixLength = 0;
  std::uint32_t flags = 0;
  std::uint64_t order = 0;  // rises with each new address of the namespace
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
  // Call it when the link is set down. The kernel then makes the IPv6 addresses that it keeps (keep_addr_on_down)
  // tentative without a notification. It notifies of each again when the link is set up.
  void markAddressesTentative();
};

class KernelState {
 public:
  using Interfaces = std::map<std::uint32_t, KernelInterface>;  // by ifIndex

  enum class Purpose { current, dump };
  explicit KernelState(Purpose purpose = Purpose::current) : purpose_(purpose) {}

  // `Message` is LinkMessage, AddressMessage or NeighbourMessage.
  template <class Message>
  void notified(const Message& message) {
    if (purpose_ == Purpose::dump) notified_.insert(idOf(message));
    apply(message);
  }
  template <class Message>
  void dumped(const Message& message) {
    if (!notified_.contains(idOf(message))) apply(message);
  }

  // Ends the dump: returns the state, which later notifications keep up to date.
  KernelState complete() &&;

  // Sets the alias of a link, of whose changes the kernel does not notify while the link is down. Returns whether it
  // changed.
  bool setAlias(std::uint32_t ifIndex, const std::string& alias);

  const Interfaces& interfaces() const { return interfaces_; }
  const KernelInterface* interface(std::uint32_t ifIndex) const;
  // The changes since the last call: links with their addresses, and single neighbours. The neighbours of a changed
  // interface may all have changed too.
  struct Changes {
    std::set<std::uint32_t> interfaces;
    std::set<std::uint32_t> names;  // of interfaces that were added, deleted or renamed
    std::set<std::pair<std::uint32_t, Vantu::IpGenAddr>> neighbours;
  };
  Changes takeChanges() { return std::exchange(changes_, {}); }

 private:
  // Identifies a link, an address or a neighbour.
  using Id =
      std::variant<std::uint32_t, std::pair<std::uint32_t, AddressKey>, std::pair<std::uint32_t, Vantu::IpGenAddr>>;
  static Id idOf(const LinkMessage& message) { return message.ifIndex; }
  static Id idOf(const AddressMessage& message) { return std::pair(message.ifIndex, AddressKey(message)); }
  static Id idOf(const NeighbourMessage& message) { return std::pair(message.ifIndex, message.addr); }

  void apply(const LinkMessage& message);
  void apply(const AddressMessage& message);
  void apply(const NeighbourMessage& message);
  void takeName(const std::string& name, std::uint32_t newOwner);

  Purpose purpose_;
  Interfaces interfaces_;
  std::map<std::string, std::uint32_t> owners_;  // ifIndex by link name
  Changes changes_;
  std::uint64_t lastOrder_ = 0;
  std::set<Id> notified_;  // during a dump
};

}  // namespace Mirror

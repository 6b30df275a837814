#pragma once
// Publishes how IPv4 and IPv6 run on the interfaces of one network namespace (Ip::IntfProtocol).
//
// CounterMirror passes the replies of two dumps: the interfaces with IPv6 in each of its readings, those that have
// changed, and the parameters of the neighbour tables in some of them (they rarely change, and the kernel walks those
// of all namespaces). The latter also show which interfaces have IPv4. A complete reading deletes the record of an
// interface that has lost IPv4 or IPv6; TreeWriter deletes the records with the interface.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>

#include "mirror/rtnetlink/RtMessage.h"
#include "varnix/Tree.h"

namespace Mirror {

class InterfaceProtocols {
 public:
  // One reading in this many dumps the neighbour tables too: once a minute. So does a reading that finds a new
  // interface with IPv6.
  static constexpr unsigned readingsPerTables = 30;

  // The id under which an interface is published; invalid if it is not published.
  using IdOf = std::function<Vantu::IntfId(std::uint32_t ifIndex)>;
  InterfaceProtocols(const Varnix::Tree& tree, IdOf idOf);

  // Begins a reading. `isFresh`: the ids may have changed since the last one, so it must write every record.
  void begin(bool isFresh);
  // Pass the messages of the dump of interfaces with IPv6 that differ from those of the last reading; of a fresh reading
  // all of them.
  void listed(const Ip6LinkMessage& link);
  // The complete dump lacks an interface that an earlier one had.
  void lost(std::uint32_t ifIndex);
  // Pass each message of the dump of neighbour tables.
  void listed(const NeighbourParametersMessage& parameters);
  // Call it at the end of the dump of interfaces with IPv6. Returns whether the caller must dump the neighbour tables
  // now.
  bool wantsTables();
  // Ends the reading and publishes it. An incomplete one deletes no record.
  void finish(bool isComplete);

 private:
  struct Timers {
    std::uint32_t retransmitTime = 0;
    std::uint32_t reachableTime = 0;
  };
  struct Interface {
    std::optional<Timers> ipv4, ipv6;
  };
  struct Link6 {
    bool isEnabled = false;
    bool forwarding = false;
    std::uint32_t reasmMaxSize = 0;
  };
  using TimersByIndex = std::map<std::uint32_t, Interface>;
  using Ids = std::set<Vantu::IntfId>;

  void write(Ip::AllIntfProtocol& all, std::uint32_t ifIndex, const Ip::IntfParameters& parameters, Ids& ids) const;
  static void sweep(Ip::AllIntfProtocol& all, Ids& published, Ids&& listed, bool isComplete);

  Kel::Ptr<Ip::AllIntfProtocol> ip4_, ip6_;
  IdOf idOf_;
  unsigned readings_ = 0;
  bool areTablesListed_ = false;  // in this reading
  bool isWriteDue_ = false;       // something other than the tables has changed since the last complete reading
  std::map<std::uint32_t, Link6> links_;  // with IPv6
  TimersByIndex timers_, newTimers_;      // of the neighbour tables: as last listed; in this reading
  Ids published4_, published6_;
};

}  // namespace Mirror

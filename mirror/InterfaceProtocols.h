#pragma once
// Publishes how IPv4 and IPv6 run on the interfaces of one network namespace (Ip::IntfProtocol).
//
// CounterMirror passes the replies of two dumps: the interfaces with IPv6 in each of its readings, those that have
// changed, and the parameters of the neighbour tables in some of them. The latter also show which interfaces have IPv4.
// They rarely change, and for each namespace's dump the kernel walks those of all namespaces. So the more namespaces
// there are, the more rarely each is asked. A complete reading deletes the record of an interface that has lost IPv4 or
// IPv6; TreeWriter deletes the records with the interface.

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
  // For each 20 namespaces, or part of them, 30 readings pass until one dumps the neighbour tables too: a minute. So
  // does the first reading, and one that finds a new interface or one that got IPv6. After an incomplete reading it is
  // tried again within 30.
  static constexpr unsigned readingsPerTables = 30;
  static constexpr std::size_t namespacesPerPeriod = 20;

  // The id under which an interface is published; invalid if it is not published.
  using IdOf = std::function<Vantu::IntfId(std::uint32_t ifIndex)>;
  // `phase` spreads the dumps of several namespaces over the readings.
  InterfaceProtocols(const Varnix::Tree& tree, IdOf idOf, unsigned phase);

  // Begins a reading. `isFresh`: the ids may have changed since the last one, so it must write every record.
  // `namespaces`: how many are read now.
  void begin(bool isFresh, std::size_t namespaces);
  // The reading finds a new interface.
  void appeared() { areTablesDue_ = true; }
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
  const unsigned phase_;
  unsigned readings_ = 0;
  bool areTablesDue_ = true;
  bool areTablesMissed_ = false;  // the last dump was in an incomplete reading
  bool areTablesListed_ = false;  // in this reading
  bool isWriteDue_ = false;       // something other than the tables has changed since the last complete reading
  std::map<std::uint32_t, Link6> links_;  // with IPv6
  TimersByIndex timers_, newTimers_;      // of the neighbour tables: as last listed; in this reading
  Ids published4_, published6_;
};

}  // namespace Mirror

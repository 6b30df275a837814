#pragma once
// Publishes the IPv6 counters of the interfaces of one network namespace, every two seconds.
//
// They are read from the files of /proc/net/dev_snmp6, one for each interface that IPv6 is on, some in each turn of
// the event loop. (rtnetlink has them too, but by numbers, whose meanings differ between kernels.) An
// interface has a record from the first reading on; who removes an interface removes its record.

#include <cstdint>
#include <functional>
#include <istream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kel/System.h"
#include "vantu/NetNs.h"
#include "varnix/Interface.h"

namespace Mirror {

// What the kernel says of one interface, by its own names, as "Ip6InReceives"; "ifIndex" among them.
using KernelCounters = std::map<std::string, std::uint64_t, std::less<>>;

// Reads a file of /proc/net/dev_snmp6; what follows a line that is none is left out.
KernelCounters readCounters(std::istream& file);

// What the kernel does not name counts as 0. Unicast is what is not multicast; as the kernel reads its numbers one
// after the other while packets pass, that may seem to fall by a few, and then stays as it was in `before`.
Ip::IntfCounters countersOf(const KernelCounters& told, const Ip::IntfCounters& before);

// Enters what the kernel said. The counters of an interface that has no record begin `now`, and those that have
// fallen begin again.
void countersAre(Ip::AllIntfStats& all, const Vantu::IntfId& id, const KernelCounters& told, Kel::Seconds now);

class CounterMirror {
 public:
  static constexpr unsigned pollsPerReading = 2;
  static constexpr unsigned interfacesPerTurn = 100;  // some 2 ms

  // The id under which an interface is published; not valid when it is not.
  using IdOf = std::function<Vantu::IntfId(std::uint32_t ifIndex)>;

  // `phase` spreads the readings of several namespaces over the polls.
  CounterMirror(std::shared_ptr<const Vantu::NetNs> ns, Kel::Ptr<Ip::AllIntfStats> all, IdOf idOf, unsigned phase);

  // Begins a reading, unless one is under way; true when it did. What goes wrong in any of this is traced once, and
  // tried again with the next reading; no record goes meanwhile, but those of a mirror before this one.
  bool begin();
  // To be called once a second; true when a reading begins. The first one does with begin(), when the interfaces are
  // known.
  bool poll();
  // Takes in a part of a reading; true when there is more of it.
  bool receive();
  // The first reading is over, or could not be made.
  bool hasRead() const { return hasBegun_ && !isReading_; }

 private:
  void list();
  void read(const std::string& interface);
  void failed(const std::string& why);

  std::shared_ptr<const Vantu::NetNs> ns_;
  Kel::Ptr<Ip::AllIntfStats> all_;
  IdOf idOf_;
  unsigned polls_;
  bool hasBegun_ = false;
  bool isReading_ = false;
  bool isIncomplete_ = false;         // this reading
  bool isFailureTold_ = false;        // since the last complete one
  std::vector<std::string> waiting_;  // names of interfaces
  std::set<Vantu::IntfId> seen_;      // in this reading
  std::set<Vantu::IntfId> present_;   // in the last one
};

}  // namespace Mirror

#pragma once
// Publishes the counters of the interfaces of one network namespace every two seconds, and their speed and duplex mode
// every ten, or two after their operational state has changed; and how IPv4 and IPv6 run on them (InterfaceProtocols.h).
//
// A reading first dumps the counters of all links by rtnetlink, which are those of Interface::LinkCounters. A link gets
// its record as soon as it is published. Speed and duplex mode are those of ETHTOOL_GLINKSETTINGS (ethtool(8)).
//
// Every ten seconds it also lists the links if one of them is down: the kernel does not notify of an alias that is set
// then.
//
// A reading then lists the interfaces with IPv6. Where the counters in the reply differ from those of the last
// reading, it reads the interface's file in /proc/net/dev_snmp6, a limited number in each turn of the event loop. (The
// counters of rtnetlink have numbers instead of names, with meanings that differ between kernels.) An interface has a
// record of IPv6 from its first reading on. TreeWriter deletes all records with the interface; a complete reading deletes
// that of IPv6 when the interface is not listed any more, since it lost IPv6.

#include <cstdint>
#include <functional>
#include <istream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kel/System.h"
#include "mirror/InterfaceProtocols.h"
#include "mirror/rtnetlink/RtMessage.h"
#include "mirror/rtnetlink/RtSocket.h"
#include "vantu/NetNs.h"
#include "varnix/Tree.h"

namespace Mirror {

// The counters of one interface by the kernel's names, such as "Ip6InReceives". The kernel includes "ifIndex".
using KernelCounters = std::map<std::string, std::uint64_t, std::less<>>;

// Reads a file of /proc/net/dev_snmp6, up to the first malformed line.
KernelCounters readCounters(std::istream& file);

// Converts the kernel's counters; a missing one counts as 0. Unicast is the total less multicast. The kernel reads the
// two at different moments, so the difference may fall a little; the result then has the value of `before`.
Ip::IntfCounters countersOf(const KernelCounters& kernel, const Ip::IntfCounters& before);
// The other ones; a missing one is not counted.
Ip::IntfDatagrams datagramsOf(const KernelCounters& kernel);

// Writes the record of interface `id`. Without a record before, or if a counter has fallen, the discontinuity time
// becomes `now`.
void setCounters(Ip::AllIntfStats& all, const Vantu::IntfId& id, const KernelCounters& kernel, Kel::Seconds now);

class CounterMirror {
 public:
  static constexpr unsigned pollsPerReading = 2;  // seconds, at one poll a second
  static constexpr unsigned readingsPerSettings = 5;
  static constexpr unsigned interfacesPerTurn = 100;  // some 2 ms

  // The id under which an interface is published; invalid if it is not published.
  using IdOf = std::function<Vantu::IntfId(std::uint32_t ifIndex)>;

  // Is told the alias of each link.
  using SetAlias = std::function<void(std::uint32_t ifIndex, const std::string& alias)>;

  // `phase` spreads the readings of several namespaces over the polls.
  CounterMirror(std::shared_ptr<const Vantu::NetNs> ns, const Varnix::Tree& tree, IdOf idOf, SetAlias setAlias,
                unsigned phase);

  // Begins a reading unless one is under way; returns whether it did. Failures are traced once and retried with the
  // next reading. An incomplete reading deletes no record.
  bool begin();
  // Call it once a second. Returns whether a reading began. The first reading needs begin(), when the interfaces are
  // known.
  bool poll();
  // Does the next part of the reading; returns whether more is left.
  bool receive();
  // Whether the first reading has ended or failed to begin.
  bool hasRead() const { return hasBegun_ && !isReading_; }

 private:
  using Counters = std::map<Vantu::IntfId, std::string>;  // Ip6LinkMessage::counters
  using States = std::map<Vantu::IntfId, Interface::OperStatus>;

  void ask(RtDump what);
  bool areSettingsDue() const { return readings_ % readingsPerSettings == 0; }
  void list();
  void take(const nlmsghdr& message);
  void ended(int status);
  void counted(const LinkCountersMessage& link);
  void readSettings(Interface::IntfStatus& status) const;
  void listed(Ip6LinkMessage link);
  void read(const Ip6LinkMessage& link);
  void failed(const std::string& why);
  void finish();

  std::shared_ptr<const Vantu::NetNs> ns_;
  Kel::Ptr<Interface::AllIntfStatusDir> statuses_;
  Kel::Ptr<Interface::AllIntfCounters> linkCounters_;
  Kel::Ptr<Ip::AllIntfStats> all_;
  IdOf idOf_;
  SetAlias setAlias_;
  InterfaceProtocols protocols_;
  unsigned polls_;
  std::unique_ptr<RtSocket> socket_;  // opened by the first reading, and after a failure
  std::uint32_t sequence_ = 0;        // of the dump
  RtDump dump_ = RtDump::linkCounters;
  unsigned readings_ = 0;
  bool isAnyDown_ = false;  // of the links, in this reading
  States knownStates_;      // when the speed was read last
  States states_;           // in this reading
  bool hasBegun_ = false;
  bool isReading_ = false;
  bool isListing_ = false;               // the first part of a reading: the dumps
  bool isIncomplete_ = false;            // this reading
  bool isFailureTold_ = false;           // since the last complete reading
  std::vector<Ip6LinkMessage> waiting_;  // interfaces whose files are to be read
  Counters seen_;                        // in this reading
  Counters present_;                     // in the last reading
};

}  // namespace Mirror

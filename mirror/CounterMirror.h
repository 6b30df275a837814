#pragma once
// Reads what the kernel does not notify of the interfaces of one network namespace, every two seconds: their counters,
// speed and duplex mode, and how IPv4 and IPv6 run on them (InterfaceProtocols.h).
//
// The steps of a reading:
// - It dumps the counters of all links by rtnetlink (Interface::LinkCounters). Every fifth reading, and for an
//   interface that is new or whose operational state has changed, it also reads speed and duplex mode
//   (ETHTOOL_GLINKSETTINGS, ethtool(8)).
// - Every fifth reading, if a link is down, it dumps the links for their aliases: the kernel does not notify of the
//   alias of a link that is down.
// - It dumps the interfaces with IPv6. Where the message differs from that of the last reading, it reads the interface's
//   file in /proc/net/dev_snmp6, a limited number in each turn of the event loop. (The counters in the message have
//   numbers instead of names, and their meanings differ between kernels.)
//
// A message that repeats that of the last reading is not decoded, unless the published interfaces have changed.
//
// TreeWriter deletes all records with the interface. A complete reading deletes the IPv6 counters of an interface that
// is not in the dump any more, since it has lost IPv6.

#include <cstdint>
#include <functional>
#include <istream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
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

// Reads a file of /proc/net/dev_snmp6, up to the first malformed line, without the counters of ICMPv6.
KernelCounters readCounters(std::istream& file);

// Converts the kernel's counters of packets and octets; a missing one counts as 0. Unicast is the total minus
// multicast. The kernel reads the two at different moments, so the difference may decrease a little; the result then
// has the value of `before`.
Ip::IntfCounters countersOf(const KernelCounters& kernel, const Ip::IntfCounters& before);
// Converts the kernel's counters of datagrams; a missing one is IntfDatagrams::notCounted.
Ip::IntfDatagrams datagramsOf(const KernelCounters& kernel);

// Writes the record of interface `id`. The discontinuity time becomes `now` (Kel::System::currentTime()) if there was
// no record, or a counter has decreased.
void setCounters(Ip::AllIntfStats& all, const Vantu::IntfId& id, const KernelCounters& kernel, Kel::Seconds now);

class CounterMirror {
 public:
  static constexpr unsigned pollsPerReading = 2;      // seconds, at one poll a second
  static constexpr unsigned readingsPerSettings = 5;  // for speed, duplex mode and aliases
  static constexpr unsigned interfacesPerTurn = 100;  // files read in one call of receive(): some 2 ms

  // The id under which an interface is published; invalid if it is not published.
  using IdOf = std::function<Vantu::IntfId(std::uint32_t ifIndex)>;

  // Changes whenever the result of IdOf or a published interface may have changed.
  using Version = std::function<std::uint64_t()>;

  // Receives the alias of each link of a dump, empty or not.
  using SetAlias = std::function<void(std::uint32_t ifIndex, const std::string& alias)>;

  // `phase` spreads the readings of several namespaces over the polls.
  CounterMirror(std::shared_ptr<const Vantu::NetNs> ns, const Varnix::Tree& tree, IdOf idOf, Version version,
                SetAlias setAlias, unsigned phase);

  // Begins a reading unless one is under way; returns whether it did. Failures are traced once and retried by the next
  // reading. An incomplete reading deletes no record.
  // `namespaces`: how many are read like this one.
  bool begin(std::size_t namespaces);
  // Call it once a second. Returns whether a reading began. The first reading needs begin(), when the interfaces are
  // known.
  bool poll(std::size_t namespaces);
  // Does the next part of the reading; returns whether more is left.
  bool receive();
  // Whether the first reading has ended or failed to begin.
  bool hasRead() const { return hasBegun_ && !isReading_; }

 private:
  // The interfaces of a dump that is repeated, each with what is remembered of it.
  template <class Known>
  class Dumped {
   public:
    void begin();
    // The entry of an interface in the present dump.
    Known& listed(std::uint32_t ifIndex);
    // Null for an interface that is not known.
    Known* find(std::uint32_t ifIndex);
    // Removes the interfaces that the present dump lacks, after a call of `use(ifIndex, known)` for each.
    template <class Use>
    void removeOthers(const Use& use);

   private:
    struct Entry {
      Known known;
      unsigned dump = 0;  // the last one that listed it
    };
    std::unordered_map<std::uint32_t, Entry> entries_;
    std::size_t listed_ = 0;
    unsigned dump_ = 0;
  };
  struct KnownLink {
    std::optional<std::uint64_t> hash;                // InterfaceDigest, of the message that was processed last
    std::optional<Interface::OperStatus> operStatus;  // when the speed was read last
  };
  struct KnownLink6 {
    std::optional<std::uint64_t> hash;  // InterfaceDigest, when the file was read last
    Vantu::IntfId id;                   // of the record
  };
  struct File {
    std::uint32_t ifIndex;
    std::string name;
    std::uint64_t hash;
  };

  void ask(RtDump what);
  bool areSettingsDue() const { return readings_ % readingsPerSettings == 0; }
  void list();
  void take(const nlmsghdr& message);
  void ended(int status);
  void counted(const nlmsghdr& message, const InterfaceDigest& digest);
  void readSettings(Interface::IntfStatus& status);
  void listed(const nlmsghdr& message, const InterfaceDigest& digest);
  void read(const File& file);
  void failed(const std::string& why);
  void finish();

  std::shared_ptr<const Vantu::NetNs> ns_;
  Kel::Ptr<Interface::AllIntfStatusDir> statuses_;
  Kel::Ptr<Interface::AllIntfCounters> linkCounters_;
  Kel::Ptr<Ip::AllIntfStats> all_;
  IdOf idOf_;
  Version version_;
  SetAlias setAlias_;
  InterfaceProtocols protocols_;
  unsigned polls_;
  std::unique_ptr<RtSocket> socket_;  // opened by the first reading, and after a failure
  std::uint32_t sequence_ = 0;        // of the latest dump
  RtDump dump_ = RtDump::linkCounters;
  unsigned readings_ = 0;
  bool isAnyDown_ = false;  // of the links, in this reading
  int linkModeWords_ = 0;   // in a mask of the kernel's; 0: not known yet
  Dumped<KnownLink> links_;
  Dumped<KnownLink6> links6_;
  std::uint64_t versionAtBegin_ = 0;          // of this reading
  std::optional<std::uint64_t> versionRead_;  // at the beginning of the last reading, if that was complete
  bool isFresh_ = true;                       // this reading must decode every message
  bool hasBegun_ = false;
  bool isReading_ = false;
  bool isListing_ = false;      // the first part of a reading: the dumps
  bool isIncomplete_ = false;   // this reading
  bool isFailureTold_ = false;  // since the last complete reading
  std::vector<File> waiting_;   // to be read
};

}  // namespace Mirror

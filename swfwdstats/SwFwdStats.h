#pragma once
// The software-forwarding statistics of one VRF and IP version: the kernel's IP counters of the VRF's network
// namespace, read on request.
//
// Each counter accessor first refreshes a snapshot that is older than half a second, so a request for many columns
// reads the files once:
//
// | file                 | for  | environment variable that names another file |
// |----------------------|------|-----------------------------------------------|
// | `/proc/net/snmp`     | IPv4 | `PROC_NET_SNMP`                               |
// | `/proc/net/netstat`  | IPv4 | `PROC_NET_NETSTAT`                            |
// | `/proc/net/snmp6`    | IPv6 | `PROC_NET_SNMP6`                              |
//
// The thread enters the namespace "ns-<VRF>" to read the files, and is back in the default one afterwards, even if the
// read fails. If it cannot return, the process aborts. The environment variables are read once in a process.
// A failed read is traced (facility "IpSwFwdStats") and leaves the snapshot unchanged: the last good values, or zeros.
// A namespace that cannot be entered is traced once for the same reason, until it has been entered again.
//
// A VRF without a network namespace (hasNamespaceIs) is a VRF device: the kernel counts its packets with the default
// VRF's. Nothing is read for it, and all its counters are 0.
//
// `/proc/net/snmp` names the counters in a header line. The reader requires a header line of the known length (224
// characters with the line end). With the setting `quorinKernelIpHeader any` (Snmp::Config) it also accepts one of
// another length that begins with the known names.

#include "kel/Entity.h"
#include "kel/System.h"
#include "swfwdstats/Counter.h"
#include "varnix/Values.h"

namespace Ip {

class SwFwdStats : public Kel::Notifier {
  KEL_TYPE_BEGIN("Ip::SwFwdStats", SwFwdStats, Kel::Notifier)
 public:
  // `name` is the VRF's. Throws Kel::RangeException if it is too long for a VRF.
  KEL_CONSTRUCTOR(SwFwdStats, ((Ip::IpVersion, ipVersion))((Kel::Name, name)))

 public:
  // The current snapshot, and when it was read (framework clock; 0: never).
  const SwFwdStatsData& data() const { return data_; }
  const Kel::Seconds& lastUpdate() const { return lastUpdate_; }

  // The counters, refreshed.
#define SW_FWD_STATS_ACCESSOR(field) \
  std::uint64_t field() const {      \
    doFreshen();                     \
    return data_.field;              \
  }
  SW_FWD_STATS_FIELDS(SW_FWD_STATS_ACCESSOR)
#undef SW_FWD_STATS_ACCESSOR

  // The same, derived from others; modulo 2^64.
  std::uint64_t inForwDatagrams() const;
  std::uint64_t fragReqds() const;
  std::uint64_t outTransmits() const;

  // ---- for ipSystemStatsTable (RFC 4293), which has no instance of a counter that the kernel does not have

  // Refreshes the snapshot. Returns whether there are counters: not for a VRF device, nor before the first good read.
  bool isCounted() const;
  // Further counters of the snapshot, which this does not refresh.
  const SwFwdStatsMore& more() const {
    return more_;
  }
  // The kernel's own count if it has one, otherwise outTransmits(). None if that derivation would be negative: the
  // kernel counts some packets as without a route that it does not count as requests.
  std::optional<std::uint64_t> transmitted() const;
  // When the counters were last seen to decrease, such as after the namespace was created again (framework clock; 0:
  // never).
  Kel::Seconds discontinuityTime() const {
    return discontinuityTime_;
  }

  KEL_COMPUTED(data)
  KEL_COMPUTED(lastUpdate)
  KEL_COMPUTED(inForwDatagrams)
  KEL_COMPUTED(fragReqds)
  KEL_COMPUTED(outTransmits)
  KEL_TYPE_END_DECLARE

 public:
  // doFreshen() reads if the snapshot is older than this many seconds.
  static constexpr Kel::Seconds freshness = 0.5;
  void doFreshen() const;
  // Reads now. Does not throw: a failure is traced.
  void doRead() const;
  // Enters the network namespace of a VRF. Throws Kel::Exception when it cannot be entered.
  void setNs(const Kel::Name& vrfName) const;
  // Sets whether the VRF has a network namespace; initially true.
  void hasNamespaceIs(bool hasNamespace);
  bool hasNamespace() const {
    return hasNamespace_;
  }

 private:
  bool read(SwFwdStatsData& data, SwFwdStatsMore& more) const;

  const L3::VrfName vrf_{name()};
  bool hasNamespace_ = true;
  mutable SwFwdStatsData data_;
  mutable SwFwdStatsMore more_;
  mutable Kel::Seconds lastUpdate_ = 0;
  mutable Kel::Seconds discontinuityTime_ = 0;
  mutable Kel::String refusal_;  // why the namespace could not be entered last time; empty: it was entered
};

Kel::Ptr<SwFwdStats> swFwdStatsFactory(Ip::IpVersion ipVersion, Kel::Name vrfName);

// Returns one line for the operator if the running kernel's header line is not of the required length and
// quorinKernelIpHeader any would help. Empty if that setting is in effect or makes no difference.
Kel::String kernelIpHeaderAdvice();

// A container of software-forwarding statistics by IP version, for users without a MIB cache.
class FwdStatsBogon : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::FwdStatsBogon", FwdStatsBogon, Kel::Entity)
 public:
  KEL_NAMED(FwdStatsBogon, Kel::Entity)
  KEL_MEMBERS(Hashed, Ip::IpVersion, Ip::SwFwdStats, bogon, Bogon)
  KEL_TYPE_END_DECLARE

 public:
  // Notifies the reactors of a key, like every change of the collection.
  void bogonNotify(Ip::IpVersion ipVersion) { KEL_NOTIFY_KEY(Bogon, ipVersion); }
};

}  // namespace Ip

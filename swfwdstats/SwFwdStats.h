#pragma once
// The software-forwarding statistics of one VRF and IP version: the kernel's IP counters of the VRF's network
// namespace, read on request.
//
// Each counter accessor first makes sure that the snapshot is at most half a second old, so a request for many
// columns costs one reading. A reading goes to
//
// | file                 | for  | environment variable that names another file |
// |----------------------|------|-----------------------------------------------|
// | `/proc/net/snmp`     | IPv4 | `PROC_NET_SNMP`                               |
// | `/proc/net/netstat`  | IPv4 | `PROC_NET_NETSTAT`                            |
// | `/proc/net/snmp6`    | IPv6 | `PROC_NET_SNMP6`                              |
//
// inside the namespace "ns-<VRF>". The thread is back in "default" afterwards, also when the reading fails. A variable
// is looked up once a process. What cannot be read is traced (facility "IpSwFwdStats"), and leaves the snapshot as it
// was: the last good values, or zeros. A namespace that cannot be entered is traced once, until it was entered again.
//
// A VRF without a namespace of its own (hasNamespaceIs) is a VRF device: the kernel counts its packets in the default
// VRF's files, and cannot tell them apart. Nothing is read for it, and all its counters are 0.
//
// The IPv4 files have values without names beside them, so the reader insists on a header line of the length that it
// knows (224 characters with the line end). The setting quorinKernelIpHeader any (Snmp::Config) has it take a longer
// one that begins with the names that it knows.

#include "kel/Entity.h"
#include "kel/System.h"
#include "swfwdstats/Counter.h"
#include "varnix/Values.h"

namespace Ip {

class SwFwdStats : public Kel::Notifier {
  KEL_TYPE_BEGIN("Ip::SwFwdStats", SwFwdStats, Kel::Notifier)
 public:
  // `name` is the VRF's. Throws Kel::RangeException when it is longer than a VRF's name can be.
  KEL_CONSTRUCTOR(SwFwdStats, ((Ip::IpVersion, ipVersion))((Kel::Name, name)))

 public:
  // The snapshot as it stands, and when it was read (0: never).
  const SwFwdStatsData& data() const { return data_; }
  const Kel::Seconds& lastUpdate() const { return lastUpdate_; }

  // Fresh counters.
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

  KEL_COMPUTED(data)
  KEL_COMPUTED(lastUpdate)
  KEL_COMPUTED(inForwDatagrams)
  KEL_COMPUTED(fragReqds)
  KEL_COMPUTED(outTransmits)
  KEL_TYPE_END_DECLARE

 public:
  // Reads when the snapshot is older than this many seconds.
  static constexpr Kel::Seconds freshness = 0.5;
  void doFreshen() const;
  void doRead() const;
  // Enters the network namespace of a VRF. Throws Kel::Exception when it cannot be entered.
  void setNs(const Kel::Name& vrfName) const;
  // Whether the VRF has a network namespace of its own, as it has unless this says otherwise.
  void hasNamespaceIs(bool hasNamespace);
  bool hasNamespace() const {
    return hasNamespace_;
  }

 private:
  bool read(SwFwdStatsData& data) const;

  const L3::VrfName vrf_{name()};
  bool hasNamespace_ = true;
  mutable SwFwdStatsData data_;
  mutable Kel::Seconds lastUpdate_ = 0;
  mutable Kel::String refusal_;  // why the namespace could not be entered last time; empty: it could
};

Kel::Ptr<SwFwdStats> swFwdStatsFactory(Ip::IpVersion ipVersion, Kel::Name vrfName);

// For the operator, one line: the running kernel's header line is not of the length that the reader insists on, and
// quorinKernelIpHeader any would help. Empty when that setting is in effect or makes no difference.
Kel::String kernelIpHeaderAdvice();

// A container of software-forwarding statistics by IP version, for users without a MIB cache.
class FwdStatsBogon : public Kel::Entity {
  KEL_TYPE_BEGIN("Ip::FwdStatsBogon", FwdStatsBogon, Kel::Entity)
 public:
  KEL_NAMED(FwdStatsBogon, Kel::Entity)
  KEL_MEMBERS(Hashed, Ip::IpVersion, Ip::SwFwdStats, bogon, Bogon)
  KEL_TYPE_END_DECLARE

 public:
  // Tells the observers of a key, as every change of the collection does.
  void bogonNotify(Ip::IpVersion ipVersion) { KEL_NOTIFY_KEY(Bogon, ipVersion); }
};

}  // namespace Ip

#pragma once
// Keeps vrfIfTable: one row for each interface of a VRF other than "default", by ifIndex, with the VRF's name.
//
// An interface has a row while it has a status record with an ifIndex and its IPv4 or its IPv6 configuration claims
// it for such a VRF, the IPv4 one deciding when they differ. The row moves with the ifIndex. Should two interfaces
// have the same ifIndex, the row is that of the lower interface id.
//
// Whoever removes a VRF removes its rows (VrfRootSm). Those of interfaces that still name the VRF come back when it
// does, which is when it has a row in vrfTable again.
//
// Stopping or destroying the machine removes its rows.

#include <absl/container/btree_set.h>

#include <map>
#include <optional>
#include <vector>

#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/vrf/VrfIfReactors.h"

namespace IpSnmp {

class VrfIfTableSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::VrfIfTableSm", VrfIfTableSm, Kel::Entity)
 public:
  using KelIpIntfConfig = VrfIfReactors::KelIpIntfConfig;
  using KelIp6IntfConfig = VrfIfReactors::KelIp6IntfConfig;

  // None may be null.
  KEL_CONSTRUCTOR(VrfIfTableSm,
                  ((Kel::Ptr<IpVrfMib>, ipVrfMib))((Kel::Ptr<const Interface::AllIntfStatusDir>, intfStatusDir))(
                      (Kel::Ptr<const Ip::Config>, config))((Kel::Ptr<const Ip6::Config>, config6)))
  // One reactor an interface configuration, made and removed as those come and go.
  KEL_MEMBERS(Hashed, Vantu::IntfId, KelIpIntfConfig, ipIntfConfig, IpIntfConfig)
  KEL_MEMBERS(Hashed, Vantu::IntfId, KelIp6IntfConfig, ip6IntfConfig, Ip6IntfConfig)
  KEL_TYPE_END_DECLARE

 public:
  ~VrfIfTableSm() override;
  void kelStart() override;
  void kelStop() override;

  // Makes or refreshes the interface's row; "default" removes it.
  void addToVrfIfTable(const Kel::Name& vrfName, const Kel::Ptr<const Interface::IntfStatus>& intfStatus);
  // Removes the row of an interface.
  void delFromVrfIfTable(std::uint32_t ifIndex);
  // The interface's status record came or went: its reactors get it.
  void handleIntfStatus(const Vantu::IntfId& intfId);
  // What the reactors of the interface say may have changed.
  void handleIntf(const Vantu::IntfId& intfId);

 private:
  struct Claim {
    std::uint32_t ifIndex = 0;
    L3::VrfName vrf;
    Kel::Ptr<const Interface::IntfStatus> intfStatus;
    friend bool operator==(const Claim&, const Claim&) = default;
  };

  std::optional<Claim> claimOf(const Vantu::IntfId& intfId) const;
  void settle(std::uint32_t ifIndex);
  void handleVrf(const L3::VrfName& vrfName);
  void stop();

  struct KelConfig;
  struct KelConfig6;
  struct KelIpVrfMib;
  // Those of the collections; none: stopped.
  std::vector<Kel::Ptr<Kel::NotifieeBase>> reactors_;
  std::map<Vantu::IntfId, Claim> claims_;
  absl::btree_set<std::pair<std::uint32_t, Vantu::IntfId>> claimsByIfIndex_;
};

}  // namespace IpSnmp

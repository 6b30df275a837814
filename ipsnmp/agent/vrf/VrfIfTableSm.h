#pragma once
// Keeps vrfIfTable: one row for each interface of a VRF other than "default", by ifIndex, with the VRF's name.
//
// An interface has a row while it has a status record with an ifIndex, and its configuration puts it into such a VRF.
// If the IPv4 and the IPv6 configuration name two such VRFs, IPv4 decides. The row moves with the ifIndex. If two
// interfaces have the same ifIndex, the lower interface id gets the row.
//
// VrfRootSm removes a VRF's rows with the VRF. When the VRF has a row in vrfTable again, this machine adds the rows of
// the interfaces that still name it.
//
// Lifetime: stopping or destroying the machine removes its rows.

#include <absl/container/btree_set.h>

#include <map>
#include <optional>
#include <vector>

#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/address/Reactors.h"
#include "varnix/Ip.h"
#include "varnix/L3.h"

namespace IpSnmp {

class VrfIfTableSm;

namespace VrfIfReactors {

// Watches one configuration record of an interface, the layer-3 record that it refers to, and the interface's status
// record. It belongs to a collection of the state machine, and must not outlive it.
template <class Record>
class IntfReactor : public Record::Notifiee {
 public:
  IntfReactor(VrfIfTableSm* owner, Kel::Ptr<const Record> record) : owner_(owner), record_(std::move(record)) {}
  static const Vantu::IntfId& kelKeyOf(const VrfIfTableSm*, const Kel::Ptr<const Record>& record) {
    return record->intfId();
  }

  // Null without a status record.
  Kel::Ptr<const Interface::IntfStatus> intfStatus() const { return intfStatusWatch_->notifier(); }
  void intfStatusIs(const Kel::Ptr<const Interface::IntfStatus>& status);
  // The VRF by this configuration; without a layer-3 record, the default VRF.
  L3::VrfName vrf() const;

  // The collection calls these when it adds and removes the reactor.
  void kelStart();
  void kelStop();

  void handleL3Config() override;
  void handleDel() override { kelStop(); }

 private:
  struct KelL3Config : OwnedReactor<IntfReactor, L3::Intf::Config> {
    using OwnedReactor<IntfReactor, L3::Intf::Config>::OwnedReactor;
    void handleVrf() override { this->owner_->changed(); }
  };

  void changed();

  VrfIfTableSm* const owner_;
  const Kel::Ptr<const Record> record_;
  const Kel::Ptr<KelL3Config> l3Watch_ = Kel::makePtr<KelL3Config>(this);
  const Kel::Ptr<IfIndexWatch> intfStatusWatch_ = Kel::makePtr<IfIndexWatch>([this] { changed(); });
};

}  // namespace VrfIfReactors

class VrfIfTableSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::VrfIfTableSm", VrfIfTableSm, Kel::Entity)
 public:
  using KelIpIntfConfig = VrfIfReactors::IntfReactor<Ip::IpIntfConfig>;
  using KelIp6IntfConfig = VrfIfReactors::IntfReactor<Ip6::IntfConfig>;

  // Requires: no handle is null.
  // clang-format off
  KEL_CONSTRUCTOR(VrfIfTableSm,
    ((Kel::Ptr<IpVrfMib>, ipVrfMib))
    ((Kel::Ptr<const Interface::AllIntfStatusDir>, intfStatusDir))
    ((Kel::Ptr<const Ip::Config>, config))
    ((Kel::Ptr<const Ip6::Config>, config6)))
  // clang-format on
  // One reactor for each interface configuration that exists.
  KEL_MEMBERS(Hashed, Vantu::IntfId, KelIpIntfConfig, ipIntfConfig, IpIntfConfig)
  KEL_MEMBERS(Hashed, Vantu::IntfId, KelIp6IntfConfig, ip6IntfConfig, Ip6IntfConfig)
  KEL_TYPE_END_DECLARE

 public:
  ~VrfIfTableSm() override;
  void kelStart() override;
  void kelStop() override;

  // Adds or refreshes the interface's row; "default" removes it.
  void addToVrfIfTable(const Kel::Name& vrfName, const Kel::Ptr<const Interface::IntfStatus>& intfStatus);
  // Removes the row of an interface.
  void delFromVrfIfTable(std::uint32_t ifIndex);
  // The interface's status record was created or deleted: passes it to the interface's reactors.
  void handleIntfStatus(const Vantu::IntfId& intfId);
  // Call it when the interface's configuration, VRF or ifIndex may have changed.
  void handleIntf(const Vantu::IntfId& intfId);

 private:
  // The row that an interface claims.
  struct Claim {
    std::uint32_t ifIndex = 0;
    L3::VrfName vrf;
    Kel::Ptr<const Interface::IntfStatus> intfStatus;
    friend bool operator==(const Claim&, const Claim&) = default;
  };

  std::optional<Claim> claimOf(const Vantu::IntfId& intfId) const;
  // Gives the row of the ifIndex to the interface with the lowest id that claims it; removes the row without a claim.
  void settle(std::uint32_t ifIndex);
  void handleVrf(const L3::VrfName& vrfName);

  struct KelConfig;
  struct KelConfig6;
  struct KelIpVrfMib;
  std::vector<Kel::Ptr<Kel::NotifieeBase>> reactors_;  // empty: stopped
  std::map<Vantu::IntfId, Claim> claims_;
  absl::btree_set<std::pair<std::uint32_t, Vantu::IntfId>> claimsByIfIndex_;
};

}  // namespace IpSnmp

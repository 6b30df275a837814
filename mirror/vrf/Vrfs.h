#pragma once
// The VRFs that exist, and the interfaces that belong to them.

#include <map>
#include <optional>
#include <set>

#include "mirror/kernel/ForwardingFlags.h"
#include "mirror/kernel/KernelState.h"
#include "mirror/vrf/VrfIds.h"
#include "mirror/vrf/VrfSettings.h"
#include "vantu/IpAddr.h"

namespace Mirror {

// The VRFs, and their records in the state database.
//
// | entity                                    | holds                                             |
// |-------------------------------------------|---------------------------------------------------|
// | Ip::VrfConfig                             | the route distinguisher                           |
// | Ip::VrfStatusGlobal, Ip::VrfStatusLocal   | active; the latter: whether it is a namespace     |
// | Routing::Config, Routing6::Config         | the forwarding flag, defaults of packets, facts   |
// |                                           | of static routes                                  |
// | Routing::VrfInfo, for each IP version     | the kernel's routing table                        |
// | Vrf::VrfIdMap::NameToIdMapWrapper         | the VRF's id (VrfIds)                             |
//
// A VRF is a network namespace or a VRF device of the default namespace. If both have the same name, the namespace is
// the VRF. The default VRF always exists; its only records are its routing configuration and its id.
class Vrfs {
 public:
  // The routing table that the kernel calls "main" (RT_TABLE_MAIN).
  static constexpr std::uint32_t mainTable = 254;
  // Why a VRF is refused without a free id; for the log.
  static constexpr const char* noIdLeft = "all VRF ids are taken; remove other VRFs";

  // Owns the entities of `tree` that the table names.
  explicit Vrfs(const Varnix::Tree& tree);

  VrfIds& ids() { return ids_; }

  // Makes a namespace the VRF `name`, in place of a device of that name. Writes no records yet. Without a free id it
  // traces a line and returns none.
  std::optional<Vrf::VrfIdMap::VrfId> namespaceIs(const L3::VrfName& name);
  void namespaceDel(const L3::VrfName& name);

  // Makes a VRF device of the default namespace the VRF `name`. If it cannot be one, returns none, and traces a line
  // the first time.
  std::optional<Vrf::VrfIdMap::VrfId> addDevice(const L3::VrfName& name, std::uint32_t table);
  void deviceDel(const L3::VrfName& name);

  // Changes whenever a device may have become servable as a VRF, or stopped being so.
  std::uint64_t version() const { return version_; }

  // Writes the records of a VRF that namespaceIs() or addDevice() added.
  void writeRecords(const L3::VrfName& name, std::uint32_t table);
  // Publishes the forwarding flag of a VRF; that of the default VRF also for all VRF devices, which have none of their
  // own. No-op for a VRF without records.
  void setForwarding(const L3::VrfName& name, Vantu::Af af, bool forwarding);

  // Publishes the defaults of packets of a VRF, as setForwarding().
  void setDefaults(const L3::VrfName& name, const IpDefaults& defaults);

  // Publishes the default routers of a VRF. No-op for a VRF without records.
  void setDefaultRouters(const Vrf::VrfIdMap::VrfId& vrfId,
                         const std::map<Routing::DefaultRouterKey, Routing::DefaultRouterFacts>& routers);

  // Replaces the operator's settings of all VRFs, and publishes the changes.
  void setSettings(AllVrfSettings settings);

 private:
  enum class Kind { ns, device };

  void recordsDel(const L3::VrfName& name);
  void applySettings(const L3::VrfName& name);
  Kel::Ptr<Routing::Config> routing(const L3::VrfName& name);
  Kel::Ptr<Routing6::Config> routing6(const L3::VrfName& name);
  std::nullopt_t refuse(const L3::VrfName& name, const std::string& why);

  Varnix::Tree tree_;
  VrfIds ids_;
  AllVrfSettings settings_;
  std::map<L3::VrfName, Kind> kinds_;
  std::set<L3::VrfName> refused_;  // and traced
  std::uint64_t version_ = 0;
};

// The VRF devices of the default namespace (kernel type "vrf") and their member interfaces: the device itself, and
// those that have it as their master.
//
// If a device is not served as a VRF (Vrfs::addDevice), its interfaces are in no VRF. The default VRF does not get
// them, since the kernel does not use its routes for them.
class VrfDevices {
 public:
  explicit VrfDevices(Vrfs& vrfs) : vrfs_(vrfs) {}

  // Reads the devices among the changed interfaces. Call it before these are written. Returns whether the VRF of other
  // interfaces may have changed too.
  bool sync(const KernelState& state, const std::set<std::uint32_t>& ifIndexes);

  struct Membership {
    L3::VrfName vrf;
    Vrf::VrfIdMap::VrfId vrfId{0};
    friend bool operator==(const Membership&, const Membership&) = default;
  };
  // An interface outside all devices belongs to the default VRF. None if it belongs to no VRF.
  std::optional<Membership> membership(std::uint32_t ifIndex, const KernelLink& link) const;

  // None unless the device exists and is served as a VRF.
  std::optional<Vrf::VrfIdMap::VrfId> vrfId(std::uint32_t device) const;

 private:
  struct Device {
    std::string name;
    std::uint32_t table = 0;
    std::optional<Vrf::VrfIdMap::VrfId> vrfId = std::nullopt;  // none: not served as a VRF
    bool isSame(const Device& other) const { return name == other.name && table == other.table; }
  };
  static std::optional<Device> deviceOf(const KernelState& state, std::uint32_t ifIndex);

  Vrfs& vrfs_;
  std::uint64_t version_ = 0;
  std::map<std::uint32_t, Device> devices_;  // by ifIndex
};

}  // namespace Mirror

#pragma once
// Which VRFs there are, and which interfaces belong to them.

#include <map>
#include <optional>
#include <set>

#include "mirror/kernel/KernelState.h"
#include "mirror/vrf/VrfIds.h"
#include "mirror/vrf/VrfSettings.h"
#include "vantu/IpAddr.h"

namespace Mirror {

// The VRFs that there are, and their records in the state database.
//
// | entity                                    | holds                                             |
// |-------------------------------------------|---------------------------------------------------|
// | Ip::VrfConfig                             | the route distinguisher                           |
// | Ip::VrfStatusGlobal, Ip::VrfStatusLocal   | active; the latter whether it is a namespace      |
// | Routing::Config, Routing6::Config         | the forwarding flag, facts of static routes       |
// | Routing::VrfInfo, for each IP version     | the kernel's routing table                        |
// | Vrf::VrfIdMap::NameToIdMapWrapper         | the VRF's id (VrfIds)                             |
//
// A VRF is a network namespace or a VRF device of the default namespace. Where both have the same name, the
// namespace is the VRF, and the device is none. The default VRF is always there and has no records but its routing
// configuration and its id.
class Vrfs {
 public:
  // The routing table that the kernel calls "main" (RT_TABLE_MAIN).
  static constexpr std::uint32_t mainTable = 254;

  // The entities of `tree` that the table names belong to this object alone.
  explicit Vrfs(const Varnix::Tree& tree);

  VrfIds& ids() { return ids_; }

  // A namespace becomes the VRF `name`, in place of a device of that name. Writes no records yet. None, and a line in
  // the trace, when no id is left.
  std::optional<Vrf::VrfIdMap::VrfId> namespaceIs(const L3::VrfName& name);
  void namespaceDel(const L3::VrfName& name);

  // A VRF device of the default namespace. None, and a line in the trace the first time, when it cannot be a VRF.
  std::optional<Vrf::VrfIdMap::VrfId> deviceIs(const L3::VrfName& name, std::uint32_t table);
  void deviceDel(const L3::VrfName& name);

  // Changes whenever a device may have become servable as a VRF, or stopped being so.
  std::uint64_t version() const { return version_; }

  // The records of a VRF that was named by namespaceIs().
  void recordsAre(const L3::VrfName& name, std::uint32_t table);
  // Those of VRF devices follow the default VRF's. Nothing when the VRF has no records.
  void forwardingIs(const L3::VrfName& name, Vantu::Af af, bool forwarding);

  void settingsAre(AllVrfSettings settings);

 private:
  enum class Kind { ns, device };

  void recordsDel(const L3::VrfName& name);
  void applySettings(const L3::VrfName& name);
  Kel::Ptr<Routing::Config> routing(const L3::VrfName& name);
  Kel::Ptr<Routing6::Config> routing6(const L3::VrfName& name);
  void refuse(const L3::VrfName& name, const std::string& why);

  Varnix::Tree tree_;
  VrfIds ids_;
  AllVrfSettings settings_;
  std::map<L3::VrfName, Kind> kinds_;
  std::set<L3::VrfName> refused_;  // of whom that was told
  std::uint64_t version_ = 0;
};

// The VRF devices of the default namespace (kernel type "vrf"), and which interfaces belong to them: the device
// itself, and those that have it as their master.
//
// A device may be no VRF that is served (Vrfs::deviceIs): its interfaces then are in no VRF, the default one included,
// since the kernel does not use the default VRF's routes for them either.
class VrfDevices {
 public:
  explicit VrfDevices(Vrfs& vrfs) : vrfs_(vrfs) {}

  // Reads the devices among the changed interfaces. Call it before these are written. True when the VRF of other
  // interfaces may have changed too.
  bool sync(const KernelState& state, const std::set<std::uint32_t>& ifIndexes);

  struct Membership {
    L3::VrfName vrf;
    Vrf::VrfIdMap::VrfId vrfId{0};
    friend bool operator==(const Membership&, const Membership&) = default;
  };
  // The default VRF's for an interface that belongs to no device; none for one that is in no VRF.
  std::optional<Membership> membership(std::uint32_t ifIndex, const KernelLink& link) const;

  // None for what is no device, or one that is not served as a VRF.
  std::optional<Vrf::VrfIdMap::VrfId> vrfId(std::uint32_t device) const;

 private:
  struct Device {
    std::string name;
    std::uint32_t table = 0;
    std::optional<Vrf::VrfIdMap::VrfId> vrfId = std::nullopt;  // none: cannot be a VRF
    bool isSame(const Device& other) const { return name == other.name && table == other.table; }
  };
  static std::optional<Device> deviceOf(const KernelState& state, std::uint32_t ifIndex);

  Vrfs& vrfs_;
  std::uint64_t version_ = 0;
  std::map<std::uint32_t, Device> devices_;  // by ifIndex
};

}  // namespace Mirror

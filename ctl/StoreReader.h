#pragma once
// One command's view of a store: its tables in pieces, its documents as entities, its VRFs.
//
// It does not wait for a store, and does not report damage to the publisher: a command that reads changes nothing.
// Throws: every operation that reads the store throws Quillo::StoreException if that is impossible.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ctl/Command.h"
#include "ctl/Output.h"
#include "quillo/Mount.h"
#include "varnix/Tree.h"

namespace Ctl {

// A VRF that exists.
struct NamedVrf {
  L3::VrfName name;
  Vrf::VrfIdMap::VrfId id;
  std::string text() const { return nameText(name.stringValue()); }
};

class StoreReader {
 public:
  using VrfId = Vrf::VrfIdMap::VrfId;

  // Throws Failure if the store cannot be read: `unknown` if the user may not, otherwise `critical`.
  explicit StoreReader(const std::string& directory);

  const Kel::Ptr<Quillo::Mount>& mount() const { return mount_; }

  // Calls `visit` for the records of `table` whose keys begin with `prefix`, from lower_bound(from) on, until it
  // returns false. After each thousand keys, and at the end, releases the snapshot and calls `pieceEnds`: write output
  // only there. The next thousand are read from a new snapshot. Damaged records are left out and noted. Throws
  // Pesk::CorruptionDetectedException for damage that ends the walk.
  using Visit = std::function<bool(Quillo::Snapshot& snapshot, const Quillo::Scan& scan)>;
  void scan(
      Quillo::TableId table, const std::string& prefix, std::string from, const Visit& visit,
      const std::function<void()>& pieceEnds = [] {});

  // A record that cannot be read.
  struct Damage {
    Quillo::TableId table;
    std::string key;
    std::string what;
  };
  // No-op for a record that was noted before.
  void noteDamage(Quillo::TableId table, Quillo::Bytes key, const std::string& what);
  const std::vector<Damage>& damage() const { return damage_; }
  // Writes a line to standard error if no publisher runs or its first pass is not complete, and one that names up to
  // three damaged records. Returns `warning` if a record is damaged, otherwise `ok`.
  Exit finish();

  // The documents, which only the first call reads. It reads them as scan() does: each thousand has a snapshot of its
  // own, so a commit in between shows in the later ones only. Entities whose documents are damaged are missing.
  const Varnix::Tree& tree();

  // The existing VRFs in the order of SNMP indexes: the default one, then by the length of the name, then by its
  // bytes.
  const std::vector<NamedVrf>& vrfs();
  // The VRF of this name, or all of vrfs() for the empty name. The name may be escaped (nameText()). Throws Failure,
  // with the known names, if there is no such VRF.
  std::vector<NamedVrf> select(const std::string& name);
  // The name for people of the VRF that has this id, or had it; "number 7" if none is known.
  std::string vrfText(VrfId id);
  // Whether there is a VRF of this name, which may be escaped (nameText()).
  bool isVrf(const std::string& name);

  // The name of the VRF of an interface; null if it has none. Lifetime: that of this object.
  const L3::VrfName* vrfOf(const Vantu::IntfId& intfId);

  // The VRF that has the FECs of a VRF's routes: itself, or in unified mode the default one.
  VrfId fecVrf(VrfId id);

 private:
  const NamedVrf* find(const std::string& name);

  Kel::Ptr<Quillo::Mount> mount_;
  std::vector<Damage> damage_;
  std::unique_ptr<Varnix::Tree> tree_;
  std::vector<NamedVrf> vrfs_;
};

// The name of an interface within a VRF, for people: "red/eth0" is "eth0" in VRF red.
std::string devOf(const Vantu::IntfId& intfId, const L3::VrfName& vrf);

}  // namespace Ctl

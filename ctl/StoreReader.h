#pragma once
// One command's view of a store: its tables in pieces, its documents as entities, its VRFs.
//
// It waits for nothing, and reports no damage to the publisher: looking at a store changes nothing.
// Guarantees: a snapshot lives for a thousand keys, and no output is written meanwhile.

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

  // Throws Failure when the store cannot be read.
  explicit StoreReader(const std::string& directory);

  const Kel::Ptr<Quillo::Mount>& mount() const { return mount_; }

  // Calls `visit` for the records of `table` whose keys begin with `prefix`, from lower_bound(from) on, until it
  // returns false, and `pieceEnds` without a snapshot after each thousand of them and at the end. Damaged records
  // are left out and noted. Throws Pesk::CorruptionDetectedException for damage that ends the walk.
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
  void noteDamage(Quillo::TableId table, Quillo::Bytes key, const std::string& what);
  const std::vector<Damage>& damage() const { return damage_; }
  // Writes a line to standard error if the contents are old or not complete, and one that names the damaged records.
  // Returns `warning` when there are any, otherwise `ok`.
  Exit finish();

  // The documents as of the first call. Entities whose documents are damaged are missing.
  const Varnix::Tree& tree();

  // The existing VRFs in the order of SNMP indexes: the default one, then by the length of the name, then by its
  // bytes.
  const std::vector<NamedVrf>& vrfs();
  // All of them for the empty name, or the one. Throws Failure, with the known names, when there is no such VRF.
  std::vector<NamedVrf> select(const std::string& name);
  // The name of that id for people.
  std::string vrfText(VrfId id);
  // Whether a word names a VRF.
  bool isVrf(const std::string& name);

  // The name of the VRF of an interface; null when it has none.
  const L3::VrfName* vrfOf(const Vantu::IntfId& intfId);

  // The VRF that has the FECs of a VRF's routes: itself, or the default one where one table serves all.
  VrfId fecVrf(VrfId id);

 private:
  const NamedVrf* find(const std::string& name);

  Kel::Ptr<Quillo::Mount> mount_;
  std::vector<Damage> damage_;
  std::unique_ptr<Varnix::Tree> tree_;
  std::vector<NamedVrf> vrfs_;
};

// The name of an interface in a VRF: without the VRF's own prefix. "red/eth0" is "eth0" in VRF red.
std::string devOf(const Vantu::IntfId& intfId, const L3::VrfName& vrf);

}  // namespace Ctl

#pragma once
// Lookups and walks in a table that holds all VRFs, with messages for damaged records. Internal to the store.

#include <functional>
#include <string>

#include "quillo/TableFollower.h"

namespace Quillo {

class VrfTableReader {
 public:
  VrfTableReader(Kel::Ptr<TableFollower> follower, TableId table) : follower_(std::move(follower)), table_(table) {}

  const Kel::Ptr<TableFollower>& follower() const { return follower_; }
  TableId table() const { return table_; }

  // Passes the value of `key` to `take`, which returns null or what is wrong with the value. False when there is no
  // such record. Throws StoreException while the store cannot be read, and CorruptionDetectedException for damage.
  template <class Take>
  bool get(const std::string& key, Take&& take) const {
    const auto snapshot = follower_->snapshot();
    const auto value = snapshot->get(table_, key);
    if (!value) return false;
    if (const char* what = take(*value)) throw damage(key, what);
    return true;
  }

  // Passes the records whose keys begin with `vrf` to `take`, in order, from lower_bound(from) on, until it sets
  // `goesOn` to false. Throws as `get`, but for damaged records only after the walk: it throws the first such
  // exception and reports the others to the follower. The thousandth damaged record ends the walk
  // (TableFollower::reportEndedWalk).
  using Take = std::function<const char*(const Scan& scan, bool& goesOn)>;
  void walk(const std::string& vrf, const std::string& from, const Take& take) const;

  Pesk::CorruptionDetectedException damage(Bytes key, const char* what) const;

 private:
  Kel::Ptr<TableFollower> follower_;
  TableId table_;
};

}  // namespace Quillo

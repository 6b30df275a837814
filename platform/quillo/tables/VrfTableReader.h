#pragma once
// What readers of the tables that hold all VRFs have in common: lookups and walks that name what is wrong with a
// record. Internal to the store.

#include <functional>
#include <string>

#include "quillo/TableFollower.h"

namespace Quillo {

class VrfTableReader {
 public:
  VrfTableReader(Kel::Ptr<TableFollower> follower, TableId table) : follower_(std::move(follower)), table_(table) {}

  const Kel::Ptr<TableFollower>& follower() const { return follower_; }
  TableId table() const { return table_; }

  // Hands the value of `key` to `take`, which says what is wrong with it, or null. False when there is no such record.
  // Throws StoreException when the store cannot be read now, CorruptionDetectedException for damage.
  template <class Take>
  bool get(const std::string& key, Take&& take) const {
    const auto snapshot = follower_->snapshot();
    const auto value = snapshot->get(table_, key);
    if (!value) return false;
    if (const char* what = take(*value)) throw damage(key, what);
    return true;
  }

  // Hands the records whose keys begin with `vrf` to `take`, in order, from the first key that is not below `from` on,
  // until it sets `goesOn` to false. Throws as `get`, but damaged records after what could be read was visited: the
  // first of them; the others are reported. A walk ends at the thousandth, and the follower is told.
  using Take = std::function<const char*(const Scan& scan, bool& goesOn)>;
  void walk(const std::string& vrf, const std::string& from, const Take& take) const;

  Pesk::CorruptionDetectedException damage(Bytes key, const char* what) const;

 private:
  Kel::Ptr<TableFollower> follower_;
  TableId table_;
};

}  // namespace Quillo

#pragma once
// Lookups and walks in one table, and its notified keys, as records of a type (RecordFields.h). Internal to the store.
//
// Throw StoreException while the store cannot be read, and CorruptionDetectedException for damage.
// Requires: the keys of the table begin with the id of a VRF.

#include <functional>
#include <string>
#include <utility>

#include "quillo/TableFollower.h"
#include "quillo/tables/RecordFields.h"

namespace Quillo {

// What does not depend on the type of record.
class TableReader {
 public:
  TableReader(Kel::Ptr<TableFollower> follower, TableId table) : follower_(std::move(follower)), table_(table) {}

  TableFollower& follower() const { return *follower_; }

 protected:
  // Passes the records whose keys begin with `vrf` to `take`, in order, from lower_bound(from) on, until it sets
  // `goesOn` to false. `take` returns null or what is wrong with the record. For damaged records it throws only after
  // the walk: the first such exception. It reports the others to the follower. The thousandth damaged record ends the
  // walk (TableFollower::reportEndedWalk).
  using Take = std::function<const char*(const Scan& scan, bool& goesOn)>;
  void walk(Bytes vrf, const std::string& from, const Take& take) const;

  Pesk::CorruptionDetectedException damage(Bytes key, const char* what) const;

 private:
  const Kel::Ptr<TableFollower> follower_;
  const TableId table_;
};

template <class Record>
class RecordTable : public TableReader {
 public:
  using Key = typename Record::Key;
  using Entry = typename Record::Entry;

  explicit RecordTable(Kel::Ptr<TableFollower> follower) : TableReader(std::move(follower), Record::table) {}

  // Reads the entry of this key. False, and `entry` unchanged, when there is none or the store cannot hold the key.
  bool find(const Key& key, Entry& entry) const {
    FieldWriter bytes;
    Record::keyFields(bytes, key);
    if (bytes.fault()) return false;
    const auto snapshot = follower().snapshot();
    const auto value = snapshot->get(Record::table, bytes.bytes());
    if (!value) return false;
    if (const char* what = decodeValue<Record>(*value, entry)) throw damage(bytes.bytes(), what);
    Record::setKey(entry, key);
    return true;
  }

  // Visits the entries of the key's VRF from lower_bound(from) on, in order, until `visit` returns false. A field of
  // `from` that is unset or 0 stands for the lowest value.
  void forEach(const Key& from, const std::function<bool(const Entry&)>& visit) const {
    if (!isStorable(from.vrfId)) return;
    FieldWriter bound;
    Record::keyFields(bound, from);
    Key key;
    Entry entry;
    walk(Bytes(bound.bytes()).substr(0, vrfKeyBytes), bound.bytes(), [&](const Scan& scan, bool& goesOn) {
      const char* what = decodeRecord<Record>(scan.key(), scan.value(), key, entry);
      if (!what) goesOn = visit(entry);
      return what;
    });
  }

  // An element of TableWatch::Handlers::keys that passes each notified key to `handle`. Reports a key that cannot be
  // decoded to the follower, as damage. Lifetime: this table outlives the watch.
  std::pair<const TableId, std::function<void(const std::string&)>> onKey(
      std::function<void(const Key&)> handle) const {
    return {Record::table, [this, handle = std::move(handle)](const std::string& bytes) {
              Key key;
              if (const char* what = decodeKey<Record>(bytes, key)) {
                return follower().corruptionDetected(damage(bytes, what));
              }
              handle(key);
            }};
  }
};

}  // namespace Quillo

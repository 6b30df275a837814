#pragma once
// Walkers: positions among the rows of a table, in index order.
//
// A walker can be copied. It holds a counted reference to the cache and to its row, so both stay readable after their
// removal. Rows may be added and removed between steps. Tables whose rows are one ordered collection use OrderedWalker;
// those that compute their rows define a walker of their own.

#include <concepts>
#include <memory>
#include <vector>

#include "kel/Collection.h"
#include "kel/Ptr.h"

namespace Modules {

// A new walker is at the first row. A null cache has no rows.
template <class W>
concept Walker = std::copyable<W> && std::constructible_from<W, Kel::Ptr<const typename W::Cache>> &&
    requires(W walker, const W& position) {
  { position.isAtEnd() } -> std::same_as<bool>;
  // Requires: not at the end.
  { position.row() } -> std::convertible_to<const typename W::Row&>;
  { position.key() } -> std::convertible_to<typename W::Key>;
  walker.advance();
};

// A walker that visits rows in SNMP index order and can start anywhere: W(cache, key) is at lower_bound(key), or at the
// end. It may throw Kel::RangeException. Without such a walker, each request searches the table from its first row to
// its last.
//
// A walker whose rows are costly to compute may have a W(cache, key) that skips rows above the key. It then has three
// more operations:
// - passingOverNone(cache, key): a walker at or before lower_bound(key).
// - behind(cache, key): a walker at upper_bound(key).
// - gaveUp(): whether the walker ended its search early: it is at the end, but further rows may exist. A GETNEXT is
//   then answered with genErr.
template <class W>
concept SeekingWalker = Walker<W> && requires(Kel::Ptr<const typename W::Cache> cache, const typename W::Key& key) {
  W(cache, key);
};

// Walks an ordered collection of counted rows, defined by `Rows`:
//
//   struct IpAddrRows {
//     using Cache = IpSnmp::IpMib;                                     // an entity
//     using Row = IpSnmp::IpAddrEntry;
//     using Key = Vantu::IpAddr;
//     static const auto& collection(const Cache& cache) { return cache.ipAddrTable(); }
//     static Key key(const Row& row) { return row.ipAdEntAddr(); }      // or const Key&
//   };
template <class Rows>
class OrderedWalker {
 public:
  using Cache = typename Rows::Cache;
  using Row = typename Rows::Row;
  using Key = typename Rows::Key;

  explicit OrderedWalker(Kel::Ptr<const Cache> cache) : cache_(std::move(cache)) {
    if (cache_) standAt(collection().begin());
  }

  OrderedWalker(Kel::Ptr<const Cache> cache, const Key& key) : cache_(std::move(cache)) {
    if (cache_) standAt(collection().lowerBound(key));
  }

  bool isAtEnd() const { return !row_; }
  const Row& row() const { return *row_; }
  decltype(auto) key() const { return Rows::key(*row_); }

  // Moves to the next row; after a change of the collection, to upper_bound of the current row's key.
  void advance() {
    if (isAtEnd()) return;
    if (collection().version() == version_) {
      standAt(std::next(at_));
    } else {
      standAt(collection().upperBound(key()));
    }
  }

 private:
  using Collection = std::remove_cvref_t<decltype(Rows::collection(std::declval<const Cache&>()))>;
  using Place = typename Collection::ConstIterator;

  const Collection& collection() const { return Rows::collection(*cache_); }

  void standAt(Place at) {
    at_ = at;
    version_ = collection().version();
    row_ = at == collection().end() ? nullptr : Kel::Ptr<const Row>(at->second);
  }

  Kel::Ptr<const Cache> cache_;
  Kel::Ptr<const Row> row_;  // null: at the end
  Place at_{};               // valid while the collection has `version_`
  std::uint64_t version_ = 0;
};

// Walks a hashed collection of counted rows, in no particular order. For small tables: net-snmp's helper visits every
// row. `Rows` is as for OrderedWalker.
// Guarantees: visits no row twice, since the walk copies the keys first; skips rows that are removed meanwhile.
template <class Rows>
class HashedWalker {
 public:
  using Cache = typename Rows::Cache;
  using Row = typename Rows::Row;
  using Key = typename Rows::Key;

  explicit HashedWalker(Kel::Ptr<const Cache> cache) : cache_(std::move(cache)) {
    if (!cache_) return;
    keys_ = std::make_shared<const std::vector<Key>>(Rows::collection(*cache_).keys());
    settle();
  }

  bool isAtEnd() const { return !row_; }
  const Row& row() const { return *row_; }
  decltype(auto) key() const { return Rows::key(*row_); }

  void advance() {
    if (isAtEnd()) return;
    ++at_;
    settle();
  }

 private:
  // Advances to the first key from here on that has a row.
  void settle() {
    for (row_ = nullptr; at_ < keys_->size(); ++at_) {
      if (const auto* found = Rows::collection(*cache_).find((*keys_)[at_])) {
        row_ = *found;
        return;
      }
    }
  }

  Kel::Ptr<const Cache> cache_;
  std::shared_ptr<const std::vector<Key>> keys_;
  std::size_t at_ = 0;
  Kel::Ptr<const Row> row_;  // null: at the end
};

}  // namespace Modules

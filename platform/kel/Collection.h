#pragma once
// Keyed collections.
//
// Ordered collections are B-trees and iterate in ascending key order; hashed ones have no defined order. The version
// of a collection changes when a member is added or removed, which invalidates iterators. A walk that may be
// interrupted compares versions; a caller that changes members during a walk walks over `keys()`.

#include <absl/container/btree_map.h>

#include <boost/unordered/unordered_flat_map.hpp>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "kel/Ptr.h"

namespace Kel {

template <class Key, class Value>
using OrderedMap = absl::btree_map<Key, Value>;
template <class Key, class Value>
using HashedMap = boost::unordered_flat_map<Key, Value>;

// `Map` is OrderedMap or HashedMap. Only the owner changes it, by operations that notify.
template <template <class, class> class Map, class KeyType, class ValueType>
class Collection {
 public:
  using Key = KeyType;
  using Value = ValueType;
  using ConstIterator = typename Map<Key, Value>::const_iterator;

  std::size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  std::uint64_t version() const { return version_; }
  bool has(const Key& key) const { return map_.contains(key); }

  // Null when the key has no member.
  const Value* find(const Key& key) const {
    const auto at = map_.find(key);
    return at == map_.end() ? nullptr : &at->second;
  }

  ConstIterator begin() const { return map_.begin(); }
  ConstIterator end() const { return map_.end(); }
  // Ordered collections only: lower_bound and upper_bound of `key`.
  ConstIterator lowerBound(const Key& key) const { return map_.lower_bound(key); }
  ConstIterator upperBound(const Key& key) const { return map_.upper_bound(key); }

  std::vector<Key> keys() const {
    std::vector<Key> result;
    result.reserve(map_.size());
    for (const auto& [key, value] : map_) result.push_back(key);
    return result;
  }

  // For the owner.
  Value& kelInsert(const Key& key, Value value) {
    ++version_;
    return map_.insert_or_assign(key, std::move(value)).first->second;
  }
  Value* kelFind(const Key& key) {
    const auto at = map_.find(key);
    return at == map_.end() ? nullptr : &at->second;
  }
  // Removes the member and returns it; an empty value when there is none.
  Value kelTake(const Key& key) {
    const auto at = map_.find(key);
    if (at == map_.end()) return Value{};
    Value value = std::move(at->second);
    map_.erase(at);
    ++version_;
    return value;
  }

 private:
  Map<Key, Value> map_;
  std::uint64_t version_ = 1;
};

template <class Key, class Value>
using Ordered = Collection<OrderedMap, Key, Value>;
template <class Key, class Value>
using Hashed = Collection<HashedMap, Key, Value>;

}  // namespace Kel

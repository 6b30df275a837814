#pragma once
// An ordered collection for a few values in each of a million objects: it takes 24 bytes, which hold two values of eight
// bytes. Insertions and removals take time in proportion to its size. It has no version, so a walk that may be
// interrupted needs an Ordered collection.

#include <absl/container/inlined_vector.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace Kel {

// For KEL_VALUES, as the collections of Collection.h.
template <class KeyType, class ValueType>
class Small {
 public:
  using Key = KeyType;
  using Value = ValueType;
  using Members = absl::InlinedVector<std::pair<Key, Value>, 1>;
  using ConstIterator = typename Members::const_iterator;

  std::size_t size() const { return members_.size(); }
  bool empty() const { return members_.empty(); }
  bool has(const Key& key) const { return find(key) != nullptr; }

  // Null when the key has no member.
  const Value* find(const Key& key) const {
    const auto at = lowerBound(key);
    return at == end() || at->first != key ? nullptr : &at->second;
  }

  ConstIterator begin() const { return members_.begin(); }
  ConstIterator end() const { return members_.end(); }
  ConstIterator lowerBound(const Key& key) const { return std::ranges::lower_bound(members_, key, {}, keyOf); }

  std::vector<Key> keys() const {
    std::vector<Key> result;
    result.reserve(size());
    for (const auto& [key, value] : members_) result.push_back(key);
    return result;
  }

  // For the owner. kelInsert requires that the key has no member, and kelTake that it has one.
  void kelInsert(const Key& key, Value value) { members_.emplace(lowerBound(key), key, std::move(value)); }
  Value* kelFind(const Key& key) { return const_cast<Value*>(find(key)); }
  Value kelTake(const Key& key) {
    const auto at = members_.begin() + (lowerBound(key) - begin());
    Value value = std::move(at->second);
    members_.erase(at);
    return value;
  }

 private:
  static const Key& keyOf(const std::pair<Key, Value>& member) { return member.first; }

  Members members_;
};

}  // namespace Kel

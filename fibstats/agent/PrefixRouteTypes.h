#pragma once
// Maps each counted prefix to its route type, with a mark for reviews.
//
// For a million prefixes: an IPv4 prefix takes about 15 bytes, free slots included, and a lookup one or two cache
// misses. Above `undividedSize` prefixes the map consists of 64 shards, chosen by the hash: growing one map of a
// million prefixes would stall the caller for 20 ms, growing a shard takes 0.1 ms. Up to undividedSize it is one map,
// since 64 empty maps would cost 3 KiB in each empty VRF. Only clear() merges the shards.
//
//   counted.unmarkAll();    // a review begins; constant time
//   counted.mark(prefix);   // for each prefix that the review meets
//   for (const auto& prefix : counted.unmarked(shard, 1024)) ...  // take() or mark() it

#include <array>
#include <boost/mp11.hpp>
#include <boost/unordered/unordered_flat_map.hpp>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "fibstats/FibStatsMib.h"

namespace FibStatsSnmp {

template <class PrefixType>
class PrefixRouteTypes {
 public:
  static constexpr std::size_t shardCount = 64;
  static constexpr std::size_t undividedSize = 1024;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // None if the prefix is not in the map.
  std::optional<RouteType> find(const PrefixType& prefix) const {
    const Key key(prefix);
    const auto& map = shards_[shardOf(key)];
    const auto at = map.find(key);
    return at == map.end() ? std::nullopt : std::optional(typeOf(at->second));
  }
  // Adds the prefix or changes its type, and marks it.
  void insert(const PrefixType& prefix, RouteType type) {
    const Key key(prefix);
    const auto value = static_cast<std::uint8_t>(type | marked_);
    const auto [at, isNew] = shards_[shardOf(key)].try_emplace(key, value);
    if (isNew) ++size_;
    if (!isMarked(at->second)) --unmarkedCount_;
    at->second = value;
    if (size_ > undividedSize && shards_.size() == 1) divide();
  }
  // Removes the prefix and returns its type; none if it is not in the map.
  std::optional<RouteType> take(const PrefixType& prefix) {
    const Key key(prefix);
    auto& map = shards_[shardOf(key)];
    const auto at = map.find(key);
    if (at == map.end()) return std::nullopt;
    const auto type = typeOf(at->second);
    if (!isMarked(at->second)) --unmarkedCount_;
    map.erase(at);
    --size_;
    return type;
  }
  void clear() {
    shards_ = std::vector<Map>(1);
    size_ = unmarkedCount_ = 0;
  }

  // Requires: all prefixes are marked.
  void unmarkAll() {
    marked_ ^= markBit;
    unmarkedCount_ = size_;
  }
  // No-op when the prefix is not in the map.
  void mark(const PrefixType& prefix) {
    const Key key(prefix);
    auto& map = shards_[shardOf(key)];
    const auto at = map.find(key);
    if (at == map.end() || isMarked(at->second)) return;
    at->second ^= markBit;
    --unmarkedCount_;
  }
  std::size_t unmarkedCount() const { return unmarkedCount_; }
  // Returns at most `limit` unmarked prefixes of the shard, in no order; none if the shard does not exist. insert() may
  // divide the map, so cycle through all `shardCount` shards until unmarkedCount() is 0.
  std::vector<PrefixType> unmarked(std::size_t shard, std::size_t limit) const {
    std::vector<PrefixType> found;
    if (shard >= shards_.size()) return found;
    for (const auto& [key, value] : shards_[shard]) {
      if (found.size() == limit) break;
      if (!isMarked(value)) found.push_back(key.prefix());
    }
    return found;
  }

 private:
  // A prefix without padding.
  class Key {
   public:
    Key() = default;
    explicit Key(const PrefixType& prefix) {
      std::memcpy(bytes_.data(), &prefix.address(), sizeof(Address));
      bytes_.back() = static_cast<std::uint8_t>(prefix.length());
    }
    PrefixType prefix() const {
      Address address;
      std::memcpy(&address, bytes_.data(), sizeof(Address));
      return {address, bytes_.back()};
    }
    // Uses another factor than the maps' hash; otherwise each map would fill only some of its slots.
    std::size_t shard() const { return (std::uint64_t{hash_value(*this)} * 0xFF51AFD7ED558CCDU) >> 58U; }
    friend bool operator==(const Key&, const Key&) = default;
    friend std::size_t hash_value(const Key& key) {
      return std::hash<std::string_view>()({reinterpret_cast<const char*>(key.bytes_.data()), key.bytes_.size()});
    }

   private:
    using Address = std::remove_cvref_t<decltype(std::declval<PrefixType>().address())>;
    static_assert(std::is_trivially_copyable_v<Address>);
    std::array<std::uint8_t, sizeof(Address) + 1> bytes_;
  };
  static_assert(shardCount == 64);  // six bits of a hash

  // A prefix's value is its type and this bit; the prefix is marked if the bit equals `marked_`. So changing `marked_`
  // removes all marks.
  static constexpr std::uint8_t markBit = 0x20;
  static constexpr bool noTypeHasTheBit() {
    bool isFree = true;
    boost::mp11::mp_for_each<boost::describe::describe_enumerators<RouteType>>(
        [&isFree](auto type) { isFree = isFree && (type.value & ~0xFF) == 0 && (type.value & markBit) == 0; });
    return isFree;
  }
  static_assert(noTypeHasTheBit());

  static RouteType typeOf(std::uint8_t value) { return RouteType{value & ~markBit}; }
  bool isMarked(std::uint8_t value) const { return (value & markBit) == marked_; }

  using Map = boost::unordered_flat_map<Key, std::uint8_t>;

  std::size_t shardOf(const Key& key) const { return shards_.size() == 1 ? 0 : key.shard(); }
  void divide() {
    const auto undivided = std::move(shards_.front());
    shards_ = std::vector<Map>(shardCount);
    for (const auto& [key, value] : undivided) shards_[key.shard()].emplace(key, value);
  }

  std::vector<Map> shards_ = std::vector<Map>(1);  // one, or shardCount
  std::size_t size_ = 0;
  std::size_t unmarkedCount_ = 0;
  std::uint8_t marked_ = 0;
};

}  // namespace FibStatsSnmp

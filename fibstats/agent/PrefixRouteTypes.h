#pragma once
// Under which route type each prefix was counted.
//
// Made for a million prefixes: an IPv4 one takes six bytes and its share of free places, some 15 in all, and a lookup
// costs a cache miss or two. The hash map is cut into shards, chosen by the hash, because one of a million that grows
// stalls its user for 20 ms; a shard of it grows in a tenth of one. A shard is also the piece in which all prefixes
// can be gone through while they come and go.

#include <array>
#include <boost/unordered/unordered_flat_map.hpp>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "fibstats/RouteType.h"

namespace FibStatsSnmp {

template <class PrefixType>
class PrefixRouteTypes {
 public:
  static constexpr std::size_t shardCount = 64;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // Nothing when the prefix is not counted.
  std::optional<RouteType> find(const PrefixType& prefix) const {
    const Key key(prefix);
    const auto& map = shards_[key.shard()];
    const auto at = map.find(key);
    return at == map.end() ? std::nullopt : std::optional(RouteType{at->second});
  }
  void insert(const PrefixType& prefix, RouteType type) {
    const Key key(prefix);
    if (shards_[key.shard()].insert_or_assign(key, static_cast<std::uint8_t>(type)).second) ++size_;
  }
  // The type that was kept.
  std::optional<RouteType> take(const PrefixType& prefix) {
    const Key key(prefix);
    auto& map = shards_[key.shard()];
    const auto at = map.find(key);
    if (at == map.end()) return std::nullopt;
    const RouteType type{at->second};
    map.erase(at);
    --size_;
    return type;
  }
  void clear() {
    for (auto& map : shards_) map = {};
    size_ = 0;
  }

  // The members of one shard, in no order.
  std::vector<std::pair<PrefixType, RouteType>> shard(std::size_t number) const {
    std::vector<std::pair<PrefixType, RouteType>> members;
    members.reserve(shards_[number].size());
    for (const auto& [key, type] : shards_[number]) members.emplace_back(key.prefix(), RouteType{type});
    return members;
  }

 private:
  // Without the padding that an address of four bytes brings.
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
    // By another factor than the maps', which would otherwise fill some of their places only.
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

  std::array<boost::unordered_flat_map<Key, std::uint8_t>, shardCount> shards_;
  std::size_t size_ = 0;
};

}  // namespace FibStatsSnmp

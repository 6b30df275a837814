#pragma once
// Under which route type each prefix was counted.
//
// Made for a million prefixes: a few bytes beside prefix and type, and a lookup costs one cache miss or two. The
// hash map is cut into shards, chosen by the hash, because one of a million that grows stalls its user for 20 ms;
// a shard of it grows in a tenth of one. A shard is also the piece in which all prefixes can be gone through while
// they come and go.

#include <array>
#include <boost/unordered/unordered_flat_map.hpp>
#include <cstdint>
#include <optional>
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
    const auto& map = shards_[shardOf(prefix)];
    const auto at = map.find(prefix);
    return at == map.end() ? std::nullopt : std::optional(at->second);
  }
  void insert(const PrefixType& prefix, RouteType type) {
    if (shards_[shardOf(prefix)].insert_or_assign(prefix, type).second) ++size_;
  }
  // The type that was kept.
  std::optional<RouteType> take(const PrefixType& prefix) {
    auto& map = shards_[shardOf(prefix)];
    const auto at = map.find(prefix);
    if (at == map.end()) return std::nullopt;
    const RouteType type = at->second;
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
    return {shards_[number].begin(), shards_[number].end()};
  }

 private:
  static_assert(shardCount == 64);
  static std::size_t shardOf(const PrefixType& prefix) {
    // By another factor than the maps', which would otherwise fill some of their places only.
    return (std::uint64_t{prefix.hash()} * 0xFF51AFD7ED558CCDU) >> 58U;
  }

  std::array<boost::unordered_flat_map<PrefixType, RouteType>, shardCount> shards_;
  std::size_t size_ = 0;
};

}  // namespace FibStatsSnmp

#pragma once
// The ifIndex of each of a set of interfaces, as a value.

#include <cstdint>
#include <map>
#include <optional>

#include "vantu/IntfId.h"

namespace IpSnmp {

class IfIndexMap {
 public:
  static constexpr const char* kelTypeName = "IpSnmp::IfIndexMap";

  // Empty when the interface has none.
  std::optional<std::int32_t> ifIndex(const Vantu::IntfId& intfId) const {
    const auto at = ifIndex_.find(intfId);
    return at == ifIndex_.end() ? std::nullopt : std::optional(at->second);
  }
  // All of them, in the order of the interface ids.
  const std::map<Vantu::IntfId, std::int32_t>& ifIndex() const { return ifIndex_; }

  void ifIndexIs(const Vantu::IntfId& intfId, std::int32_t ifIndex) { ifIndex_.insert_or_assign(intfId, ifIndex); }
  // False when the interface had none.
  bool ifIndexDel(const Vantu::IntfId& intfId) { return ifIndex_.erase(intfId) > 0; }
  void ifIndexDelAll() { ifIndex_.clear(); }

  friend bool operator==(const IfIndexMap&, const IfIndexMap&) = default;

  // In print and as data: an object with one field an interface.
  template <class Visitor>
  void kelForEachField(Visitor&& visit) const {
    for (const auto& [intfId, ifIndex] : ifIndex_) visit(intfId.text().c_str(), ifIndex);
  }

 private:
  std::map<Vantu::IntfId, std::int32_t> ifIndex_;
};

}  // namespace IpSnmp

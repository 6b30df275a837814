#pragma once
// Forwarding equivalence classes (FECs): the next hops that routes share.

#include <fmt/format.h>

#include <boost/describe.hpp>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "kel/Errors.h"
#include "kel/Name.h"
#include "vantu/IntfId.h"
#include "vantu/IpAddr.h"

namespace Quillo::Fib {

// How the switch keeps its FECs.
enum FecMode : int {
  fecModeUnknown = 0,
  fecModePerVrf = 1,   // one table of FECs for each VRF
  fecModeUnified = 2,  // one table for all VRFs
};
BOOST_DESCRIBE_ENUM(FecMode, fecModeUnknown, fecModePerVrf, fecModeUnified)

// Unique in one table of FECs. 0 means none.
class FecId {
 public:
  constexpr FecId() = default;
  constexpr explicit FecId(std::uint64_t value) : value_(value) {}
  constexpr std::uint64_t value() const { return value_; }

  std::string stringValue() const { return std::to_string(value_); }
  // Decimal digits. Throws Kel::RangeException for any other text.
  static FecId fromString(std::string_view text) {
    const auto value = Kel::numberFromText<std::uint64_t>(text);
    if (!value) throw Kel::RangeException(fmt::format("FecId: {:?} is no FEC id; expected decimal digits", text));
    return FecId(*value);
  }
  friend constexpr auto operator<=>(const FecId&, const FecId&) = default;
  friend std::size_t hash_value(const FecId& id) { return id.value_; }
  friend std::ostream& operator<<(std::ostream& out, const FecId& id) { return out << id.value_; }

 private:
  std::uint64_t value_ = 0;
};

// The position of a via in its FEC.
class ViaIndex {
 public:
  static constexpr unsigned min = 0;
  static constexpr unsigned max = 511;

  constexpr ViaIndex() = default;
  // Throws Kel::RangeException above max.
  explicit ViaIndex(unsigned value) : value_(static_cast<std::uint16_t>(value)) {
    if (value > max) {
      throw Kel::RangeException("ViaIndex::value < ViaIndex::min or > ViaIndex::max not allowed");
    }
  }
  constexpr unsigned value() const { return value_; }
  friend constexpr auto operator<=>(const ViaIndex&, const ViaIndex&) = default;

 private:
  std::uint16_t value_ = 0;
};

struct Via {
  Vantu::IpGenAddr hop;  // the next hop; 0.0.0.0 (::) for an on-link route
  Vantu::IntfId intfId;  // empty for a route without an interface, such as a blackhole
  friend bool operator==(const Via&, const Via&) = default;
};

// A default-constructed FEC (id 0) means "no such FEC".
struct Fec {
  static constexpr std::size_t maxVias = ViaIndex::max + 1;

  FecId fecId;
  std::vector<Via> via;  // at most maxVias

  bool exists() const { return fecId != FecId(); }
  // Sets this to "no such FEC" and keeps the memory.
  void clear() {
    fecId = FecId();
    via.clear();
  }
  friend bool operator==(const Fec&, const Fec&) = default;
};

}  // namespace Quillo::Fib

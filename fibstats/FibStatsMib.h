#pragma once
// The FIB statistics cache of one VRF: the number of routes in its forwarding tables, in total, by route type and by
// prefix length. The statistics tables of a context read it.
//
// The counts change by one route at a time. A row exists exactly while its count is above 0. Keys sort like the rows of
// their table.

#include "kel/Attribute.h"
#include "kel/Entity.h"
#include "varnix/Values.h"

namespace FibStatsSnmp {

// ---- keys ----

// The route types of the MIB, with its numbers: up to 14 as in IANAipRouteProtocol, where 2 is "local" and 3 "netmgmt";
// from 200 on our own.
enum RouteType : int {
  routeTypeOther = 1,
  routeTypeConnected = 2,
  routeTypeStatic = 3,
  routeTypeRip = 8,
  routeTypeIsIs = 9,
  routeTypeOspf = 13,
  routeTypeBgp = 14,
  routeTypeOspfv3 = 200,
  routeTypeStaticNonPersistent = 201,
  routeTypeStaticNexthopGroup = 202,
  routeTypeAttached = 203,  // hosts that are neighbours
  routeTypeVcs = 204,
  routeTypeInternal = 205
};
BOOST_DESCRIBE_ENUM(RouteType, routeTypeOther, routeTypeConnected, routeTypeStatic, routeTypeRip, routeTypeIsIs,
                    routeTypeOspf, routeTypeBgp, routeTypeOspfv3, routeTypeStaticNonPersistent,
                    routeTypeStaticNexthopGroup, routeTypeAttached, routeTypeVcs, routeTypeInternal)

inline std::ostream& operator<<(std::ostream& out, RouteType type) {
  return out << Kel::enumName(type);
}

// Convert a number or name. Throw Kel::RangeException if it is not a route type.
inline RouteType RouteTypeInstance(unsigned number) {
  return Kel::enumValue<RouteType>(Kel::Datum(static_cast<std::uint64_t>(number)));
}
inline RouteType RouteTypeInstance(const Kel::String& name) {
  return Kel::enumValue<RouteType>(Kel::Datum(name));
}

// The length of a prefix of either IP version, 0 to 128 bits.
class IpAddressPrefixLength {
 public:
  static constexpr const char* kelTypeName = "FibStatsSnmp::IpAddressPrefixLength";

  IpAddressPrefixLength() = default;
  // Implicit: a length is a number. Throws Kel::RangeException when it is below 0 or above 128.
  IpAddressPrefixLength(std::int64_t value);

  int value() const { return value_; }
  friend auto operator<=>(const IpAddressPrefixLength&, const IpAddressPrefixLength&) = default;
  friend std::size_t hash_value(const IpAddressPrefixLength& length) { return boost::hash<int>()(length.value_); }
  friend std::ostream& operator<<(std::ostream& out, const IpAddressPrefixLength& length) {
    return out << length.value_;
  }

  template <class Visitor>
  void kelForEachField(Visitor&& visit) const {
    visit("value", value_);
  }
  template <class Reader>
  static IpAddressPrefixLength kelFromFields(Reader&& read) {
    return {read("value", std::type_identity<int>{})};
  }

 private:
  int value_ = 0;
};

class RouteTypeKey {
  KEL_VALUE_TYPE("FibStatsSnmp::RouteTypeKey", RouteTypeKey,
                 ((Ip::IpVersion, addressFamily))((FibStatsSnmp::RouteType, routeType)))
};

class PrefixLenKey {
  KEL_VALUE_TYPE("FibStatsSnmp::PrefixLenKey", PrefixLenKey,
                 ((Ip::IpVersion, addressFamily))((FibStatsSnmp::IpAddressPrefixLength, prefixLen)))
};

// ---- rows ----

// The common part of all rows.
class RouteCount : public Kel::Notifier {
  KEL_TYPE_BEGIN("FibStatsSnmp::RouteCount", RouteCount, Kel::Notifier)
 public:
  KEL_STORED(std::uint32_t, totalRoutes, TotalRoutes, 0)
  KEL_TYPE_END_DECLARE

  void totalRoutesInc(std::uint32_t n) { totalRoutesIs(totalRoutes() + n); }
  // Returns the new number. It is modulo 2^32: a decrement of 0 wraps.
  std::uint32_t totalRoutesDec(std::uint32_t n) {
    const std::uint32_t left = totalRoutes() - n;
    totalRoutesIs(left);
    return left;
  }
};

class SummaryEntry : public RouteCount {
  KEL_TYPE_BEGIN("FibStatsSnmp::SummaryEntry", SummaryEntry, RouteCount)
 public:
  KEL_CONSTRUCTOR(SummaryEntry, ((Ip::IpVersion, ipVersion)))
  KEL_TYPE_END_DECLARE
};

class RouteTypeEntry : public RouteCount {
  KEL_TYPE_BEGIN("FibStatsSnmp::RouteTypeEntry", RouteTypeEntry, RouteCount)
 public:
  KEL_CONSTRUCTOR(RouteTypeEntry, ((FibStatsSnmp::RouteTypeKey, key)))
  KEL_TYPE_END_DECLARE
};

class PrefixLenEntry : public RouteCount {
  KEL_TYPE_BEGIN("FibStatsSnmp::PrefixLenEntry", PrefixLenEntry, RouteCount)
 public:
  KEL_CONSTRUCTOR(PrefixLenEntry, ((FibStatsSnmp::PrefixLenKey, key)))
  KEL_TYPE_END_DECLARE
};

Kel::Ptr<SummaryEntry> summaryEntryFactory(Ip::IpVersion ipVersion);
Kel::Ptr<RouteTypeEntry> routeTypeEntryFactory(const RouteTypeKey& key);
Kel::Ptr<PrefixLenEntry> prefixLenEntryFactory(const PrefixLenKey& key);

// ---- cache ----

class FibStatsMib : public Kel::Entity {
  KEL_TYPE_BEGIN("FibStatsSnmp::FibStatsMib", FibStatsMib, Kel::Entity)
 public:
  KEL_NAMED(FibStatsMib, Kel::Entity)
  KEL_MEMBERS(Ordered, Ip::IpVersion, SummaryEntry, summaryTable, SummaryTable)
  KEL_MEMBERS(Ordered, RouteTypeKey, RouteTypeEntry, routeTypeTable, RouteTypeTable)
  KEL_MEMBERS(Ordered, PrefixLenKey, PrefixLenEntry, prefixLenTable, PrefixLenTable)

  // The VRF's name. The default VRF's cache is named "fibstatsmib", as in its path; every other cache has its VRF's
  // name.
  Kel::Name vrfName() const { return name() == "fibstatsmib" ? Kel::Name("default") : name(); }
  KEL_COMPUTED(vrfName)
  KEL_TYPE_END_DECLARE

  // Adds a route to its three rows (summary, type, length), and creates those that are missing.
  void routeInc(Ip::IpVersion af, RouteType type, IpAddressPrefixLength len);
  // Subtracts a route from its three rows, and deletes each that reaches 0; skips missing rows. Requires: the arguments
  // are those with which the route was added.
  void routeDec(Ip::IpVersion af, RouteType type, IpAddressPrefixLength len);
  // Deletes every row of the address family.
  void routeDelAll(Ip::IpVersion af);
};

Kel::Ptr<FibStatsMib> fibStatsMibFactory(Kel::Name name);

}  // namespace FibStatsSnmp

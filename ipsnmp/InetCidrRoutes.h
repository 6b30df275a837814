#pragma once
// Walks the rows of inetCidrRouteTable (RFC 4292) of one VRF in index order: all IPv4 routes, then all IPv6 routes,
// each with a row for every usable next hop.
//
// The keys of the store are in the order of the index, so the walk steps through the shared tables themselves
// (RoutesAhead.h). A step searches from the route of the current row, so routes may come and go between two steps.
//
// Guarantees: damaged records are reported to their table and skipped. Throws Quillo::StoreException while the store is
// unreadable.
// Lifetime: the iterator holds the cache.
//
//   for (InetCidrRouteIterator at(mib, index); !at.isAtEnd(); at.advance()) ... at.row() ...

#include <algorithm>
#include <array>
#include <boost/container/small_vector.hpp>
#include <ostream>
#include <span>

#include "ipsnmp/IpForwardMib.h"
#include "ipsnmp/IpMibKeys.h"

namespace IpSnmp {

// A part of the index that its length precedes. No row has more than `most` elements: of a longer part only the length
// counts. Without memory of its own, since a walk makes one for every row. Compares in the SNMP order.
template <class Element, std::size_t most>
class InetIndexPart {
 public:
  InetIndexPart() = default;
  // Requires: at most 255 elements.
  InetIndexPart(std::span<const Element> elements) : size_(static_cast<std::uint8_t>(elements.size())) {
    std::copy_n(elements.begin(), std::min(most, elements.size()), elements_.begin());
  }

  std::size_t size() const { return size_; }
  // At most `most`.
  std::span<const Element> elements() const { return {elements_.data(), std::min<std::size_t>(most, size_)}; }

  friend auto operator<=>(const InetIndexPart&, const InetIndexPart&) = default;

 private:
  std::uint8_t size_ = 0;
  std::array<Element, most> elements_{};
};
using InetIndexAddress = InetIndexPart<std::uint8_t, 16>;
using InetIndexPolicy = InetIndexPart<std::uint32_t, 3>;
// As Snmp::String and Snmp::ObjectIdentifier.
std::ostream& operator<<(std::ostream& out, const InetIndexAddress& address);
std::ostream& operator<<(std::ostream& out, const InetIndexPolicy& policy);

// The index; compares in the SNMP order. An on-link row has the next hop of version 0 without bytes.
struct InetCidrRouteIndex {
  static constexpr const char* kelTypeName = "IpSnmp::InetCidrRouteIndex";

  Ip::IpVersion destType = Ip::ipVersionUnknown;
  InetIndexAddress dest;
  std::uint32_t length = 0;  // of the prefix
  InetIndexPolicy policy;
  Ip::IpVersion nextHopType = Ip::ipVersionUnknown;
  InetIndexAddress nextHop;

  friend auto operator<=>(const InetCidrRouteIndex&, const InetCidrRouteIndex&) = default;
  friend std::ostream& operator<<(std::ostream& out, const InetCidrRouteIndex& index);
};

// inetCidrRouteType; other(1) is never produced.
enum class InetCidrRouteType : std::int32_t { reject = 2, local = 3, remote = 4, blackhole = 5 };

struct InetCidrRouteEntry {
  InetCidrRouteIndex index;
  std::uint32_t ifIndex = 0;  // 0: no interface
  InetCidrRouteType type = InetCidrRouteType::local;
  Routing::Fib::RouteType protocol;  // the publisher's route type number, which differs between the IP versions
  Routing::RouteMetric metric;
};

class InetCidrRouteIterator {
 public:
  // Starts at the first row. A null cache has no rows.
  explicit InetCidrRouteIterator(Kel::Ptr<const IpForwardMib> mib);
  // Starts at lower_bound(index). The index may be any that a request can contain, also with host bits.
  InetCidrRouteIterator(Kel::Ptr<const IpForwardMib> mib, const InetCidrRouteIndex& index);

  // The walk gives up after this many successive routes without a row (some tens of milliseconds), so that no request
  // blocks the agent.
  static constexpr unsigned maxFruitless = 100'000;

  bool isAtEnd() const { return at_ == rows_.size(); }
  // Whether the walk gave up: it is at the end, but further rows may exist.
  bool gaveUp() const { return gaveUp_; }
  // Requires: not at the end. Lifetime: the reference is valid until advance().
  const InetCidrRouteEntry& row() const { return rows_[at_]; }
  // Moves to the next row; no-op at the end.
  void advance();

 private:
  template <class Status>
  bool readRoute(const Status* table, RoutesAhead<Status>& ahead, const typename Status::Key& from, bool isAfter);
  bool readFirstIpv6Route();
  bool readNextRoute();
  void findRow(const InetCidrRouteIndex* lowest);
  template <class Route>
  void expand(const Route& route);

  Kel::Ptr<const IpForwardMib> mib_;
  bool isIpv6_ = false;
  Vantu::Prefix prefix_;  // of the route of the rows, in one of the two
  Vantu::Ip6Prefix prefix6_;
  boost::container::small_vector<InetCidrRouteEntry, 1> rows_;  // of one route
  std::size_t at_ = 0;
  bool gaveUp_ = false;
};

}  // namespace IpSnmp

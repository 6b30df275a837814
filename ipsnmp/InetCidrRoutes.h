#pragma once
// Walks the rows of inetCidrRouteTable (RFC 4292) of one VRF in index order: all IPv4 routes, then all IPv6 routes,
// each with a row for every usable next hop.
//
// The keys of the store are in the order of the index, so the walk steps through the shared tables themselves. It keeps
// nothing between requests: a search costs one search in the table of routes, and reads two routes and their FECs. It
// then reads ahead in pieces that grow, for a GETBULK.
//
// Guarantees: routes may come and go between two walks. Within a walk, the routes that were read ahead stay.
// Damaged records are reported to their table and skipped. Throws Quillo::StoreException while the store is unreadable.
//
//   for (InetCidrRouteIterator at(mib, index); !at.isAtEnd(); at.advance()) ... at.row() ...

#include <ostream>
#include <vector>

#include "ipsnmp/IpForwardMib.h"
#include "ipsnmp/IpMibKeys.h"
#include "snmp/ObjectIdentifier.h"

namespace IpSnmp {

// The index; compares in the SNMP order. An on-link row has the next hop of version 0 without bytes.
struct InetCidrRouteIndex {
  static constexpr const char* kelTypeName = "IpSnmp::InetCidrRouteIndex";

  InetAddress dest;
  std::uint32_t length = 0;  // of the prefix
  Snmp::ObjectIdentifier policy;
  InetAddress nextHop;

  friend std::strong_ordering operator<=>(const InetCidrRouteIndex& a, const InetCidrRouteIndex& b);
  friend bool operator==(const InetCidrRouteIndex&, const InetCidrRouteIndex&) = default;
  friend std::ostream& operator<<(std::ostream& out, const InetCidrRouteIndex& index);
};

// inetCidrRouteType; other(1) is never produced.
enum class InetCidrRouteType : std::int32_t { reject = 2, local = 3, remote = 4, blackhole = 5 };

struct InetCidrRouteEntry {
  InetCidrRouteIndex index;
  std::uint32_t ifIndex = 0;  // 0: no interface
  InetCidrRouteType type = InetCidrRouteType::local;
  Routing::Fib::RouteType protocol;  // its numbers differ between the IP versions
  Routing::RouteMetric metric;
};

class InetCidrRouteIterator {
 public:
  // At the first row; a null cache has none.
  explicit InetCidrRouteIterator(Kel::Ptr<const IpForwardMib> mib);
  // At lower_bound(index).
  InetCidrRouteIterator(Kel::Ptr<const IpForwardMib> mib, const InetCidrRouteIndex& index);

  // The most routes without a row in succession that a walk looks at, some tens of milliseconds.
  static constexpr unsigned maxFruitless = 100'000;

  bool isAtEnd() const { return at_ == rows_.size(); }
  // Whether the walk gave up: it is at the end, but further rows may exist.
  bool gaveUp() const { return gaveUp_; }
  // Requires: not at the end.
  const InetCidrRouteEntry& row() const { return rows_[at_]; }
  void advance();

 private:
  struct Route {
    Vantu::IpGenAddr address;
    std::uint8_t length = 0;
    Routing::Fib::RouteType type;
    Routing::RouteMetric metric;
    Routing::Fib::RouteAction action{};
    Quillo::Fib::FecId fecId;
  };

  template <class Status>
  void readPiece(const Kel::Ptr<const Status>& table, const typename Status::Key& from, bool isAfter);
  bool readNextPiece();
  void findRow(const InetCidrRouteIndex* lowest);
  void expand(const Route& route);

  Kel::Ptr<const IpForwardMib> mib_;
  bool isIpv6_ = false;        // of the piece
  std::vector<Route> routes_;  // the piece that is read
  std::size_t nextRoute_ = 0;
  std::size_t pieceSize_;
  bool isLastPiece_ = false;              // of its IP version
  std::vector<InetCidrRouteEntry> rows_;  // of one route
  std::size_t at_ = 0;
  bool gaveUp_ = false;
};

}  // namespace IpSnmp

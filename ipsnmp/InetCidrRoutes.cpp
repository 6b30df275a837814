#include "ipsnmp/InetCidrRoutes.h"

#include <algorithm>
#include <bit>
#include <tuple>
#include <utility>

#include "kel/Trace.h"

namespace IpSnmp {

namespace {

Kel::TraceHandle inetCidrRoutesTrace("InetCidrRoutes");

// The route of a GETNEXT and the one behind it; then ever more.
constexpr std::size_t firstPiece = 2, largestPiece = 128;

const Snmp::ObjectIdentifier zeroDotZero{0, 0};

constexpr std::size_t ipv4Bytes = 4, ipv6Bytes = 16;

// The lowest prefix at or above an index with this address and length. The address may have host bits, and the length
// may be any number: then it is the prefix of the address with the fewest bits.
template <class PrefixType, class Address>
PrefixType lowestPrefix(const Address& address, std::uint32_t length) {
  unsigned hostBits = 0;
  const auto& bytes = address.bytes();
  for (std::size_t i = bytes.size(); i > 0; --i) {
    hostBits += static_cast<unsigned>(std::countr_zero(bytes[i - 1]));  // 8 for a byte of zeros
    if (bytes[i - 1] != 0) break;
  }
  return PrefixType(address, std::max(std::min<std::uint32_t>(length, Address::bits), Address::bits - hostBits));
}

bool hasRows(bool isIpv6, const IpForwardMib& mib, const Routing::Fib::RouteType& type) {
  // Of attached hosts, which are neighbours (3 for IPv6), there are no rows.
  if (isIpv6) return type.value() != 0 && type.value() != 3;
  Quillo::Fib::Route route;
  route.routeType = type;
  return mib.validRoute(route);
}

}  // namespace

std::strong_ordering operator<=>(const InetCidrRouteIndex& a, const InetCidrRouteIndex& b) {
  const auto parts = [](const InetCidrRouteIndex& index) {
    return std::tuple<const InetAddress&, std::uint32_t, std::size_t, const Snmp::ObjectIdentifier&,
                      const InetAddress&>(index.dest, index.length, index.policy.size(), index.policy,
                                          index.nextHop);
  };
  const auto left = parts(a), right = parts(b);
  return left < right   ? std::strong_ordering::less
         : right < left ? std::strong_ordering::greater
                        : std::strong_ordering::equal;
}

std::ostream& operator<<(std::ostream& out, const InetCidrRouteIndex& index) {
  return out << "Value('" << InetCidrRouteIndex::kelTypeName << "', ** {'dest': " << index.dest
             << ", 'length': " << index.length << ", 'policy': '" << index.policy.stringValue()
             << "', 'nextHop': " << index.nextHop << "})";
}

InetCidrRouteIterator::InetCidrRouteIterator(Kel::Ptr<const IpForwardMib> mib)
    : InetCidrRouteIterator(std::move(mib), InetCidrRouteIndex()) {
}

InetCidrRouteIterator::InetCidrRouteIterator(Kel::Ptr<const IpForwardMib> mib, const InetCidrRouteIndex& index)
    : mib_(std::move(mib)), pieceSize_(firstPiece) {
  if (!mib_) return;
  const auto& [version, bytes] = std::tie(index.dest.version(), index.dest.bytes());
  const bool isBehindIpv4 = version > Ip::ipVersion4 || (version == Ip::ipVersion4 && bytes.bytes() > ipv4Bytes);
  const bool isBehindIpv6 = version > Ip::ipVersion6 || (version == Ip::ipVersion6 && bytes.bytes() > ipv6Bytes);
  if (isBehindIpv6) return;
  isIpv6_ = isBehindIpv4;
  if (isIpv6_) {
    const bool isAddress = version == Ip::ipVersion6 && bytes.bytes() == ipv6Bytes;
    readPiece(mib_->route6Status(),
              isAddress ? lowestPrefix<Vantu::Ip6Prefix>(Vantu::Ip6Addr::fromBytes(bytes.octets()), index.length)
                        : Vantu::Ip6Prefix(),
              false);
  } else {
    const bool isAddress = version == Ip::ipVersion4 && bytes.bytes() == ipv4Bytes;
    readPiece(mib_->routeStatus(),
              isAddress ? lowestPrefix<Vantu::Prefix>(Vantu::IpAddr::fromBytes(bytes.octets()), index.length)
                        : Vantu::Prefix(),
              false);
  }
  findRow(&index);
}

void InetCidrRouteIterator::advance() {
  if (!isAtEnd() && ++at_ == rows_.size()) findRow(nullptr);
}

// Reads the next routes from lower_bound(from) on, or with `isAfter` from upper_bound(from) on.
template <class Status>
void InetCidrRouteIterator::readPiece(const Kel::Ptr<const Status>& table, const typename Status::Key& from,
                                      bool isAfter) {
  routes_.clear();
  nextRoute_ = 0;
  try {
    const auto take = [&](const typename Status::Route& route) {
      if (isAfter && route.prefix == from) return true;
      routes_.push_back({route.prefix.address(), static_cast<std::uint8_t>(route.prefix.length()), route.routeType,
                         route.metric, route.action, route.fecId});
      return routes_.size() < pieceSize_;
    };
    if (table) table->forEachRoute(from, take);
  } catch (const Pesk::CorruptionDetectedException& damage) {
    table->corruptionDetected(damage.what());
  }
  isLastPiece_ = routes_.size() < pieceSize_;
  pieceSize_ = std::min(2 * pieceSize_, largestPiece);
}

// False at the end of the IPv6 routes.
bool InetCidrRouteIterator::readNextPiece() {
  if (isLastPiece_ && isIpv6_) return false;
  if (isLastPiece_) {
    isIpv6_ = true;
    readPiece(mib_->route6Status(), Vantu::Ip6Prefix(), false);
  } else if (const auto last = routes_.back(); isIpv6_) {
    readPiece(mib_->route6Status(), Vantu::Ip6Prefix(last.address.v6(), last.length), true);
  } else {
    readPiece(mib_->routeStatus(), Vantu::Prefix(last.address.v4(), last.length), true);
  }
  return true;
}

// Moves to the first row of the routes that are left, and not below `lowest`.
void InetCidrRouteIterator::findRow(const InetCidrRouteIndex* lowest) {
  for (unsigned fruitless = 0;;) {
    while (nextRoute_ < routes_.size()) {
      expand(routes_[nextRoute_++]);
      at_ = 0;
      while (lowest != nullptr && at_ < rows_.size() && rows_[at_].index < *lowest) ++at_;
      if (at_ < rows_.size()) return;
      if (++fruitless < maxFruitless) continue;
      QTRACE(inetCidrRoutesTrace, 7) << "gives up after " << fruitless << " routes without a row";
      gaveUp_ = true;
      return;
    }
    if (!readNextPiece()) return;
  }
}

// Sets `rows_` to those of the route, in order.
void InetCidrRouteIterator::expand(const Route& route) {
  rows_.clear();
  if (!hasRows(isIpv6_, *mib_, route.type)) return;
  const auto& fec = mib_->fec(route.fecId);
  if (!fec.exists()) return;
  using Action = Routing::Fib::RouteAction;
  InetCidrRouteEntry row{
      {InetAddress::fromIpGenAddr(route.address), route.length, zeroDotZero, {}},
      0,
      route.action == Action::blackhole ? InetCidrRouteType::blackhole : InetCidrRouteType::reject,
      route.type,
      route.metric};
  if (route.action != Action::forward) {
    rows_.push_back(std::move(row));
    return;
  }
  for (const auto& via : fec.via) {
    if (!mib_->validIntf(via.intfId)) continue;
    row.index.nextHop = via.hop.isZero() ? InetAddress() : InetAddress::fromIpGenAddr(via.hop);
    row.ifIndex = via.intfId.empty() ? 0 : mib_->ifIndex(via.intfId);
    row.type = via.hop.isZero() ? InetCidrRouteType::local : InetCidrRouteType::remote;
    rows_.push_back(row);
  }
  if (rows_.size() < 2) return;
  const auto hopOf = [](const InetCidrRouteEntry& entry) { return std::tie(entry.index.nextHop, entry.ifIndex); };
  std::sort(rows_.begin(), rows_.end(), [&](const auto& a, const auto& b) { return hopOf(a) < hopOf(b); });
  const auto isSame = [&](const auto& a, const auto& b) { return hopOf(a) == hopOf(b); };
  rows_.erase(std::unique(rows_.begin(), rows_.end(), isSame), rows_.end());
  // The policy tells apart the interfaces of one next hop.
  for (auto at = rows_.begin(); at != rows_.end();) {
    const auto next =
        std::find_if(at, rows_.end(), [&](const auto& other) { return other.index.nextHop != at->index.nextHop; });
    if (next - at > 1) std::for_each(at, next, [](auto& entry) { entry.index.policy.append(entry.ifIndex); });
    at = next;
  }
  std::sort(rows_.begin(), rows_.end(), [](const auto& a, const auto& b) { return a.index < b.index; });
}

}  // namespace IpSnmp

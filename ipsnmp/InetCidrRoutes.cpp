#include "ipsnmp/InetCidrRoutes.h"

#include <bit>
#include <tuple>
#include <utility>

#include "kel/Trace.h"
#include "snmp/ObjectIdentifier.h"

namespace IpSnmp {

namespace {

Kel::TraceHandle inetCidrRoutesTrace("InetCidrRoutes");

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

bool hasRows(const IpForwardMib& mib, const Quillo::Fib::Route& route) {
  return mib.validRoute(route);
}

// Of attached hosts (type 3), which are neighbours, there are no rows.
bool hasRows(const IpForwardMib&, const Quillo::Fib6::Route& route) {
  const unsigned type = route.routeType.value();
  return type != 0 && type != 3;
}

constexpr std::array<std::uint32_t, 2> zeroDotZero{0, 0};

void setAddress(const Vantu::IpGenAddr& from, Ip::IpVersion& type, InetIndexAddress& address) {
  const bool isIpv6 = from.af() == Vantu::ipv6_;
  type = isIpv6 ? Ip::ipVersion6 : Ip::ipVersion4;
  address = isIpv6 ? InetIndexAddress(from.v6().bytes()) : InetIndexAddress(from.v4().bytes());
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const InetIndexAddress& address) {
  return out << Snmp::String(address.elements());
}

std::ostream& operator<<(std::ostream& out, const InetIndexPolicy& policy) {
  return out << '\'' << Snmp::ObjectIdentifier(policy.elements()).stringValue() << '\'';
}

std::ostream& operator<<(std::ostream& out, const InetCidrRouteIndex& index) {
  return out << "Value('" << InetCidrRouteIndex::kelTypeName
             << "', ** {'dest': " << InetAddress(index.destType, Snmp::String(index.dest.elements()))
             << ", 'length': " << index.length << ", 'policy': " << index.policy
             << ", 'nextHop': " << InetAddress(index.nextHopType, Snmp::String(index.nextHop.elements())) << "})";
}

InetCidrRouteIterator::InetCidrRouteIterator(Kel::Ptr<const IpForwardMib> mib)
    : InetCidrRouteIterator(std::move(mib), InetCidrRouteIndex()) {
}

InetCidrRouteIterator::InetCidrRouteIterator(Kel::Ptr<const IpForwardMib> mib, const InetCidrRouteIndex& index)
    : mib_(std::move(mib)) {
  if (!mib_) return;
  const auto version = index.destType;
  const auto size = index.dest.size();
  const bool isBehindIpv4 = version > Ip::ipVersion4 || (version == Ip::ipVersion4 && size > ipv4Bytes);
  const bool isBehindIpv6 = version > Ip::ipVersion6 || (version == Ip::ipVersion6 && size > ipv6Bytes);
  if (isBehindIpv6) return;
  isIpv6_ = isBehindIpv4;
  const auto bytes = index.dest.elements();
  bool isFound = false;
  if (isIpv6_) {
    const bool isAddress = version == Ip::ipVersion6 && size == ipv6Bytes;
    isFound = readRoute(mib_->route6Status().get(), mib_->routes6Ahead(),
                        isAddress ? lowestPrefix<Vantu::Ip6Prefix>(Vantu::Ip6Addr::fromBytes(bytes), index.length)
                                  : Vantu::Ip6Prefix(),
                        false);
  } else {
    const bool isAddress = version == Ip::ipVersion4 && size == ipv4Bytes;
    isFound = readRoute(
        mib_->routeStatus().get(), mib_->routesAhead(),
        isAddress ? lowestPrefix<Vantu::Prefix>(Vantu::IpAddr::fromBytes(bytes), index.length) : Vantu::Prefix(),
        false);
  }
  if (isFound || readFirstIpv6Route()) findRow(&index);
}

void InetCidrRouteIterator::advance() {
  if (isAtEnd() || ++at_ < rows_.size()) return;
  if (readNextRoute()) findRow(nullptr);
}

// Sets the rows to those of lower_bound(from) or, with `isAfter`, of upper_bound(from). False at the end of the table.
template <class Status>
bool InetCidrRouteIterator::readRoute(const Status* table, RoutesAhead<Status>& ahead,
                                      const typename Status::Key& from, bool isAfter) {
  const auto* const route = isAfter ? ahead.upperBound(table, from) : ahead.lowerBound(table, from);
  at_ = 0;
  rows_.clear();
  if (route == nullptr) return false;
  if constexpr (std::is_same_v<typename Status::Key, Vantu::Prefix>) {
    prefix_ = route->prefix;
  } else {
    prefix6_ = route->prefix;
  }
  expand(typename Status::Route(*route));  // reading the FEC may report damage, and so read the table
  return true;
}

// False if the walk is at the IPv6 routes already, or there are none.
bool InetCidrRouteIterator::readFirstIpv6Route() {
  if (std::exchange(isIpv6_, true)) return false;
  return readRoute(mib_->route6Status().get(), mib_->routes6Ahead(), Vantu::Ip6Prefix(), false);
}

bool InetCidrRouteIterator::readNextRoute() {
  if (isIpv6_) return readRoute(mib_->route6Status().get(), mib_->routes6Ahead(), prefix6_, true);
  return readRoute(mib_->routeStatus().get(), mib_->routesAhead(), prefix_, true) || readFirstIpv6Route();
}

// Moves to the first row from here on that is not below `lowest`.
void InetCidrRouteIterator::findRow(const InetCidrRouteIndex* lowest) {
  unsigned fruitless = 0;
  do {
    while (lowest != nullptr && at_ < rows_.size() && rows_[at_].index < *lowest) ++at_;
    if (at_ < rows_.size()) return;
    if (++fruitless < maxFruitless) continue;
    QTRACE(inetCidrRoutesTrace, 7) << "gives up after " << fruitless << " routes without a row";
    gaveUp_ = true;
    return;
  } while (readNextRoute());
}

// Sets `rows_` to those of the route, in order.
template <class Route>
void InetCidrRouteIterator::expand(const Route& route) {
  if (!hasRows(*mib_, route)) return;
  using Action = Routing::Fib::RouteAction;
  InetCidrRouteEntry row;
  setAddress(route.prefix.address(), row.index.destType, row.index.dest);
  row.index.length = route.prefix.length();
  row.index.policy = InetIndexPolicy(zeroDotZero);
  row.type = route.action == Action::blackhole ? InetCidrRouteType::blackhole : InetCidrRouteType::reject;
  row.protocol = route.routeType;
  row.metric = route.metric;
  const bool isForwarding = route.action == Action::forward;
  const auto& fec = mib_->fec(route.fecId);
  if (!fec.exists()) return;
  if (!isForwarding) {
    rows_.push_back(row);
    return;
  }
  for (const auto& via : fec.via) {
    const auto ifIndex = mib_->ifIndexOfHop(via.intfId);
    if (!ifIndex) continue;
    const bool isOnLink = via.hop.isZero();
    row.index.nextHopType = Ip::ipVersionUnknown;
    row.index.nextHop = {};
    if (!isOnLink) setAddress(via.hop, row.index.nextHopType, row.index.nextHop);
    row.ifIndex = *ifIndex;
    row.type = isOnLink ? InetCidrRouteType::local : InetCidrRouteType::remote;
    rows_.push_back(row);
  }
  if (rows_.size() < 2) return;
  const auto hopOf = [](const InetCidrRouteEntry& entry) {
    return std::tie(entry.index.nextHopType, entry.index.nextHop, entry.ifIndex);
  };
  std::sort(rows_.begin(), rows_.end(), [&](const auto& a, const auto& b) { return hopOf(a) < hopOf(b); });
  const auto isSame = [&](const auto& a, const auto& b) { return hopOf(a) == hopOf(b); };
  rows_.erase(std::unique(rows_.begin(), rows_.end(), isSame), rows_.end());
  // The policy tells apart the interfaces of one next hop.
  bool isAmbiguous = false;
  for (auto at = rows_.begin(); at != rows_.end();) {
    const auto next = std::find_if(at, rows_.end(), [&](const auto& other) {
      return other.index.nextHop != at->index.nextHop || other.index.nextHopType != at->index.nextHopType;
    });
    if (next - at > 1) {
      isAmbiguous = true;
      std::for_each(at, next, [](auto& entry) {
        entry.index.policy = InetIndexPolicy(std::array<std::uint32_t, 3>{0, 0, entry.ifIndex});
      });
    }
    at = next;
  }
  if (!isAmbiguous) return;
  std::sort(rows_.begin(), rows_.end(), [](const auto& a, const auto& b) { return a.index < b.index; });
}

}  // namespace IpSnmp

// The statistics of one VRF and IP version over tables in memory: random histories of routes and neighbours against a
// model that counts anew each time, and the cases that the histories leave out.

#include "fibstats/agent/FibStatsSm.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <map>
#include <random>
#include <set>

#include "brev/testing/TestClock.h"
#include "kel/testing/TraceLines.h"
#include "quillo/testing/TestArpTable.h"
#include "quillo/testing/TestFibTables.h"
#include "vantu/IntfId.h"

namespace FibStatsSnmp {
namespace {

using VrfId = Vrf::VrfIdMap::VrfId;

// The rows of one IP version: "total; type:count ...; length:count ...".
std::string rowsOf(const FibStatsMib& mib, Ip::IpVersion version) {
  const auto row = mib.summaryTable(version);
  std::string text = row ? std::to_string(row->totalRoutes()) + ";" : "none;";
  for (const auto& [key, entry] : mib.routeTypeTable()) {
    if (key.addressFamily() == version) text += fmt::format(" {}:{}", int{key.routeType()}, entry->totalRoutes());
  }
  text += ";";
  for (const auto& [key, entry] : mib.prefixLenTable()) {
    if (key.addressFamily() == version) {
      text += fmt::format(" {}:{}", key.prefixLen().value(), entry->totalRoutes());
    }
  }
  return text;
}

// A VRF "red", whose id is 7.
template <class Family>
struct FibStatsSmTest : Brev::SchedulerTest {
  using Prefix = typename Family::Prefix;
  using Route = typename Family::RouteStatus::Route;
  using Sm = std::conditional_t<Family::version == Ip::ipVersion4, FibStatsSm, Fib6StatsSm>;
  using ArpKey = Arp::Table::ArpKey;
  using ArpEntry = Arp::Table::ArpEntry;
  static constexpr bool isIp4 = Family::version == Ip::ipVersion4;
  // Numbers of the platform's route types.
  static constexpr unsigned skipped = 0, rip = isIp4 ? 10 : 6, bgp = isIp4 ? 22 : 9;

  static Vantu::IpGenAddr addr(unsigned n) {
    return Vantu::IpGenAddr::fromString(isIp4 ? fmt::format("10.{}.{}.{}", n >> 16U, (n >> 8U) & 255U, n & 255U)
                                              : fmt::format("2001:db8::{:x}:{:x}", n >> 16U, n & 65535U));
  }
  static Prefix host(unsigned n) { return Family::host(addr(n)); }
  static Prefix net(unsigned n) { return {host(n << 8U).address(), Family::hostLength - 8}; }
  static Route route(const Prefix& prefix, unsigned type) {
    Route made;
    made.prefix = prefix;
    made.routeType = Routing::Fib::RouteType(static_cast<std::uint8_t>(type));
    made.routePreference = Routing::RoutePreference(1);
    return made;
  }
  static ArpEntry neighbour(const Vantu::IpGenAddr& address, const char* intf, unsigned vrfId = 7) {
    ArpEntry entry;
    entry.key = {VrfId(vrfId), address, Vantu::IntfId(intf)};
    return entry;
  }

  void start() { sm = Kel::makePtr<Sm>(routes, arp, VrfId(7), config, mib); }
  void runTasks() {
    while (scheduler_->runReady()) {
    }
  }
  std::string rows() const { return rowsOf(*mib, Family::version); }

  Kel::Ptr<Quillo::TestRouteStatus<Prefix>> routes = Kel::makePtr<Quillo::TestRouteStatus<Prefix>>();
  Kel::Ptr<Arp::Table::TestStatus> arp = Kel::makePtr<Arp::Table::TestStatus>();
  Kel::Ptr<typename Family::Config> config = Kel::makePtr<typename Family::Config>("red");
  Kel::Ptr<FibStatsMib> mib = fibStatsMibFactory("red");
  Kel::Ptr<Sm> sm;

  // ---- what random histories are made of
  unsigned pick(unsigned count) { return static_cast<unsigned>(random() % count); }
  Route randomRoute() {
    const bool isHost = pick(2) == 0;
    const unsigned number = pick(isHost ? 12 : 6);
    return route(isHost ? host(firstHost + number) : net(number), (number * 2 + isHost) % 20);
  }
  ArpEntry randomNeighbour() {
    static constexpr const char* intfs[] = {"e1", "e2", "Management1"};
    return neighbour(addr(firstHost + pick(12)), intfs[pick(3)], 7 + pick(2));
  }
  std::map<Prefix, Route> randomRoutes() {
    std::map<Prefix, Route> table;
    const auto add = [&table](const Route& made) { table[made.prefix] = made; };
    for (unsigned n = pick(20); n > 0; --n) add(randomRoute());
    const unsigned others = pick(2) == 0 ? 0 : 2 * firstHost;
    for (unsigned n = 0; n < others; ++n) {
      if (n - firstHost >= 12) add(route(host(n), bgp));
    }
    return table;
  }
  std::vector<ArpEntry> randomNeighbours() {
    std::vector<ArpEntry> table(pick(20));
    std::ranges::generate(table, [this] { return randomNeighbour(); });
    return table;
  }

  // ---- the model: what the tables hold; a host that has a route and a neighbour may count as either
  bool isNeighbour(const Prefix& prefix) const {
    return std::ranges::any_of(neighbours, [&](const ArpKey& key) {
      return key.vrfId == vrfId && Family::host(key.addr) == prefix && key.intfId.text() != "Management1";
    });
  }
  std::string recount() const {
    static const std::set<unsigned> uncounted = isIp4 ? std::set{0U, 5U, 12U} : std::set{0U, 3U, 8U};
    std::map<Prefix, RouteType> counted;
    for (const auto& key : neighbours) {
      if (isNeighbour(Family::host(key.addr))) counted[Family::host(key.addr)] = routeTypeAttached;
    }
    for (const auto& [prefix, route] : routes->map) {
      if (uncounted.contains(route.routeType.value())) continue;
      counted[prefix] =
          counted.contains(prefix) ? sm->prefixRouteType().find(prefix).value() : sm->mibRouteType(route);
    }
    const auto fresh = fibStatsMibFactory("red");
    for (const auto& [prefix, type] : counted) fresh->routeInc(Family::version, type, prefix.length());
    return rowsOf(*fresh, Family::version);
  }

  // ---- the history
  void makeMachine() {
    vrfId = VrfId(7);
    start();
    sm->taskSchedulerIs(scheduler_);
  }
  void writeNeighbours(const std::vector<ArpEntry>& table) {
    neighbours.clear();
    for (const auto& entry : table) neighbours.insert(entry.key);
    arp->tableIs(table);
  }
  // The machine is made before the store is read; either table is told first.
  void restart() {
    sm = nullptr;
    routes->isInitialized = arp->isInitialized = false;
    makeMachine();
    routes->map = randomRoutes();
    writeNeighbours(randomNeighbours());
    const unsigned order = pick(3);
    if (order == 0) routes->initializedIs();
    if (order == 1) routes->isInitialized = true;
    arp->initializedIs();
    if (order == 2) {
      runTasks();
      EXPECT_EQ(rows(), "none;;") << "no neighbour counts before the routes are there";
    }
    if (order != 0) routes->initializedIs();
  }
  void tableStep() {
    const unsigned what = pick(5);
    if (what == 0) return restart();
    if (what == 1) {
      const auto id = std::array{VrfId(7), VrfId(8), VrfId()}[pick(3)];
      if (id == vrfId) return;
      sm->vrfIdIs(vrfId = id);
    } else if (what == 2) {
      routes = Kel::makePtr<Quillo::TestRouteStatus<Prefix>>();
      routes->map = randomRoutes();
      sm->routeStatusIs(routes);
    } else if (what == 3) {
      routes->map = randomRoutes();
      writeNeighbours(randomNeighbours());
      routes->tableIs(routes->map);
    } else {
      routes->tableIs(randomRoutes());
      writeNeighbours(randomNeighbours());
    }
  }
  // Outside reviews, hosts that have a route and a neighbour stay as they are: there the first of the two counts.
  void keyStep(bool isReviewComing = false) {
    const bool isAny = isReviewComing || sm->isReviewing(), isComing = pick(2) == 0;
    if (pick(2) == 0) {
      const auto route = randomRoute();
      if (isAny || !isNeighbour(route.prefix)) isComing ? routes->routeIs(route) : routes->routeDel(route.prefix);
      return;
    }
    auto entry = randomNeighbour();
    if (const auto next = neighbours.lower_bound(entry.key); !isComing && next != neighbours.end()) {
      entry.key = *next;
    }
    if (!isAny && routes->map.contains(Family::host(entry.addr()))) return;
    if (isComing) {
      neighbours.insert(entry.key);
      arp->entryIs(entry);
    } else {
      neighbours.erase(entry.key);
      arp->entryDel(entry.key);
    }
  }

  std::mt19937 random{20261121};
  static constexpr unsigned firstHost =
      600;  // every other table has as many further routes on either side of the hosts
  VrfId vrfId;
  std::set<ArpKey> neighbours;
};

using Families = testing::Types<Ip4Routes, Ip6Routes>;
TYPED_TEST_SUITE(FibStatsSmTest, Families, );

// Whatever is notified during a review in pieces.
TYPED_TEST(FibStatsSmTest, agreesWithACountFromScratch) {
  this->makeMachine();
  Kel::System::clockIs([this] { return this->now_ += 0.006; });  // a quantum is two looks at it
  unsigned interrupted = 0;
  for (int round = 0; round < 200; ++round) {
    for (int n = 0; n < 20; ++n) this->keyStep(true);
    this->tableStep();
    this->sm->handleRoute();
    for (unsigned n = this->pick(30); n > 0; --n) {
      this->pick(20) == 0 ? this->tableStep() : this->keyStep();
      if (this->pick(2) == 0) this->scheduler_->runReady();
      if (this->sm->isReviewing()) ++interrupted;
    }
    this->runTasks();
    ASSERT_FALSE(this->sm->isReviewing());
    ASSERT_EQ(this->rows(), this->recount()) << "after round " << round;
    for (int n = 0; n < 10; ++n) this->keyStep();
    ASSERT_EQ(this->rows(), this->recount()) << "after round " << round;
  }
  EXPECT_GT(interrupted, 100U);
  this->writeNeighbours({});
  this->routes->tableIs({});
  this->runTasks();
  EXPECT_EQ(this->rows(), "none;;");
}

TYPED_TEST(FibStatsSmTest, typesOfThePlatform) {
  const std::vector<int> types4{0,   205, 205, 205, 205, 0,  1,  3,  204, 205, 8, 2, 0,   14,
                                13,  13,  13,  13,  13,  13, 13, 14, 14,  14,  9, 9, 202, 3,
                                200, 200, 200, 200, 200, 1,  1,  1,  1,   1,   1, 1};
  const std::vector<int> types6{0, 205, 205, 0, 3, 205, 8, 2, 0, 14, 13, 13, 14, 9, 9, 202, 3, 1, 1, 1,
                                1, 1,   1,   1, 1, 1,   1, 1, 1, 1,  1,  1,  1,  1, 1, 1,   1, 1, 1, 1};
  this->config = nullptr;
  this->start();
  std::vector<int> types;
  for (unsigned t = 0; t < 40; ++t) {
    const auto route = this->route(this->net(0), t);
    types.push_back(this->sm->fibRouteFilter(route) ? 0 : int{this->sm->mibRouteType(route)});
  }
  EXPECT_EQ(types, this->isIp4 ? types4 : types6);
  EXPECT_EQ(this->sm->mibRouteType(this->route(this->net(0), 255)), routeTypeOther);
  EXPECT_EQ(this->sm->mibRouteType(this->route(this->net(0), this->isIp4 ? 5 : 3)), routeTypeAttached);
}

TYPED_TEST(FibStatsSmTest, staticRoutesAreWhatTheConfigurationSaysAndElseWhatTheySay) {
  this->start();
  // `facts` are configured for the preference 1.
  const auto typeOf = [this](const Routing::StaticRouteFacts& facts, std::uint8_t preference, bool isNexthopGroup,
                             bool isPersistent) {
    auto route = this->route(this->net(1), this->isIp4 ? 7 : 4);
    this->config->staticRouteIs({route.prefix, Routing::RoutePreference(1)}, facts);
    route.routePreference = Routing::RoutePreference(preference);
    route.isNexthopGroup = isNexthopGroup;
    route.isPersistent = isPersistent;
    return int{this->sm->mibRouteType(route)};
  };
  const Routing::StaticRouteFacts group(true, false), passing(false, false), lasting(false, true);
  EXPECT_EQ(
      (std::vector{typeOf(group, 1, false, true), typeOf(passing, 1, true, true), typeOf(lasting, 1, true, false)}),
      (std::vector{202, 201, 3}));
  EXPECT_EQ(
      (std::vector{typeOf(group, 2, false, true), typeOf(group, 2, false, false), typeOf(lasting, 2, true, false)}),
      (std::vector{3, 201, 202}));
  this->sm->routingConfigIs(nullptr);
  EXPECT_EQ(typeOf(group, 1, true, false), 3);
}

TYPED_TEST(FibStatsSmTest, traces) {
  KelTest::TraceLines traces("FibStatsSm");
  Vantu::MgmtIntfId::configuredIs({Vantu::IntfId("oob0")});
  const auto one = this->neighbour(this->addr(1), "red/e1");
  const std::string net = this->net(0).stringValue(), host = this->host(1).stringValue();
  const std::string address = one.addr().stringValue(), other = this->addr(2).stringValue();
  const std::string linkLocal = this->isIp4 ? "169.254.0.1" : "fe80::1",
                    uncounted = " are intentionally not counted";
  this->start();
  this->sm->taskSchedulerIs(this->scheduler_);
  this->routes->tableIs({});
  this->arp->tableIs({});
  this->runTasks();  // one review of both tables
  this->routes->routeIs(this->route(this->net(0), this->skipped));
  for (const auto type : {this->rip, this->bgp}) this->routes->routeIs(this->route(this->net(0), type));
  EXPECT_EQ(this->rows(), "1; 8:1; " + std::to_string(this->net(0).length()) + ":1") << "under its first type";
  this->routes->routeDel(this->net(0));
  this->routes->routeIs(this->route(this->host(1), this->rip));
  this->arp->entryIs(one);
  this->arp->entryDel(one.key);
  this->arp->entryIs(one);
  this->routes->routeDel(this->host(1));
  this->arp->entryIs(one);
  this->routes->routeIs(this->route(this->host(1), this->rip));
  this->routes->routeDel(this->host(1));
  this->arp->entryIs(this->neighbour(this->addr(2), "red/oob0"));
  this->arp->entryIs(this->neighbour(Vantu::IpGenAddr::fromString(linkLocal), "e1"));
  std::vector<std::string> expected;
  for (const char* table : {"FIB", "ARP", "FIB", "ARP"}) {
    expected.push_back(fmt::format("2 FibStatsMib: reviewing {} {} quillo", TypeParam::text, table));
  }
  const std::string come = " vrf=red add=1", gone = " vrf=red add=0", duplicate = " vrf=red is a duplicate";
  for (const auto& line : {"prefix=" + net + come,
                           "skip " + net + " type 0",
                           "prefix=" + net + come,
                           "prefix=" + net + come,
                           net + duplicate,
                           "prefix=" + net + gone,
                           "prefix=" + host + come,
                           "host=" + address + come,
                           host + duplicate,
                           "host=" + address + gone,
                           address + " not tracked as an attached route",
                           "host=" + address + come,
                           host + duplicate,
                           "prefix=" + host + gone,
                           "host=" + address + come,
                           "prefix=" + host + come,
                           host + duplicate,
                           "prefix=" + host + gone,
                           "host=" + other + come,
                           "routes using nexthop interface red/oob0" + uncounted,
                           "host=" + linkLocal + come}) {
    expected.push_back("6 FibStatsMib: " + line);
  }
  if (!this->isIp4)
    expected.push_back("6 FibStatsMib: routes using nexthop link-local address " + linkLocal + uncounted);
  EXPECT_EQ(traces.take(), expected);
  EXPECT_EQ(this->rows(), this->isIp4 ? "1; 203:1; 32:1" : "none;;") << "the neighbour is not counted instead";
  Vantu::MgmtIntfId::configuredIs({});
}

TYPED_TEST(FibStatsSmTest, reviewsTwoPiecesAtOnceAndTheRestInTasks) {
  constexpr std::size_t piece = TestFixture::Sm::pieceSize;
  for (unsigned n = 0; n < 3 * piece; ++n) this->routes->map[this->host(n)] = this->route(this->host(n), this->rip);
  this->start();
  EXPECT_EQ(this->sm->prefixRouteType().size(), 2 * piece);
  this->sm->taskSchedulerIs(this->scheduler_);
  EXPECT_EQ(this->scheduler_->tasks().at(0)->name(), fmt::format("fibStats {} review VRF:red", TypeParam::text));
  this->runTasks();
  EXPECT_EQ(this->sm->prefixRouteType().size(), 3 * piece);
  for (unsigned n = 0; n < 3 * piece; ++n) ASSERT_TRUE(this->sm->prefixRouteType().find(this->host(n))) << n;
  for (unsigned n = 0; n < piece; ++n) this->routes->map.erase(this->host(3 * n));
  this->sm->handleRoute();
  this->runTasks();
  for (unsigned n = 0; n < 3 * piece; ++n)
    ASSERT_EQ(this->sm->prefixRouteType().find(this->host(n)).has_value(), n % 3 != 0) << n;
}

TYPED_TEST(FibStatsSmTest, damageChangesNoCount) {
  const auto entry = this->neighbour(this->addr(1), "e1");
  this->routes->routeIs(this->route(this->host(0), this->rip));
  this->arp->entryIs(entry);
  this->mib->routeInc(TypeParam::version, routeTypeVcs, 1);  // what another machine has left
  this->start();
  const auto before = fmt::format("2; 8:1 203:1; {}:2", TypeParam::hostLength);
  this->routes->damage = this->arp->damage = "broken";
  this->routes->routeDel(this->host(0));
  this->arp->entryDel(entry.key);
  this->sm->handleRoute();
  this->arp->tableIs({});
  EXPECT_EQ(this->rows(), before);
  EXPECT_FALSE(this->routes->reports.empty() || this->arp->reports.empty());
  this->routes->damage.reset();
  this->arp->damage.reset();
  this->sm->kelStop();
  this->routes->tableIs({});
  EXPECT_EQ(this->rows(), before) << "a stopped machine leaves the counts";
  this->sm = Kel::makePtr<typename TestFixture::Sm>(nullptr, nullptr, VrfId(7), nullptr, this->mib);
  EXPECT_EQ(this->rows(), "none;;") << "without tables nothing counts";
}

}  // namespace
}  // namespace FibStatsSnmp

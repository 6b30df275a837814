// Routes, from the kernel's messages to the store's tables.

#include <gmock/gmock.h>

#include <filesystem>
#include <random>

#include "mirror/publish/TreePublisher.h"
#include "mirror/testing/NamespaceMirrorTest.h"
#include "mirror/testing/TestRouteLines.h"

namespace Mirror {
namespace {

using namespace Test;

class RoutesTest : public NamespaceMirrorTest {
 protected:
  RoutesTest() {
    kernel_.links[3] = {3, "eth1"};
    kernel_.links[9] = {9, "red"};
    kernel_.links[10] = {10, "blue"};  // which shares red's table
    kernel_.links[9].vrfTable = kernel_.links[10].vrfTable = 1001;
  }
  ~RoutesTest() override { std::filesystem::remove_all(store_); }

  // As the service does it, with commits in between.
  void run() {
    for (bool mayMoreWait = true; mayMoreWait;) {
      mayMoreWait = mirror_.receive();
      if (mirror_.isComplete()) {
        mayMoreWait |= !publisher_.publish();
      } else {
        publisher_.publishRoutes();
      }
      mayMoreWait |= publisher_.isMorePending();
    }
  }
  // Until the mirror has nothing left to ask.
  void runUntilQuiet() {
    run();
    for (int i = 0; mirror_.due() && i < 100; ++i) {
      now_ += 1;
      mirror_.poll();
      run();
    }
  }
  RouteLines expectation() const {
    VrfsByTable vrfs{{254, 0}};
    for (const auto& [name, id] : tree_.vrfNameStatus->vrfId()) {
      if (!name.isDefault()) vrfs.emplace(1001, id.value());
    }
    return expectedRouteLines(kernel_, vrfs);
  }
  void runAndCompare() {
    run();
    EXPECT_EQ(routeLines(store_), expectation());
  }

  std::string store_ = "/dev/shm/qm-routes-" + std::to_string(getpid());
  TreePublisher publisher_{picture_, {.directory = store_, .name = "mirror_test"}};
};

TEST_F(RoutesTest, ofEveryKind) {
  kernel_.routes.list = {{"0.0.0.0/0", {{"10.0.0.1"}}},
                         {"10.0.0.0/24", {{""}}, 0, RTPROT_KERNEL},
                         {"10.1.0.0/16", {{"10.0.0.1"}, {"10.0.0.2", 3}}},
                         {"10.2.0.0/16", {}, 0, RTPROT_STATIC, RTN_BLACKHOLE},
                         {"10.3.0.0/16", {{"2001:db8::9"}}},
                         {"2001:db8::/32", {{"fe80::1"}, {"fe80::2", 3}}, 1024},
                         {"2001:db9::/32", {{"", 1}}, 1024, 188, RTN_UNREACHABLE},
                         {"10.9.0.0/16", {{"", 9}}, 0, 186, RTN_UNICAST, 0, 1001},
                         {"10.9.0.0/16", {}, 0, RTPROT_STATIC, RTN_LOCAL},
                         {"10.9.0.0/16", {}, 0, RTPROT_STATIC, RTN_THROW, 0, 1001}};
  mirror_.start();
  run();
  std::erase_if(kernel_.routes.list, [](const auto& r) { return r.type == RTN_LOCAL || r.type == RTN_THROW; });
  EXPECT_EQ(routeLines(store_).size(), 9U);
  EXPECT_EQ(routeLines(store_), expectation());

  auto& routes = kernel_.routes;
  routes.routeIs({"10.1.0.0/16", {{"10.0.0.1"}, {"10.0.0.3", 3}}}, NLM_F_REPLACE);
  routes.routeIs({"10.1.0.0/16", {{"10.0.0.7"}}}, NLM_F_APPEND);
  routes.routeIs({"10.1.0.0/16", {{"10.0.0.8"}}}, 0);
  routes.routeIs({"10.1.0.0/16", {{"10.0.0.4"}}, 7, 189});
  routes.routeIs({"10.1.0.0/16", {{"10.0.0.5"}}, 0, 187, RTN_UNICAST, 0, 254, 16});
  routes.routeIs({"2001:db8::/32", {{"fe80::3"}}, 1024}, NLM_F_APPEND);
  runAndCompare();
  // One after the other goes, and the next one takes over.
  while (!routes.list.empty()) {
    const bool isMultipath = routes.list.front().isIpv6() && routes.list.front().hops.size() > 1;
    isMultipath ? routes.hopDel(0) : routes.routeDel(0);
    runAndCompare();
  }
  EXPECT_FALSE(mirror_.due()) << "notifications alone did it";
}

TEST_F(RoutesTest, ofStaticRoutesTheKind) {
  auto& routes = kernel_.routes;
  routes.nexthops = {{1, {1, {"10.0.0.1"}}}, {2, {2, {"fe80::1"}}}};
  for (const std::string prefix : {"10.1.0.0/16", "2001:db8::/32"}) {
    routes.list.push_back({prefix, {{prefix == "10.1.0.0/16" ? "10.0.0.1" : "fe80::1"}}});
  }
  mirror_.start();
  runAndCompare();
  // All through the same next hop.
  const auto before = publisher_.store().seq();
  for (const int protocol : {RTPROT_BOOT, RTPROT_STATIC, 196, 186}) {
    for (const bool isObject : {true, false}) {
      for (auto route : std::vector<TestRoute>(routes.list)) {
        route.protocol = static_cast<std::uint8_t>(protocol);
        route.nexthopId = !isObject ? 0U : route.isIpv6() ? 2U : 1U;
        route.hops = {};
        if (!isObject) route.hops.push_back({route.isIpv6() ? "fe80::1" : "10.0.0.1"});
        routes.routeIs(route, NLM_F_REPLACE);
      }
      runAndCompare();
    }
  }
  EXPECT_EQ(publisher_.store().seq(), before + 2 * 5) << "none for FRR's, whose next-hop objects mean nothing";
  mirror_.reread();
  run();
  EXPECT_EQ(publisher_.store().seq(), before + 2 * 5);
  EXPECT_EQ(routeLines(store_), expectation());
}

TEST_F(RoutesTest, thoseOfOneNextHopShareAFecAcrossRestarts) {
  for (int number = 0; number < 200; ++number) {
    kernel_.routes.list.push_back({"10.0." + std::to_string(number) + ".0/24", {{"10.0.0.1"}, {"10.0.0.2", 3}}});
  }
  kernel_.routes.list.push_back({"10.9.0.0/16", {{"10.0.0.2", 3}, {"10.0.0.1"}}, 0, 186});
  kernel_.routes.list.push_back({"2001:db8::/32", {{"fe80::1"}}, 1024});
  mirror_.start();
  runAndCompare();
  const auto* main = mirror_.routes().table(254);
  EXPECT_EQ(main->contents().contentCount(), 3U);
  EXPECT_EQ(main->contents().fecCount(), 2U);
  const auto before = publisher_.store().seq();
  mirror_.reread();
  run();
  EXPECT_EQ(publisher_.store().seq(), before) << "a list that says the same";
}

TEST_F(RoutesTest, whatTheKernelTakesAwayWithoutAWord) {
  auto& routes = kernel_.routes;
  routes.list = {{"10.1.0.0/16", {{"10.0.0.1"}, {"10.0.0.2", 3}}}, {"10.2.0.0/16", {{"10.0.0.2", 3}}}};
  routes.nexthops = {{1, {1, {"10.0.0.1"}}}, {2, {2, {"10.0.0.2", 3}}}, {5, {5, {}, {1, 2}}}};
  routes.list.push_back({"10.3.0.0/16", {}, 0, RTPROT_STATIC, RTN_UNICAST, 5});
  routes.list.push_back({"10.4.0.0/16", {}, 0, RTPROT_STATIC, RTN_UNICAST, 2});
  mirror_.start();
  runAndCompare();
  routes.nexthopIs({1, {"10.0.0.7"}});  // replaced, and no word of its routes
  runAndCompare();
  kernel_.linkIs({3, "eth1", 0, IF_OPER_DOWN});
  routes.linkDown(3);
  runUntilQuiet();
  runAndCompare();
  kernel_.linkIs({3, "eth1"});
  routes.linkUp(3);
  runUntilQuiet();
  runAndCompare();
  EXPECT_EQ(routeLines(store_).size(), 2U);
  routes.nexthopDel(1);
  runAndCompare();
  const auto listings = mirror_.routes().listings();
  for (int i = 0; i < 100; ++i) kernel_.linkIs({1, "lo", i % 2 ? IFF_UP | IFF_RUNNING : 0U});
  runUntilQuiet();
  EXPECT_LE(mirror_.routes().listings(), listings + 3) << "of no concern to any route";
  kernel_.linkIs({3, "lan"});
  runAndCompare();
}

TEST_F(RoutesTest, aLongListingDoesNotPutOffTheNextOne) {
  kernel_.routes.list = {{"10.1.0.0/16", {{"10.0.0.1"}}}, {"10.2.0.0/16", {{"10.0.0.2", 3}}}};
  mirror_.start();
  run();
  for (const Kel::Seconds perDatagram : {0.01, 0.5, 5.0}) {
    kernel_.linkIs({3, "eth1", 0, IF_OPER_DOWN});
    run();
    now_ = *mirror_.due();
    kernel_.beforeReceive = [&] { now_ += perDatagram; };
    const Kel::Seconds begun = now_;
    run();
    const Kel::Seconds took = now_ - begun;
    kernel_.beforeReceive = [] {};
    kernel_.linkIs({3, "eth1"});
    run();
    EXPECT_LE(*mirror_.due() - now_, std::max(2.0, took / 2)) << "after one of " << took << " s";
    runUntilQuiet();
  }
}

// What is said of very many routes' next hops at once costs one look at the routes.
TEST(NamespaceRoutesTest, workOffATurnsEventsTogether) {
  PublishedRoutes published;
  unsigned resolved = 0;
  NamespaceRoutes routes(published, [&](std::uint32_t) {
    ++resolved;
    return Vantu::IntfId("eth0");
  });
  routes.tablesAre({{{254}, std::nullopt}});
  RouteMessage route;
  route.table = 254;
  route.address = Vantu::IpGenAddr::fromString("10.0.0.0");
  route.content.af = Vantu::ipv4_;
  route.content.type = RTN_UNICAST;
  route.content.nexthopId = 2;
  for (std::uint8_t length = 8; length < 32; ++length) {
    route.length = route.content.protocol = length;
    routes.notified(route);
  }
  const auto nexthopsAre = [&](int count) {
    resolved = 0;
    for (int i = 1; i <= count; ++i) {
      const auto gateway = Vantu::IpGenAddr::fromString("10.0.0." + std::to_string(i));
      routes.notified(NexthopMessage{false, 1, false, {gateway, 2}, {}});
      routes.notified(NexthopMessage{false, 2, false, {}, {1}});
    }
    routes.settle();
    return resolved;
  };
  const auto once = nexthopsAre(1);
  EXPECT_GE(once, 24U);
  EXPECT_EQ(nexthopsAre(1), 0U) << "nothing new";
  EXPECT_EQ(nexthopsAre(100), once);
  EXPECT_EQ(routes.table(254)->contents().fecCount(), 1U);
}

class RouteHistory : public RoutesTest, public testing::WithParamInterface<unsigned> {
 protected:
  int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }
  bool oneIn(int count) { return below(count) == 0; }

  TestHop anyHop(bool isIpv6) {
    const std::string gateway = (isIpv6 ? "fe80::" : "10.0.0.") + std::to_string(1 + below(4));
    return {oneIn(4) ? "" : gateway, 2 + below(2)};
  }
  TestRoute anyRoute() {
    const bool isIpv6 = oneIn(2);
    TestRoute route;
    route.prefix = (isIpv6 ? "2001:db" : "10.") + std::to_string(below(9)) + (isIpv6 ? "::/32" : ".0.0/16");
    route.metric = static_cast<std::uint32_t>(below(3));
    route.tos = !isIpv6 && oneIn(6) ? 16 : 0;
    route.table = oneIn(4) ? 1001 : 254;
    route.protocol = static_cast<std::uint8_t>(185 + below(15));
    if (oneIn(8)) {
      route.type = RTN_BLACKHOLE;
    } else if (oneIn(4) && !kernel_.routes.nexthops.empty()) {
      route.nexthopId =
          std::next(kernel_.routes.nexthops.begin(), below(static_cast<int>(kernel_.routes.nexthops.size())))
              ->first;
    } else {
      std::set<TestHop> hops;
      for (int count = 1 + below(3); count > 0; --count) hops.insert(anyHop(isIpv6));
      if (hops.begin()->gateway.empty()) hops.erase(std::next(hops.begin()), hops.end());
      route.hops = {hops.begin(), hops.end()};
    }
    return route;
  }
  void change() {
    static const std::uint16_t flags[] = {NLM_F_EXCL, NLM_F_EXCL, NLM_F_APPEND, NLM_F_REPLACE, 0};
    auto& routes = kernel_.routes;
    const int ifIndex = 2 + below(2);
    switch (below(12)) {
      case 0:
        isUp_[ifIndex] = !isUp_[ifIndex];
        kernel_.linkIs({ifIndex, "eth" + std::to_string(ifIndex), isUp_[ifIndex] ? 1U : 0U});
        isUp_[ifIndex] ? routes.linkUp(ifIndex) : routes.linkDown(ifIndex);
        break;
      case 1:
        if (routes.nexthops.size() < 4 && isUp_[ifIndex])
          routes.nexthopIs({static_cast<std::uint32_t>(1 + below(4)), {"10.0.0.9", ifIndex}});
        break;
      case 2:
        if (!routes.nexthops.empty() && oneIn(2)) routes.nexthopDel(routes.nexthops.begin()->first);
        break;
      case 3:
      case 4:
      case 5:
        if (!routes.list.empty()) {
          const auto index = static_cast<std::size_t>(below(static_cast<int>(routes.list.size())));
          const bool isMultipath = routes.list[index].isIpv6() && routes.list[index].hops.size() > 1;
          isMultipath&& oneIn(2) ? routes.hopDel(index) : routes.routeDel(index);
        }
        break;
      default: {
        TestRoute route = anyRoute();
        // The kernel takes none through a link that is down.
        if (std::all_of(route.hops.begin(), route.hops.end(),
                        [&](const auto& hop) { return isUp_[hop.ifIndex]; })) {
          routes.routeIs(route, flags[below(5)]);
        }
      }
    }
  }

  std::mt19937 random_{GetParam()};
  std::map<int, bool> isUp_{{2, true}, {3, true}};
};

TEST_P(RouteHistory, endsInWhatTheKernelHas) {
  for (int i = 0; i < 40; ++i) change();
  kernel_.isPieceLate = [this] {
    if (oneIn(10)) change();  // the piece is ready, and this comes first
    return oneIn(3);
  };
  kernel_.objectsPerPiece = static_cast<std::size_t>(1 + below(5));
  mirror_.start();
  for (int round = 0; round < 12; ++round) {
    for (int count = below(20); count > 0; --count) {
      kernel_.queueLimit = oneIn(30) ? 0 : SIZE_MAX;
      change();
    }
    kernel_.queueLimit = SIZE_MAX;
    if (oneIn(3)) continue;
    run();
    now_ += below(2);
    mirror_.poll();
    const auto lines = routeLines(store_);
    EXPECT_TRUE(std::none_of(lines.begin(), lines.end(), [](const std::string& line) {
      return line.find("FEC") != std::string::npos;
    })) << testing::PrintToString(lines);
  }
  kernel_.isPieceLate = [] { return false; };
  runUntilQuiet();
  ASSERT_EQ(routeLines(store_), expectation()) << "seed " << GetParam();
}

INSTANTIATE_TEST_SUITE_P(Seeds, RouteHistory, testing::Range(1U, 13U));

}  // namespace
}  // namespace Mirror

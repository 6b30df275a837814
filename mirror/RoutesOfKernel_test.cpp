// Routes of a real kernel, as iproute2 lists them, against those in the store.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mirror/testing/MirrorServiceTest.h"
#include "mirror/testing/TestRouteLines.h"

namespace Mirror {
namespace {

using namespace Test;
using nlohmann::json;

class RoutesOfKernelTest : public MirrorServiceTest {
 protected:
  void SetUp() override {
    MirrorServiceTest::SetUp();
    if (IsSkipped()) return;
    ip("link add eth1 type veth peer name eth1-p");
    for (const char* link : {"eth1", "eth1-p"}) ip(std::string("link set up dev ") + link);
    for (const char* address : {"10.0.0.1/24 dev eth0", "10.1.0.1/24 dev eth1", "2001:db8::1/64 dev eth0 nodad",
                                "2001:db8:1::1/64 dev eth1 nodad"}) {
      ip(std::string("addr add ") + address);
    }
  }

  using IfIndexes = std::map<std::string, int>;
  static bool isDead(const json& entry) {
    for (const auto& flag : entry.value("flags", json::array())) {
      if (flag == "dead" || flag == "linkdown") return true;
    }
    return false;
  }
  static TestHop hopOf(const json& entry, const IfIndexes& ifIndexes) {
    TestHop hop{"", ifIndexes.at(entry.at("dev")), isDead(entry)};
    if (entry.contains("gateway")) hop.gateway = entry.at("gateway");
    if (entry.contains("via")) hop.gateway = entry.at("via").at("host");
    return hop;
  }
  static void addRoutes(FakeKernel& kernel, const IfIndexes& ifIndexes, const std::string& table, bool isIpv6) {
    const std::string list = std::string("ip -N -j ") + (isIpv6 ? "-6" : "-4") + " route show table " + table;
    for (const auto& entry : json::parse(outputOf(list + " 2>/dev/null || echo []"))) {
      TestRoute route;
      route.prefix = entry.at("dst").get<std::string>();
      if (route.prefix == "default") route.prefix = isIpv6 ? "::/0" : "0.0.0.0/0";
      if (route.prefix.find('/') == std::string::npos) route.prefix += isIpv6 ? "/128" : "/32";
      route.metric = entry.value("metric", 0U);
      route.protocol = static_cast<std::uint8_t>(std::stoul(entry.value("protocol", std::string("3"))));
      if (entry.contains("type"))
        route.type = static_cast<std::uint8_t>(std::stoul(entry.at("type").get<std::string>()));
      route.table = static_cast<std::uint32_t>(std::stoul(table));
      route.nexthopId = entry.value("nhid", 0U);
      if (entry.contains("tos"))
        route.tos = static_cast<std::uint8_t>(std::stoul(entry.at("tos").get<std::string>(), nullptr, 0));
      if (route.nexthopId == 0 && entry.contains("nexthops")) {
        for (const auto& hop : entry.at("nexthops")) route.hops.push_back(hopOf(hop, ifIndexes));
      } else if (route.nexthopId == 0 && entry.contains("dev")) {
        route.hops.push_back(hopOf(entry, ifIndexes));
      }
      kernel.routes.list.push_back(route);
    }
  }
  RouteLines kernels() const {
    FakeKernel kernel = kernelOf();
    IfIndexes ifIndexes;
    for (const auto& [ifIndex, link] : kernel.links) ifIndexes[link.name] = ifIndex;
    for (const auto& entry : json::parse(outputOf("ip -j nexthop"))) {
      TestNexthop& nexthop = kernel.routes.nexthops[entry.at("id").get<std::uint32_t>()];
      for (const auto& member : entry.value("group", json::array())) nexthop.members.push_back(member.at("id"));
      if (nexthop.members.empty()) nexthop.hop = hopOf(entry, ifIndexes);
    }
    for (const auto& [table, vrf] : vrfs_) {
      for (const bool isIpv6 : {false, true}) addRoutes(kernel, ifIndexes, std::to_string(table), isIpv6);
    }
    return expectedRouteLines(kernel, vrfs_);
  }
  void expectRoutes() {
    RouteLines ours, theirs;
    waitFor([&] { return (ours = routeLines(store_)) == (theirs = kernels()); }, "the kernel's routes", 5000);
    EXPECT_EQ(ours, theirs);
  }
  // Of the tables: the journal's number of the latest change in each.
  std::vector<std::uint64_t> versions() const {
    const auto mount = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{store_});
    mount->refresh();
    std::vector<std::uint64_t> all;
    for (const auto table : {Quillo::TableId::route, Quillo::TableId::route6, Quillo::TableId::fec}) {
      all.push_back(mount->snapshot().tableState(table).version);
    }
    return all;
  }
  void doAndExpect(std::initializer_list<const char*> commands) {
    for (const char* command : commands) {
      SCOPED_TRACE(command);
      ip(command);
      expectRoutes();
    }
  }

  VrfsByTable vrfs_{{254, 0}};
};

TEST_F(RoutesOfKernelTest, asTheyComeAndGo) {
  ip("route add 20.0.0.0/8 via 10.0.0.2 proto bgp");
  start();
  EXPECT_TRUE(isInStore("l3/config", "fecModePerVrf"));
  expectRoutes();
  doAndExpect({"route add 21.0.0.0/8 nexthop via 10.0.0.2 nexthop via 10.1.0.2", "route add blackhole 22.0.0.0/8",
               "route add 23.0.0.0/8 dev eth1 scope link", "route add 24.0.0.0/8 via inet6 2001:db8::9",
               "route replace 20.0.0.0/8 via 10.1.0.9 proto static", "route append 20.0.0.0/8 via 10.1.0.8",
               "route prepend 20.0.0.0/8 via 10.1.0.7", "route add 20.0.0.0/8 via 10.0.0.9 metric 50",
               "route del 20.0.0.0/8 via 10.1.0.7", "route flush 20.0.0.0/8", "route add default via 10.0.0.3",
               "-6 route add 2001:1::/32 via 2001:db8::2", "-6 route append 2001:1::/32 via 2001:db8:1::2",
               "-6 route append 2001:1::/32 nexthop via 2001:db8::4 nexthop via 2001:db8:1::5",
               "-6 route del 2001:1::/32 via 2001:db8::2", "-6 route add unreachable 2001:2::/32",
               "-6 route replace 2001:1::/32 nexthop via 2001:db8::7 nexthop via 2001:db8:1::7",
               "-6 route add 2001:1::/32 dev eth0 metric 5", "-6 route del 2001:1::/32 metric 1024"});
  doAndExpect({"route add 25.0.0.0/8 via 10.0.0.9", "route replace 25.0.0.0/8 via 10.0.0.9 proto static",
               "nexthop add id 7 via 10.0.0.9 dev eth0", "route replace 25.0.0.0/8 nhid 7 proto static"});
  EXPECT_EQ(service_->mirror().routes().listings(), 1U) << "notifications alone did it";
  const auto before = versions();
  service_.reset();
  start();
  expectRoutes();
  EXPECT_EQ(versions(), before) << "nothing has changed";
}

TEST_F(RoutesOfKernelTest, takenAwayWithoutAWord) {
  start();
  for (const char* mode : {"1", "0"}) {
    std::ofstream("/proc/sys/net/ipv4/nexthop_compat_mode") << mode;
    ip("nexthop add id 1 via 10.0.0.8 dev eth0");
    ip("nexthop add id 2 via 10.1.0.8 dev eth1");
    ip("nexthop add id 10 group 1/2");
    ip("route add 31.0.0.0/8 nhid 10");
    ip("route add 32.0.0.0/8 nhid 2");
    ip("route replace 33.0.0.0/8 nexthop via 10.0.0.2 nexthop via 10.1.0.2");
    ip("route replace 34.0.0.0/8 via 10.0.0.2 src 10.1.0.1");
    ip("-6 route replace 2001:3::/32 nexthop via 2001:db8::7 nexthop via 2001:db8:1::7");
    expectRoutes();
    doAndExpect({"nexthop replace id 2 via 10.1.0.9 dev eth1", "nexthop del id 2", "addr del 10.1.0.1/24 dev eth1",
                 "addr add 10.1.0.1/24 dev eth1",
                 "route replace 33.0.0.0/8 nexthop via 10.0.0.2 nexthop via 10.1.0.2", "link set eth1-p down",
                 "link set eth1-p up", "link set eth1 down", "link set eth1 up", "link set eth0 down",
                 "link set eth0 up", "addr add 2001:db8::1/64 dev eth0 nodad",
                 "addr add 2001:db8:1::1/64 dev eth1 nodad"});
  }
  ip("route add 35.0.0.0/8 via 10.1.0.3");
  doAndExpect({"link set eth1 name lan", "link del lan"});
}

TEST_F(RoutesOfKernelTest, veryManyAndAnOverrun) {
  constexpr int count = 10'000;
  std::vector<std::string> lines;
  for (int number = 0; number < count; ++number) {
    lines.push_back("route add 50." + std::to_string(number / 256) + "." + std::to_string(number % 256) +
                    ".0/24 via 10.0.0." + std::to_string(2 + number % 3));
  }
  ipBatch(lines);
  start(1);
  EXPECT_EQ(service_->mirror().routes().routes(), count + 8U);
  const auto before = journalHead();
  for (auto& line : lines) line.replace(line.find("add"), 3, "replace");
  for (std::size_t i = 0; i < 100; ++i) lines[i] = "route del 50.0." + std::to_string(i) + ".0/24";
  ipBatch(lines);
  waitFor([&] { return service_->mirror().routes().routes() == count - 100 + 8U; }, "the deletions");
  EXPECT_GT(service_->mirror().overruns(), 0U) << "or this test tests nothing";
  const auto mount = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{store_});
  mount->refresh();
  const auto snapshot = mount->snapshot();
  std::size_t count4 = 0;
  for (auto scan = snapshot.scan(Quillo::TableId::route); scan.valid(); scan.next()) {
    ++count4;
    EXPECT_LE(scan.seq(), before) << "written though nothing has changed";
  }
  EXPECT_EQ(count4, count - 100 + 2U);
}

}  // namespace
}  // namespace Mirror

// From a kernel's messages to the store, with a kernel that the tests make up.

#include <cerrno>
#include <fstream>

#include "mirror/testing/NamespaceMirrorTest.h"

namespace Mirror {
namespace {

using namespace Test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(NamespaceMirrorTest, aNamespaceComesAndGoesAsAWhole) {
  kernel_.addresses = otherKernel_.addresses = {at(2, "10.0.0.1/24"), at(2, "2001:db8::1/64")};
  otherKernel_.neighbours = {neighbour(2, "10.0.0.9")};
  otherKernel_.routes = {{"10.1.0.0/16", {{"10.0.0.9"}}}, {"10.2.0.0/16", {{"10.0.0.9"}}}};
  mirror_->start();
  EXPECT_THAT(linesOf(*picture_), IsEmpty()) << "an incomplete picture is not shown";
  runAndCompare();
  const Lines ofDefault = shown();
  // How many records of the VRF the store has. A reader never sees a part of a VRF, whenever there is a commit.
  const auto records = [this] {
    auto count = static_cast<unsigned>(neighbourLines(mount()->snapshot()).size());
    for (const char* path :
         {"ip/vrf/local.vrf/red", "ip/vrf/config.vrfConfig/red", "routing/vrf/info/red",
          "interface/status.intfStatus/red/lo", "ip6/config.intf/red/eth0", "l3/intf/config.intfConfig/red/eth0"}) {
      count += publisher_->store().get(Quillo::TableId::varnix, path) ? 1U : 0U;
    }
    return count;
  };
  otherKernel_.objectsPerPiece = 1;  // so that the dump takes several turns
  for (int n = 0; n < 300; ++n) {
    otherKernel_.addresses.push_back(at(1, fmt::format("10.2.{}.{}/32", n / 200, n % 200)));
  }
  std::set<unsigned> counts;
  otherKernel_.beforeReceive = [&] {
    publisher_->publish();
    counts.insert(records());
  };
  startOther("red");
  EXPECT_EQ(shown(), ofDefault);
  runAndCompare();
  EXPECT_EQ(counts, (std::set<unsigned>{0, 7}));
  EXPECT_EQ(other_->routes().table(254)->contents().contentCount(), 1U) << "shared by the routes";
  otherKernel_.notify(describeForwarding(Message(RTM_NEWNETCONF), Vantu::ipv4_, NETCONFA_IFINDEX_ALL, 1));
  run();
  EXPECT_TRUE(tree().routingVrfConfigDir->vrfConfig("red")->routing());
  EXPECT_FALSE(tree().routing6VrfConfigDir->vrfConfig("red")->routing() || tree().routingConfig->routing());
  withdrawOther();
  run();
  EXPECT_EQ(records(), 0U);
  EXPECT_EQ(shown(), ofDefault);
  EXPECT_TRUE(tree().allVrfStatusGlobal->vrf().empty() && tree().routing6VrfInfoDir->entityPtr().empty());
  EXPECT_TRUE(tree().routingVrfConfigDir->vrfConfig().empty() && tree().routing6VrfConfigDir->vrfConfig().empty());
  EXPECT_THAT(traces_.lines, IsEmpty());
}

TEST_F(NamespaceMirrorTest, theFirstAddressStaysFirstUntilItGoes) {
  kernel_.addresses = {at(2, "10.0.0.5/24"), at(2, "10.0.0.7/24"), at(2, "10.0.0.6/24")};
  startAndRun();
  EXPECT_EQ(primary("eth0"), "10.0.0.5/24");
  kernel_.addressIs(at(2, "10.0.0.1/24"));
  kernel_.addressDel(at(2, "10.0.0.6/24"));
  kernel_.addressIs(at(2, "10.0.0.7/24"));  // another lifetime, say
  run();
  EXPECT_EQ(primary("eth0"), "10.0.0.5/24");
  kernel_.addressDel(at(2, "10.0.0.5/24"));
  run();
  EXPECT_EQ(primary("eth0"), "10.0.0.7/24") << "the one that has been there longest";
}

TEST_F(NamespaceMirrorTest, oddMessagesChangeNothing) {
  kernel_.addresses = {at(2, "10.0.0.1/24")};
  kernel_.links[5] = {5, "red", IFF_UP, IF_OPER_UP, std::nullopt, 0, 1001};
  kernel_.links[2].master = 5;
  startAndRun();
  for (const int ifIndex : {2, 99}) {
    const ifinfomsg header{AF_UNSPEC, 0, 0, ifIndex, IFF_UP | IFF_RUNNING, 0};
    kernel_.notify(Message(RTM_NEWLINK).fixed(header).attribute(IFLA_WIRELESS, Bytes{1}));
  }
  kernel_.notify(describe(Message(RTM_DELADDR), at(2, "10.0.0.77/24")));
  kernel_.notify(describe(Message(RTM_DELLINK), TestLink{98, "gone"}));
  kernel_.notify(describe(Message(RTM_NEWADDR, 0, 1, FakeKernel::port), at(2, "10.6.6.6/24")));  // of an old dump
  kernel_.notify(describe(Message(RTM_NEWADDR), at(2, "0.0.0.0/8")));
  runAndCompare();
  EXPECT_THAT(traces_.lines, IsEmpty());

  Bytes lying = describe(Message(RTM_NEWADDR), at(2, "10.6.6.6/24")).bytes();
  lying[0] = 0xFF;
  for (const Bytes& garbage : {Bytes{1, 2, 3}, Bytes(), lying}) kernel_.put(garbage);
  kernel_.notify(Message(RTM_NEWADDR).fixed(std::uint32_t{7}));
  kernel_.notify(Message(NLMSG_DONE));
  kernel_.notify(Message(NLMSG_ERROR));
  runAndCompare();
  EXPECT_EQ(traces_.lines.size(), 3U) << "each piece of garbage is told";
}

TEST_F(NamespaceMirrorTest, aNameIsTakenByAnotherLinkBeforeItsOwnerGoes) {
  kernel_.addresses = {at(2, "10.0.0.1/24")};
  startAndRun();
  kernel_.notify(describe(Message(RTM_NEWLINK), TestLink{5, "eth0"}));
  run();
  EXPECT_EQ(primary("eth0"), "0.0.0.0/0") << "the address is the other link's";
  kernel_.linkDel(2);
  run();
  EXPECT_EQ(tree().intfStatusDir->intfStatus(Vantu::IntfId("eth0"))->ifIndex(), 5U);
}

TEST_F(NamespaceMirrorTest, forwardingFlagsAreReadAndNotified) {
  const std::string flag = procSys_ + "/net/ipv4/ip_forward";
  std::ofstream(flag) << "1\n";
  startAndRun();
  EXPECT_TRUE(tree().routingConfig->routing());
  EXPECT_FALSE(tree().routing6Config->routing()) << "the kernel does not have it";
  for (const bool isOn : {true, false}) {
    for (const auto af : {Vantu::ipv4_, Vantu::ipv6_}) {
      kernel_.notify(describeForwarding(Message(RTM_NEWNETCONF), af, NETCONFA_IFINDEX_ALL, isOn));
      kernel_.notify(describeForwarding(Message(RTM_NEWNETCONF), af, 2, !isOn));
    }
    run();
    EXPECT_EQ(tree().routingConfig->routing(), isOn);
    EXPECT_EQ(tree().routing6Config->routing(), isOn);
  }
  poll();
  EXPECT_TRUE(tree().routingConfig->routing()) << "the poll believes what it reads";
  std::ofstream(flag, std::ios::trunc).flush();
  poll();
  std::filesystem::remove(flag);
  std::filesystem::create_directory(flag);  // opens, but does not read
  poll();
  EXPECT_TRUE(tree().routingConfig->routing());
  EXPECT_THAT(traces_.lines, ElementsAre(HasSubstr(flag))) << "once";
  std::filesystem::remove(flag);
  poll();
  EXPECT_FALSE(tree().routingConfig->routing());
}

TEST_F(NamespaceMirrorTest, theFirstDumpCannotBeDoneWithout) {
  kernel_.isSendRefused = [] { return true; };
  EXPECT_THROW(mirror_->start(), Kel::Exception);
  kernel_.isSendRefused = [] { return false; };
  kernel_.dumpStatus = EPERM;
  mirror_->start();
  EXPECT_THAT([&] { run(); }, testing::ThrowsMessage<Kel::Exception>(HasSubstr("Operation not permitted")));
}

// What goes wrong later is told, and made good by polls.
TEST_F(NamespaceMirrorTest, troubles) {
  const auto silence = [this] { kernel_.isDumpSilent = true; };
  const auto noSocket = [this] { kernel_.isReopenRefused = true, kernel_.dumpStatus = ENOMEM; };
  const auto stream = [this] { kernel_.beforeReceive = [this] { kernel_.linkIs({1, "lo"}); }; };
  const auto refusal = [this](unsigned number) {
    return [this, number] {
      kernel_.isSendRefused = [this, first = kernel_.dumps, number] { return kernel_.dumps == first + number; };
    };
  };
  const std::tuple<std::function<void()>, const char*, unsigned> cases[] = {
      {[this] { kernel_.dumpStatus = ENOMEM; }, "does not list its interfaces: Cannot allocate memory", 1},
      {noSocket, "no socket; trying again every second", 1},
      {refusal(1), "no buffer space; trying again", 1},
      {refusal(2), "no buffer space; trying again", 1},
      {silence, "a dump is not answered", 6},
      {stream, "messages come faster than they are read", 6}};
  startAndRun();
  for (const auto& [begin, complaint, seconds] : cases) {
    SCOPED_TRACE(complaint);
    traces_.lines.clear();
    const unsigned reopened = kernel_.reopened;
    kernel_.queueLimit = 0;
    kernel_.linkIs({2, kernel_.links[2].name == "eth0" ? "lan" : "eth0"});
    kernel_.queueLimit = SIZE_MAX;
    begin();
    for (unsigned second = 0; second < seconds; ++second) {
      for (int i = 0; i < 5; ++i) turn();
      EXPECT_EQ(kernel_.reopened, reopened) << "patience";
      now_ += 1;
      mirror_->poll();
    }
    kernel_.dumpStatus = 0;
    kernel_.isDumpSilent = kernel_.isReopenRefused = false;
    kernel_.beforeReceive = [] {};
    for (int i = 0; i < 10 && !isRight(); ++i) poll();
    EXPECT_THAT(traces_.lines, Contains(HasSubstr(complaint)));
    runAndCompare();
  }
}

TEST_F(NamespaceMirrorTest, anInterruptedDumpIsRepeatedAtOnceAndThenWithThePolls) {
  kernel_.isInterrupted = [] { return true; };
  mirror_->start();
  for (int i = 0; i < 100; ++i) turn();
  const unsigned atOnce = kernel_.dumps;
  EXPECT_THAT(atOnce, testing::AllOf(testing::Gt(5U), testing::Lt(50U))) << "no endless loop";
  kernel_.isInterrupted = [] { return false; };
  poll();
  EXPECT_GT(kernel_.dumps, atOnce);
  runAndCompare();
}

TEST_F(NamespaceMirrorTest, aSteadyStreamDoesNotKeepChangesFromTheTree) {
  startAndRun();
  for (int number = 0; number < 2000; ++number) {
    kernel_.addressIs(at(2, fmt::format("10.0.{}.{}/32", number / 250, number % 250 + 1)));
  }
  EXPECT_TRUE(turn());
  EXPECT_EQ(primary("eth0"), "10.0.0.1/32");
  runAndCompare();
}

TEST_F(NamespaceMirrorTest, aListOfNeighboursThatNeverKeepsStillIsCompletedLater) {
  kernel_.objectsPerPiece = 1;
  for (const char* addr : {"10.0.0.1", "10.0.0.2"}) kernel_.neighbours.push_back(neighbour(2, addr));
  startAndRun();
  kernel_.isPieceLate = [&] {
    kernel_.neighbourIs(neighbour(2, "10.0.0.99"));
    return false;
  };
  mirror_->reread();
  run();
  EXPECT_EQ(kernel_.dumps, 8U + 8U + 3U) << "repeated three times at once";
  EXPECT_EQ(mirror_->completeDumps(), 2U);
  kernel_.isPieceLate = [] { return false; };
  poll(0);
  EXPECT_EQ(mirror_->completeDumps(), 2U) << "not at once";
  poll(2);
  poll(1000);
  EXPECT_EQ(mirror_->completeDumps(), 3U) << "and that was that";
}

TEST_F(NamespaceMirrorTest, whatIsNotServedIsToldOnce) {
  kernel_.links[5] = {5, "red", IFF_UP, IF_OPER_UP, std::nullopt, 0, 1001};
  kernel_.links[6] = {6, "default", IFF_UP, IF_OPER_UP, std::nullopt, 0, 1002};
  kernel_.links[7] = {7, "eth1", IFF_UP, IF_OPER_UP, std::nullopt, 6};
  kernel_.links[1 << 20] = otherKernel_.links[1 << 20] = {1 << 20, "big"};
  otherKernel_.links[(1 << 20) - 1] = {(1 << 20) - 1, "last"};
  startAndRun();
  startOther("red");
  run();
  for (FakeKernel* kernel : {&kernel_, &otherKernel_}) {
    for (const auto& [ifIndex, link] : std::map<int, TestLink>(kernel->links)) kernel->linkIs(link);
  }
  run();
  EXPECT_THAT(traces_.lines, testing::UnorderedElementsAre(HasSubstr("VRF default"), HasSubstr("VRF red"),
                                                           HasSubstr("red/big: not published")));
  const Lines lines = linesOf(*picture_);
  EXPECT_THAT(lines, testing::IsSupersetOf(
                         {"big link 1048576 running", "red/last link 2097151 running", "eth1 link 7 running"}));
  EXPECT_THAT(lines, testing::Not(Contains(HasSubstr("eth1 l3")))) << "in no VRF, nor the default one";
}

// So that a reader that takes the changes in order knows the interface of each neighbour.
TEST_F(NamespaceMirrorTest, anInterfaceIsToldBeforeItsNeighboursAndGoesAfterThem) {
  startAndRun();
  auto seen = mount()->snapshot().bookmark();
  const auto tablesThatChange = [&] {
    run();
    const auto changes = mount()->snapshot().changesSince(seen, 20);
    seen = changes.next;
    std::vector<Quillo::TableId> tables;
    for (const auto& change : changes.changes) tables.push_back(change.table);
    tables.erase(std::unique(tables.begin(), tables.end()), tables.end());
    return tables;
  };
  kernel_.linkIs({3, "eth1"});
  kernel_.neighbourIs(neighbour(3, "10.0.0.9"));
  EXPECT_THAT(tablesThatChange(), ElementsAre(Quillo::TableId::varnix, Quillo::TableId::arp));
  kernel_.linkDel(3);
  EXPECT_THAT(tablesThatChange(), ElementsAre(Quillo::TableId::arp, Quillo::TableId::varnix));
}

TEST_F(NamespaceMirrorTest, veryManyNeighboursAreWrittenInSeveralCommits) {
  startAndRun();
  KernelNeighbours all;
  for (unsigned n = 0; n <= 2 * NeighbourTable::changesPerCommit; ++n) all[Vantu::IpAddr(0x0a000000 + n)] = {};
  const NeighbourTable::Place place{Vrf::VrfIdMap::VrfId(1), Vantu::IntfId("red/eth0")};
  for (const auto& neighbours : {all, KernelNeighbours()}) {
    picture_->neighbours.writeNeighbours(place, neighbours);
    ASSERT_TRUE(publisher_->publish());
    picture_->neighbours.writeNeighbours(place, neighbours);
    EXPECT_FALSE(picture_->neighbours.pending()) << "nothing new";
    EXPECT_EQ(neighbourLines(mount()->snapshot()).size(), neighbours.size());
  }
}

TEST_F(NamespaceMirrorTest, routesAreListedWhenTheyMayHaveChangedWithoutAWord) {
  kernel_.links[3] = {3, "eth1"};
  kernel_.routes = {{"10.1.0.0/16", {{"10.0.0.1"}}}, {"10.2.0.0/16", {{"10.0.0.2", 3}}}};
  startAndRun();
  for (int i = 0; i < 100; ++i) kernel_.linkIs({1, "lo", i % 2 ? IFF_UP | IFF_RUNNING : 0U});
  poll();
  EXPECT_EQ(mirror_->routes().listings(), 1U) << "of no concern to any route";
  for (const Kel::Seconds perDatagram : {0.01, 0.5, 5.0}) {
    kernel_.linkIs({3, "eth1", 0, IF_OPER_DOWN});
    run();
    now_ = *mirror_->due();
    kernel_.beforeReceive = [&] { now_ += perDatagram; };
    const Kel::Seconds begun = now_;
    run();
    const Kel::Seconds took = now_ - begun;
    kernel_.beforeReceive = [] {};
    kernel_.linkIs({3, "eth1"});
    kernel_.routeIs({"10.2.0.0/16", {{"10.0.0.2", 3}}});
    run();
    ASSERT_TRUE(mirror_->due());
    EXPECT_LE(*mirror_->due() - now_, std::max(2.0, took / 2)) << "after one of " << took << " s";
    for (int i = 0; i < 10 && mirror_->due(); ++i) poll();
    runAndCompare();
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
  routes.updateTables({{{254}, std::nullopt}});
  RouteMessage route;
  route.table = 254;
  route.address = Vantu::IpGenAddr::fromString("10.0.0.0");
  route.content.af = Vantu::ipv4_;
  route.content.type = RTN_UNICAST;
  route.content.nexthopId = 2;
  for (route.length = 8; route.length < 32; ++route.length) {
    route.content.protocol = static_cast<std::uint8_t>(route.length);
    routes.notified(route);
  }
  const auto nexthopsAre = [&](int count) {
    resolved = 0;
    for (int i = 1; i <= count; ++i) {
      const auto gateway = Vantu::IpGenAddr::fromString(fmt::format("10.0.0.{}", i));
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
}

}  // namespace
}  // namespace Mirror

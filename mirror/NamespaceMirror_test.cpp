
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <random>

#include "mirror/testing/NamespaceMirrorTest.h"

namespace Mirror {
namespace {

using namespace Test;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

TEST_F(NamespaceMirrorTest, aPictureIsShownWhenItIsComplete) {
  kernel_.addresses = {at(2, "10.0.0.1/24"), at(2, "2001:db8::1/64")};
  mirror_.start();
  EXPECT_TRUE(linesOf(picture_).empty()) << "an incomplete picture is not shown";
  settleAndCompare();
  EXPECT_EQ(tree_.intfStatusDir->intfStatus(Vantu::IntfId("lo"))->operStatus(), Interface::operStatusUnknown);

  kernel_.addressDel(at(2, "2001:db8::1/64"));
  settleAndCompare();
  EXPECT_FALSE(tree_.ip6Config->intfHas(Vantu::IntfId("eth0"))) << "no address, no record";
  EXPECT_TRUE(complaints_.empty());
}

TEST_F(NamespaceMirrorTest, addressesAreInForceWhileTheInterfaceRuns) {
  kernel_.addresses = {at(2, "10.0.0.1/24"), at(2, "10.0.0.2/24"), at(2, "2001:db8::1/64")};
  startAndSettle();
  const Vantu::IntfId eth0("eth0");
  const auto config = tree_.ipConfig->ipIntfConfig(eth0);
  const auto status = tree_.ipStatus->ipIntfStatus(eth0);
  for (const TestLink& link :
       {TestLink{2, "eth0", 0, IF_OPER_DOWN}, TestLink{2, "eth0", IFF_UP, IF_OPER_LOWERLAYERDOWN},
        TestLink{2, "eth0", IFF_UP, IF_OPER_DORMANT}}) {
    kernel_.linkIs(link);
    settleAndCompare();
    EXPECT_EQ(status->activeAddrWithMask(), Vantu::IpAddrWithMask()) << link.operState;
    kernel_.linkIs({2, "eth0"});
    settleAndCompare();
    EXPECT_EQ(status->activeAddrWithMask(), config->addrWithMask());
  }
  EXPECT_EQ(tree_.ipStatus->ipIntfStatus(eth0), status) << "the records themselves stay";
}

TEST_F(NamespaceMirrorTest, duplicateAddressDetection) {
  startAndSettle();
  const auto address = Vantu::Ip6AddrWithMask::fromString("2001:db8::1/64");
  const std::tuple<std::uint32_t, Ip6::AddressState, bool> steps[] = {
      {IFA_F_TENTATIVE, Ip6::addressStateTentative, false},
      {IFA_F_TENTATIVE | IFA_F_DADFAILED, Ip6::addressStateDuplicate, false},
      {IFA_F_TENTATIVE | IFA_F_OPTIMISTIC, Ip6::addressStatePreferred, true},
      {IFA_F_PERMANENT, Ip6::addressStatePreferred, true},
      {IFA_F_DEPRECATED, Ip6::addressStateDeprecated, true}};
  for (const auto& [flags, state, isInForce] : steps) {
    kernel_.addressIs(at(2, "2001:db8::1/64", flags));
    settleAndCompare();
    EXPECT_EQ(tree_.ip6Config->intf(Vantu::IntfId("eth0"))->addr(address)->state(), state);
    EXPECT_EQ(tree_.ip6Status->intf(Vantu::IntfId("eth0"))->addrHas(address), isInForce);
  }
}

TEST_F(NamespaceMirrorTest, addressesThatADownLinkKeepsAreTentativeAgain) {
  kernel_.keepsAddresses = true;
  startAndSettle();
  kernel_.addressIs(at(2, "2001:db8::1/64"));
  kernel_.addressIs(at(2, "2001:db8::2/64", IFA_F_PERMANENT | IFA_F_NODAD));
  kernel_.linkIs({2, "eth0", 0, IF_OPER_DOWN});
  settleAndCompare();
  kernel_.linkIs({2, "eth0"});
  settleAndCompare();  // the one that was proven is not in force
  EXPECT_EQ(tree_.ip6Status->intf(Vantu::IntfId("eth0"))->addr().size(), 1u);
  kernel_.addressIs(at(2, "2001:db8::1/64"));
  settleAndCompare();
}

TEST_F(NamespaceMirrorTest, theFirstAddressStaysFirstUntilItGoes) {
  kernel_.addresses = {at(2, "10.0.0.5/24"), at(2, "10.0.0.7/24"), at(2, "10.0.0.6/24")};
  startAndSettle();
  EXPECT_EQ(primary("eth0"), "10.0.0.5/24");
  kernel_.addressIs(at(2, "10.0.0.1/24"));
  kernel_.addressDel(at(2, "10.0.0.6/24"));
  kernel_.addressIs(at(2, "10.0.0.7/24"));  // another lifetime, say
  settleAndCompare();
  EXPECT_EQ(primary("eth0"), "10.0.0.5/24");
  kernel_.addressDel(at(2, "10.0.0.5/24"));
  settleAndCompare();
  EXPECT_EQ(primary("eth0"), "10.0.0.7/24") << "the one that has been there longest";

  Picture another;
  kernel_.reopen();
  NamespaceMirror startedAgain(kernel_, another);
  startedAgain.start();
  settle(startedAgain);
  EXPECT_EQ(primaries(another.tree), primaries(tree_));
}

TEST_F(NamespaceMirrorTest, anIpv6AddressIsOneWhateverItsLengthAndPeer) {
  startAndSettle();
  kernel_.addressIs(at(2, "2001:db8::1/64"));
  TestAddress pointToPoint = at(2, "2001:db8::1/128");
  pointToPoint.peer = Vantu::IpGenAddr::fromString("2001:db8::2");
  kernel_.addressIs(pointToPoint);
  settleAndCompare();
}

TEST_F(NamespaceMirrorTest, namesThatMove) {
  kernel_.links[3] = {3, "eth1"};
  kernel_.addresses = {at(2, "10.0.0.1/24"), at(3, "10.0.1.1/24")};
  startAndSettle();
  kernel_.linkIs({2, "lan"});
  settleAndCompare();
  EXPECT_FALSE(tree_.intfStatusDir->intfStatusHas(Vantu::IntfId("eth0")));

  // The two swap names; seen in one turn.
  kernel_.linkIs({2, "tmp"});
  kernel_.linkIs({3, "lan"});
  kernel_.linkIs({2, "eth1"});
  settleAndCompare();
  EXPECT_EQ(tree_.intfStatusDir->intfStatus(Vantu::IntfId("lan"))->ifIndex(), 3U);

  // Made again under the same name with another index; the old record is not changed in place.
  const auto old = tree_.intfStatusDir->intfStatus(Vantu::IntfId("lan"));
  kernel_.linkDel(3);
  kernel_.linkIs({9, "lan"});
  kernel_.addressIs(at(9, "10.0.1.1/24"));
  settleAndCompare();
  EXPECT_EQ(old->ifIndex(), 3U);
  EXPECT_EQ(tree_.intfStatusDir->intfStatus(Vantu::IntfId("lan"))->ifIndex(), 9U);
}

TEST_F(NamespaceMirrorTest, aNameIsTakenByAnotherLinkBeforeItsOwnerGoes) {
  kernel_.addresses = {at(2, "10.0.0.1/24")};
  startAndSettle();
  const TestLink claimant{5, "eth0"};
  kernel_.notify(describe(Message(RTM_NEWLINK), claimant));
  settle();
  EXPECT_EQ(tree_.intfStatusDir->intfStatus(Vantu::IntfId("eth0"))->ifIndex(), 5U);
  EXPECT_EQ(primary("eth0"), "0.0.0.0/0") << "the address is the other link's";
  kernel_.notify(describe(Message(RTM_DELLINK), TestLink{2, "eth0"}));
  settle();
  EXPECT_EQ(tree_.intfStatusDir->intfStatus(Vantu::IntfId("eth0"))->ifIndex(), 5U);
}

TEST_F(NamespaceMirrorTest, addressesThatComeBeforeTheirLinkAreKeptForIt) {
  startAndSettle();
  kernel_.addressIs(at(7, "10.0.0.1/24"));
  kernel_.addressIs(at(7, "10.0.0.2/24"));
  kernel_.addressDel(at(7, "10.0.0.1/24"));
  settleAndCompare();
  kernel_.linkIs({7, "eth7"});
  settleAndCompare();
  EXPECT_THAT(linesOf(picture_), Contains("eth7 config 10.0.0.2/24"));
}

TEST_F(NamespaceMirrorTest, oddMessagesChangeNothing) {
  kernel_.addresses = {at(2, "10.0.0.1/24")};
  startAndSettle();
  ifinfomsg partial{};
  partial.ifi_index = 2;
  partial.ifi_flags = IFF_UP | IFF_RUNNING;
  kernel_.notify(Message(RTM_NEWLINK).fixed(partial).attribute(IFLA_WIRELESS, {1}));
  partial.ifi_index = 99;
  kernel_.notify(Message(RTM_NEWLINK).fixed(partial));
  kernel_.notify(describe(Message(RTM_DELADDR), at(2, "10.0.0.77/24")));
  kernel_.notify(describe(Message(RTM_DELLINK), TestLink{98, "gone"}));
  kernel_.notify(describe(Message(RTM_NEWADDR, 0, 1, FakeKernel::port), at(2, "10.6.6.6/24")));  // of an old dump
  kernel_.notify(describe(Message(RTM_NEWADDR), at(2, "0.0.0.0/8")));
  settleAndCompare();
  EXPECT_TRUE(complaints_.empty());

  kernel_.put({1, 2, 3});
  kernel_.put({});
  Bytes lying = describe(Message(RTM_NEWADDR), at(2, "10.6.6.6/24")).bytes();
  lying[0] = 0xFF;
  kernel_.put(lying);
  kernel_.notify(Message(RTM_NEWADDR).fixed(std::uint32_t{7}));
  kernel_.notify(Message(NLMSG_DONE));
  kernel_.notify(Message(NLMSG_ERROR));
  settleAndCompare();
  EXPECT_EQ(complaints_.size(), 3U) << "each piece of garbage is told";
}

TEST_F(NamespaceMirrorTest, forwardingByNotification) {
  startAndSettle();
  for (const bool isOn : {true, false}) {
    for (const auto af : {Vantu::ipv4_, Vantu::ipv6_}) {
      kernel_.notify(describeForwarding(Message(RTM_NEWNETCONF), af, NETCONFA_IFINDEX_ALL, isOn));
      kernel_.notify(describeForwarding(Message(RTM_NEWNETCONF), af, 2, !isOn));
    }
    settle();
    EXPECT_EQ(tree_.routingConfig->routing(), isOn);
    EXPECT_EQ(tree_.routing6Config->routing(), isOn);
  }
  kernel_.notify(describeForwarding(Message(RTM_NEWNETCONF), Vantu::ipv4_, NETCONFA_IFINDEX_ALL, 1));
  settle();
  EXPECT_FALSE(tree_.routing6Config->routing());
  mirror_.poll();
  EXPECT_FALSE(tree_.routingConfig->routing()) << "the poll believes what it reads";
}

// What an observer of the tree sees.
struct Observer : Interface::AllIntfStatusDir::Notifiee {
  void handleIntfStatus(const Vantu::IntfId& id) override { seen.push_back(id.text()); }
  std::vector<std::string> seen;
};

TEST_F(NamespaceMirrorTest, overrunIsMadeGoodByADumpThatChangesOnlyWhatDiffers) {
  kernel_.links[3] = {3, "eth1"};
  kernel_.addresses = {at(2, "10.0.0.1/24"), at(3, "10.0.1.1/24")};
  startAndSettle();
  const auto untouched = tree_.ipConfig->ipIntfConfig(Vantu::IntfId("eth1"));
  const auto observer = Kel::makePtr<Observer>();
  observer->notifierIs(tree_.intfStatusDir);

  kernel_.queueLimit = 1;
  kernel_.addressIs(at(2, "10.0.0.2/24"));
  kernel_.addressDel(at(2, "10.0.0.2/24"));  // lost
  kernel_.linkIs({4, "eth2"});               // lost
  kernel_.addressDel(at(2, "10.0.0.1/24"));  // lost
  kernel_.queueLimit = SIZE_MAX;
  settleAndCompare();
  EXPECT_EQ(mirror_.overruns(), 1U);
  EXPECT_EQ(mirror_.completeDumps(), 2U);
  EXPECT_EQ(observer->seen, std::vector<std::string>{"eth2"});
  EXPECT_EQ(tree_.ipConfig->ipIntfConfig(Vantu::IntfId("eth1")), untouched);
}

TEST_F(NamespaceMirrorTest, anInterruptedDumpIsRepeatedAtOnceAndThenWithThePolls) {
  kernel_.addresses = {at(2, "10.0.0.1/24")};
  kernel_.isInterrupted = [] { return true; };
  startAndSettle();
  EXPECT_FALSE(mirror_.isComplete());
  const unsigned atOnce = kernel_.dumps;
  EXPECT_GT(atOnce, 5U);
  EXPECT_LT(atOnce, 50U) << "no endless loop";
  settle();
  EXPECT_EQ(kernel_.dumps, atOnce);
  mirror_.poll();
  settle();
  EXPECT_GT(kernel_.dumps, atOnce);
  kernel_.isInterrupted = [] { return false; };
  mirror_.poll();
  settleAndCompare();
}

TEST_F(NamespaceMirrorTest, aReplyThatANotificationOvertookIsStale) {
  const auto address = at(2, "10.0.0.1/24");
  const auto address6 = at(2, "2001:db8::1/64");
  kernel_.addresses = {address, address6};
  // By number of the piece: links, IPv4 addresses, IPv6 addresses. The piece is ready when the change comes.
  const std::function<void()> changes[] = {
      [&] { kernel_.linkIs({2, "lan"}); },  {}, [&] { kernel_.addressDel(address6); }, {},
      [&] { kernel_.addressDel(address); }, {}, [&] { kernel_.addressIs(address); },   {},
      [&] { kernel_.linkDel(2); },          {}};
  int piece = 0;
  int step = 0;
  kernel_.isPieceLate = [&] {
    const int wanted[] = {1, 0, 3, 0, 2, 0, 1, 0, 2, 0};
    if (++piece == wanted[step]) changes[step]();
    return false;
  };
  mirror_.start();
  for (; step < 10; ++step) {
    piece = 0;
    kernel_.queueLimit = 0;
    kernel_.notify(Message(RTM_NEWLINK));  // lost, so that everything is dumped again
    kernel_.queueLimit = SIZE_MAX;
    settle();
    EXPECT_EQ(linesOf(picture_), expectedLines(kernel_)) << "step " << step;
  }
}

TEST_F(NamespaceMirrorTest, refusedDumps) {
  kernel_.dumpStatus = EPERM;
  mirror_.start();
  EXPECT_THAT([&] { settle(); }, testing::ThrowsMessage<Kel::Exception>(HasSubstr("Operation not permitted")))
      << "the first dump cannot be done without";
  kernel_.dumpStatus = 0;
  mirror_.start();
  settleAndCompare();

  kernel_.dumpStatus = ENOMEM;
  kernel_.queueLimit = 0;
  kernel_.addressIs(at(2, "10.0.0.1/24"));
  kernel_.queueLimit = SIZE_MAX;
  settle();
  EXPECT_THAT(complaints_, Contains(HasSubstr("Cannot allocate memory")));
  kernel_.addressIs(at(2, "10.0.0.2/24"));
  settle();
  EXPECT_THAT(linesOf(picture_), Contains("eth0 config 10.0.0.2/24")) << "what is notified still counts";
  kernel_.isReopenRefused = true;
  mirror_.poll();
  EXPECT_THAT(complaints_, Contains(HasSubstr("no socket")));
  kernel_.isReopenRefused = false;
  kernel_.dumpStatus = 0;
  mirror_.poll();
  settleAndCompare();
  EXPECT_EQ(kernel_.reopened, 1U);
}

TEST_F(NamespaceMirrorTest, aDumpThatIsNotAnsweredIsAskedForAgain) {
  kernel_.isDumpSilent = true;
  mirror_.start();
  settle();
  now_ += 2;
  mirror_.poll();
  EXPECT_EQ(kernel_.reopened, 0U) << "patience";
  kernel_.isDumpSilent = false;
  now_ += 10;
  mirror_.poll();
  EXPECT_EQ(kernel_.reopened, 1U);
  settleAndCompare();
}

TEST_F(NamespaceMirrorTest, dumpsThatCannotBeAskedFor) {
  kernel_.isSendRefused = [] { return true; };
  EXPECT_THROW(mirror_.start(), Kel::Exception) << "the first dump cannot be done without";
  kernel_.isSendRefused = [] { return false; };
  startAndSettle();

  // The first request of a later dump, and one in its midst.
  for (const unsigned refused : {1U, 2U}) {
    unsigned requests = 0;
    kernel_.isSendRefused = [&] { return ++requests == refused; };
    kernel_.queueLimit = 0;
    kernel_.addressIs(at(2, ("10.0.0." + std::to_string(refused) + "/24").c_str()));  // lost
    kernel_.queueLimit = SIZE_MAX;
    settle();
    EXPECT_EQ(requests, refused);
    EXPECT_EQ(complaints_.size(), refused);
    EXPECT_THAT(complaints_.back(), HasSubstr("no buffer space"));
    requests = 0;
    kernel_.isSendRefused = [&] { return ++requests == 1; };
    mirror_.poll();
    EXPECT_THAT(complaints_.back(), HasSubstr("no buffer space"));
    complaints_.resize(refused);
    mirror_.poll();
    settleAndCompare();
  }
}

TEST_F(NamespaceMirrorTest, anOverrunUnderAStreamThatDoesNotEnd) {
  startAndSettle();
  kernel_.queueLimit = 0;
  kernel_.addressIs(at(2, "10.0.0.1/24"));  // lost
  kernel_.queueLimit = SIZE_MAX;
  kernel_.beforeReceive = [&] { kernel_.linkIs({2, "eth0"}); };
  for (int second = 0; second <= 5; ++second) {
    EXPECT_TRUE(mirror_.receive());
    mirror_.poll();
    now_ += 1;
  }
  EXPECT_EQ(mirror_.completeDumps(), 1U);
  EXPECT_EQ(kernel_.reopened, 0U) << "patience";
  now_ += 1;
  mirror_.poll();
  EXPECT_EQ(kernel_.reopened, 1U);
  EXPECT_THAT(complaints_, Contains(HasSubstr("faster than they are read")));
  EXPECT_TRUE(mirror_.receive());
  EXPECT_EQ(mirror_.completeDumps(), 2U);
  expectAgreement();
}

TEST_F(NamespaceMirrorTest, rereading) {
  mirror_.start();
  mirror_.reread();  // the first dump is under way
  settle();
  EXPECT_EQ(kernel_.dumps, 8U);
  kernel_.addresses = {at(2, "10.0.0.1/24")};  // untold
  mirror_.reread();
  settleAndCompare();
}

TEST_F(NamespaceMirrorTest, aForwardingFlagThatCannotBeReadKeepsItsValue) {
  const std::filesystem::path procSys = "/tmp/mirror-test-" + std::to_string(getpid());
  const auto flag = procSys / "net/ipv4/ip_forward";
  std::filesystem::create_directories(flag.parent_path());
  std::ofstream(flag) << "1\n";
  NamespaceMirror mirror(kernel_, picture_, NamespaceScope(), ForwardingFlags(procSys));
  mirror.start();
  settle(mirror);
  EXPECT_TRUE(tree_.routingConfig->routing());
  EXPECT_FALSE(tree_.routing6Config->routing()) << "the kernel does not have it";

  std::ofstream(flag, std::ios::trunc).flush();
  mirror.poll();
  std::filesystem::remove(flag);
  std::filesystem::create_directory(flag);  // opens, but does not read
  mirror.poll();
  EXPECT_TRUE(tree_.routingConfig->routing());
  EXPECT_THAT(complaints_, testing::ElementsAre(HasSubstr(flag.string()))) << "once";
  std::filesystem::remove(flag);
  mirror.poll();
  EXPECT_FALSE(tree_.routingConfig->routing());
  std::filesystem::remove_all(procSys);
}

TEST_F(NamespaceMirrorTest, aSteadyStreamDoesNotKeepChangesFromTheTree) {
  startAndSettle();
  for (int number = 0; number < 2000; ++number) {
    kernel_.addressIs(
        at(2, ("10.0." + std::to_string(number / 250) + "." + std::to_string(number % 250 + 1) + "/32").c_str()));
  }
  EXPECT_TRUE(mirror_.receive());
  EXPECT_EQ(primary("eth0"), "10.0.0.1/32");
  settleAndCompare();
}

// ---- random histories

class RandomHistory : public NamespaceMirrorTest, public testing::WithParamInterface<unsigned> {
 protected:
  int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }
  bool oneIn(int count) { return below(count) == 0; }

  int anyLink() { return std::next(kernel_.links.begin(), below(static_cast<int>(kernel_.links.size())))->first; }
  std::string freeName() {
    std::string name;
    do {
      name = "if" + std::to_string(below(12));
    } while (std::any_of(kernel_.links.begin(), kernel_.links.end(),
                         [&](const auto& entry) { return entry.second.name == name; }));
    return name;
  }
  TestAddress anyAddress() {
    static const std::uint32_t flags[] = {IFA_F_PERMANENT, IFA_F_TENTATIVE, IFA_F_DADFAILED, IFA_F_DEPRECATED};
    const int ifIndex = anyLink();
    if (oneIn(3)) {
      return at(ifIndex, ("2001:db8::" + std::to_string(below(6)) + "/64").c_str(), flags[below(4)]);
    }
    TestAddress address =
        at(ifIndex, ("10.0.0." + std::to_string(below(9)) + "/" + (oneIn(4) ? "16" : "24")).c_str());
    if (oneIn(5)) address.peer = Vantu::IpGenAddr::fromString("10.9.9." + std::to_string(below(2)));
    return address;
  }
  TestNeighbour anyNeighbour() {
    static const std::uint16_t states[] = {NUD_REACHABLE, NUD_STALE, NUD_FAILED, NUD_PERMANENT};
    const std::string addr = (oneIn(3) ? "fe80::" : "10.0.0.") + std::to_string(below(9));
    return neighbour(anyLink(), addr.c_str(), states[below(4)], below(3));
  }
  void change() {
    switch (below(10)) {
      case 8:
        kernel_.neighbourIs(anyNeighbour());
        break;
      case 9:
        if (!kernel_.neighbours.empty())
          kernel_.neighbourDel(
              kernel_.neighbours[static_cast<std::size_t>(below(static_cast<int>(kernel_.neighbours.size())))]);
        break;
      case 0:
        if (kernel_.links.size() < 8) kernel_.linkIs({oneIn(4) ? 50 + below(5) : nextIndex_++, freeName()});
        break;
      case 1:
        if (kernel_.links.size() > 2) kernel_.linkDel(anyLink());
        break;
      case 2: {
        TestLink link = kernel_.links[anyLink()];
        if (oneIn(2)) link.name = freeName();
        link.flags = oneIn(3) ? 0 : IFF_UP;
        link.operState = link.flags ? below(7) : int{IF_OPER_DOWN};
        // VRF devices come and go by a change of the whole link here.
        if (oneIn(4)) link.vrfTable = oneIn(2) ? std::nullopt : std::optional<std::uint32_t>(1000 + below(3));
        if (oneIn(2)) link.master = oneIn(2) ? 0 : static_cast<std::uint32_t>(anyLink());
        kernel_.linkIs(link);
        break;
      }
      case 3:
      case 4:
        if (!kernel_.addresses.empty()) {
          kernel_.addressDel(
              kernel_.addresses[static_cast<std::size_t>(below(static_cast<int>(kernel_.addresses.size())))]);
        }
        break;
      default:
        kernel_.addressIs(anyAddress());
    }
  }

  std::mt19937 random_{GetParam()};
  int nextIndex_ = 10;
};

TEST_P(RandomHistory, endsInWhatTheKernelHas) {
  kernel_.isPieceLate = [this] {
    if (oneIn(10)) change();  // the piece is ready, and this comes first
    return oneIn(3);
  };
  kernel_.isInterrupted = [this] { return oneIn(20); };
  kernel_.objectsPerPiece = static_cast<std::size_t>(1 + below(5));
  mirror_.start();
  for (int round = 0; round < 400; ++round) {
    kernel_.queueLimit = oneIn(5) ? static_cast<std::size_t>(1 + below(20)) : SIZE_MAX;
    for (int count = below(30); count > 0; --count) {
      change();
      if (oneIn(6)) mirror_.receive();
    }
    if (!oneIn(3)) continue;
    settle();
    for (int polls = 0; polls < 50 && shown() != expectation(); ++polls) {
      now_ += 1;
      mirror_.poll();
      settle();
    }
    expectAgreement();
    ASSERT_FALSE(HasFailure()) << "seed " << GetParam() << ", round " << round;
  }
  EXPECT_THAT(complaints_, Not(Contains(HasSubstr("no message"))));
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomHistory, testing::Range(1U, 9U));

}  // namespace
}  // namespace Mirror

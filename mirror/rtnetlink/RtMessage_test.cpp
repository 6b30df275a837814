#include "mirror/rtnetlink/RtMessage.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <random>

#include "mirror/testing/FakeRoutes.h"

namespace Mirror {
namespace {

using namespace Test;
using Vantu::IpGenAddr;

// In a heap block of just the size, so that a sanitizer sees a read beyond it.
RtMessage decodeBytes(const Bytes& bytes) {
  const auto copy = std::make_unique<std::uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), copy.get());
  return decode(*reinterpret_cast<const nlmsghdr*>(copy.get()));
}

template <class T>
T decodeAs(const Message& message) {
  return std::get<T>(decodeBytes(message.bytes()));
}

bool isPassedOver(const Message& message) {
  return std::holds_alternative<std::monostate>(decodeBytes(message.bytes()));
}

const auto mac = Vantu::EthAddr::fromString("02:00:00:00:00:07");

const TestRoute multipath{
    "10.0.0.0/8", {{"10.0.0.1"}, {"2001:db8::1", 3}, {"", 5, true}}, 7, RTPROT_STATIC, RTN_UNICAST, 0, 1001};

TEST(RtMessageTest, link) {
  const auto link = decodeAs<LinkMessage>(
      describe(Message(RTM_NEWLINK), TestLink{7, "eth0", IFF_UP, IF_OPER_LOWERLAYERDOWN, mac}));
  EXPECT_FALSE(link.isDeleted);
  EXPECT_EQ(link.ifIndex, 7U);
  EXPECT_EQ(link.name, "eth0");
  EXPECT_EQ(link.flags, unsigned{IFF_UP});
  EXPECT_EQ(link.operStatus, Interface::operStatusLowerLayerDown);
  EXPECT_EQ(link.ethAddr, mac);
  EXPECT_TRUE(decodeAs<LinkMessage>(describe(Message(RTM_DELLINK), TestLink{7, "eth0"})).isDeleted);
}

TEST(RtMessageTest, everyOperState) {
  using namespace Interface;
  const OperStatus expected[] = {operStatusUnknown, operStatusNotPresent, operStatusDown, operStatusLowerLayerDown,
                                 operStatusTesting, operStatusDormant,    operStatusUp,   operStatusUnknown};
  for (int state = 0; state < 8; ++state) {
    const Message message = describe(Message(RTM_NEWLINK), TestLink{1, "lo", IFF_UP, state});
    EXPECT_EQ(decodeAs<LinkMessage>(message).operStatus, expected[state]) << state;
  }
}

TEST(RtMessageTest, whatALinkMessageDoesNotTellIsAbsent) {
  ifinfomsg header{};
  header.ifi_index = 3;
  const auto link =
      decodeAs<LinkMessage>(Message(RTM_NEWLINK).fixed(header).attribute(IFLA_WIRELESS, {1, 2, 3, 4}));
  EXPECT_EQ(link.ifIndex, 3U);
  EXPECT_EQ(link.name, "");
  EXPECT_FALSE(link.operStatus || link.ethAddr);
}

TEST(RtMessageTest, hardwareAddressThatIsNoMac) {
  Message message = describe(Message(RTM_NEWLINK), TestLink{4, "tun0"});
  EXPECT_EQ(decodeAs<LinkMessage>(message.attribute(IFLA_ADDRESS, {10, 0, 0, 1})).ethAddr, Vantu::EthAddr());
}

TEST(RtMessageTest, vrfDevicesAndTheirMembers) {
  const auto device =
      decodeAs<LinkMessage>(describe(Message(RTM_NEWLINK), TestLink{5, "red", IFF_UP, IF_OPER_UP, mac, 0, 1001}));
  EXPECT_EQ(device.vrfTable, 1001U);
  EXPECT_EQ(device.master, 0U);
  const auto member =
      decodeAs<LinkMessage>(describe(Message(RTM_NEWLINK), TestLink{6, "eth0", IFF_UP, IF_OPER_UP, mac, 5}));
  EXPECT_EQ(member.master, 5U);
  EXPECT_FALSE(member.vrfTable);
  EXPECT_TRUE(member.isWhole);

  const Bytes bridge = attributeBytes(IFLA_INFO_KIND, {'b', 'r', 'i', 'd', 'g', 'e', 0});
  Message other = describe(Message(RTM_NEWLINK), TestLink{7, "br0"});
  EXPECT_FALSE(decodeAs<LinkMessage>(other.attribute(IFLA_LINKINFO, bridge)).vrfTable);
  Message cut = describe(Message(RTM_NEWLINK), TestLink{7, "blue"});
  cut.attribute(IFLA_LINKINFO, attributeBytes(IFLA_INFO_KIND, {'v', 'r', 'f', 0}));
  EXPECT_THROW(decodeBytes(cut.bytes()), MalformedMessageException);
}

TEST(RtMessageTest, neighbours) {
  for (const char* text : {"10.0.0.9", "fe80::9"}) {
    const auto addr = IpGenAddr::fromString(text);
    auto neighbour = decodeAs<NeighbourMessage>(describe(Message(RTM_NEWNEIGH), TestNeighbour{3, addr, mac}));
    EXPECT_EQ(neighbour.ifIndex, 3U);
    EXPECT_EQ(neighbour.addr, addr);
    EXPECT_EQ(neighbour.ethAddr, mac);
    EXPECT_FALSE(neighbour.isDeleted || neighbour.isStatic());
    EXPECT_TRUE(decodeAs<NeighbourMessage>(describe(Message(RTM_DELNEIGH), TestNeighbour{3, addr, mac})).isDeleted);
    EXPECT_TRUE(
        isPassedOver(describe(Message(RTM_NEWNEIGH), TestNeighbour{3, addr, mac, NUD_REACHABLE, NTF_PROXY})));
  }
  const std::tuple<std::uint16_t, bool, bool> states[] = {
      {NUD_NONE, false, false},   {NUD_INCOMPLETE, false, false}, {NUD_REACHABLE, true, false},
      {NUD_STALE, true, false},   {NUD_DELAY, true, false},       {NUD_PROBE, true, false},
      {NUD_FAILED, false, false}, {NUD_NOARP, false, false},      {NUD_PERMANENT, true, true}};
  for (const auto& [state, isResolved, isStatic] : states) {
    TestNeighbour neighbour{3, IpGenAddr::fromString("10.0.0.9"), mac, state};
    const auto decoded = decodeAs<NeighbourMessage>(describe(Message(RTM_NEWNEIGH), neighbour));
    EXPECT_EQ(decoded.isResolved(), isResolved) << state;
    EXPECT_EQ(decoded.isStatic(), isStatic) << state;
    neighbour.ethAddr.reset();
    EXPECT_FALSE(decodeAs<NeighbourMessage>(describe(Message(RTM_NEWNEIGH), neighbour)).isResolved()) << state;
  }
  ndmsg header{};
  header.ndm_family = AF_INET;
  header.ndm_ifindex = 3;
  EXPECT_THROW(decodeBytes(Message(RTM_NEWNEIGH).fixed(header).bytes()), MalformedMessageException);
  header.ndm_family = AF_BRIDGE;
  EXPECT_TRUE(isPassedOver(Message(RTM_NEWNEIGH).fixed(header)));
  Message tunnel = Message(RTM_NEWNEIGH);
  header.ndm_family = AF_INET;
  header.ndm_state = NUD_PERMANENT;
  tunnel.fixed(header).attribute(NDA_DST, {10, 0, 0, 1}).attribute(NDA_LLADDR, {192, 0, 2, 1});
  EXPECT_FALSE(decodeAs<NeighbourMessage>(tunnel).isResolved()) << "no address of six bytes";
}

TEST(RtMessageTest, ipv4Address) {
  const auto local = IpGenAddr::fromString("10.0.0.1");
  auto address = decodeAs<AddressMessage>(describe(Message(RTM_NEWADDR), TestAddress{2, local, 24}));
  EXPECT_EQ(address.ifIndex, 2U);
  EXPECT_EQ(address.local, local);
  EXPECT_EQ(address.prefixLength, 24U);
  EXPECT_FALSE(address.peer.isSet() || address.isDeleted);

  const auto peer = IpGenAddr::fromString("10.9.9.9");
  address = decodeAs<AddressMessage>(describe(Message(RTM_DELADDR), TestAddress{2, local, 32, peer}));
  EXPECT_EQ(address.local, local);
  EXPECT_EQ(address.peer, peer);
  EXPECT_TRUE(address.isDeleted);
}

TEST(RtMessageTest, ipv6AddressWithTheWideFlags) {
  const auto local = IpGenAddr::fromString("2001:db8::1");
  const auto address = decodeAs<AddressMessage>(
      describe(Message(RTM_NEWADDR), TestAddress{2, local, 64, {}, IFA_F_STABLE_PRIVACY | IFA_F_TENTATIVE}));
  EXPECT_EQ(address.local, local);
  EXPECT_EQ(address.flags, unsigned{IFA_F_STABLE_PRIVACY | IFA_F_TENTATIVE}) << "IFA_FLAGS, not the eight bits";
}

TEST(RtMessageTest, forwardingOfTheWholeNamespaceOnly) {
  const auto on = decodeAs<ForwardingMessage>(
      describeForwarding(Message(RTM_NEWNETCONF), Vantu::ipv6_, NETCONFA_IFINDEX_ALL, 1));
  EXPECT_EQ(on.af, Vantu::ipv6_);
  EXPECT_TRUE(on.forwarding);
  EXPECT_FALSE(decodeAs<ForwardingMessage>(
                   describeForwarding(Message(RTM_NEWNETCONF), Vantu::ipv4_, NETCONFA_IFINDEX_ALL, 0))
                   .forwarding);
  for (const int ifIndex : {NETCONFA_IFINDEX_DEFAULT, 1, 7}) {
    EXPECT_TRUE(isPassedOver(describeForwarding(Message(RTM_NEWNETCONF), Vantu::ipv4_, ifIndex, 1))) << ifIndex;
  }
}

TEST(RtMessageTest, messagesForOthersArePassedOver) {
  EXPECT_TRUE(isPassedOver(Message(RTM_NEWROUTE).fixed(rtmsg{})));
  EXPECT_TRUE(isPassedOver(Message(0xFFFF)));
  ifinfomsg bridgePort{};
  bridgePort.ifi_family = AF_BRIDGE;
  bridgePort.ifi_index = 2;
  EXPECT_TRUE(isPassedOver(Message(RTM_DELLINK).fixed(bridgePort).text(IFLA_IFNAME, "eth0")))
      << "a port that leaves its bridge is no link that goes";
  ifaddrmsg otherFamily{};
  otherFamily.ifa_family = AF_PHONET;
  otherFamily.ifa_index = 2;
  EXPECT_TRUE(isPassedOver(Message(RTM_NEWADDR).fixed(otherFamily)));
}

TEST(RtMessageTest, flagBitsAndUnknownAttributesDoNotMatter) {
  ifinfomsg header{};
  header.ifi_index = 2;
  const Message message = Message(RTM_NEWLINK)
                              .fixed(header)
                              .attribute(0x3FFF, {1, 2, 3, 4, 5})
                              .attribute(IFLA_LINKINFO | NLA_F_NESTED, {8, 0, 1, 0, 'v', 'e', 't', 'h'})
                              .attribute(IFLA_OPERSTATE | NLA_F_NET_BYTEORDER, {IF_OPER_UP})
                              .text(IFLA_IFNAME | NLA_F_NESTED, "eth0");
  const auto link = decodeAs<LinkMessage>(message);
  EXPECT_EQ(link.name, "eth0");
  EXPECT_EQ(link.operStatus, Interface::operStatusUp);
}

TEST(RtMessageTest, wrongContentsAreRefused) {
  ifinfomsg link{};
  link.ifi_index = 2;
  ifaddrmsg address{};
  address.ifa_family = AF_INET;
  address.ifa_index = 2;
  ifaddrmsg tooLong = address;
  tooLong.ifa_prefixlen = 33;
  ifaddrmsg noInterface = address;
  noInterface.ifa_index = 0;
  const std::pair<const char*, Bytes> cases[] = {
      {"index 0", Message(RTM_NEWLINK).fixed(ifinfomsg{}).bytes()},
      {"state of no byte", Message(RTM_NEWLINK).fixed(link).attribute(IFLA_OPERSTATE, {}).bytes()},
      {"empty name", Message(RTM_NEWLINK).fixed(link).text(IFLA_IFNAME, "").bytes()},
      {"name of 16 bytes", Message(RTM_NEWLINK).fixed(link).text(IFLA_IFNAME, std::string(16, 'x')).bytes()},
      {"no address", Message(RTM_NEWADDR).fixed(address).bytes()},
      {"address of 3 bytes", Message(RTM_NEWADDR).fixed(address).attribute(IFA_LOCAL, {10, 0, 0}).bytes()},
      {"address of 16 bytes", Message(RTM_NEWADDR).fixed(address).attribute(IFA_LOCAL, Bytes(16, 1)).bytes()},
      {"prefix length 33", Message(RTM_NEWADDR).fixed(tooLong).attribute(IFA_LOCAL, {10, 0, 0, 1}).bytes()},
      {"address of no interface",
       Message(RTM_NEWADDR).fixed(noInterface).attribute(IFA_LOCAL, {10, 0, 0, 1}).bytes()},
      {"flags of 2 bytes", Message(RTM_NEWADDR)
                               .fixed(address)
                               .attribute(IFA_LOCAL, {10, 0, 0, 1})
                               .attribute(IFA_FLAGS, {1, 0})
                               .bytes()},
  };
  for (const auto& [what, bytes] : cases) EXPECT_THROW(decodeBytes(bytes), MalformedMessageException) << what;
}

// Every kind of message cut at every length, its header telling the cut length and the true one of its attributes.
TEST(RtMessageTest, messagesCutShort) {
  const Bytes whole[] = {
      describe(Message(RTM_NEWLINK), TestLink{7, "eth0", IFF_UP, IF_OPER_UP, mac}).bytes(),
      describe(Message(RTM_NEWADDR), TestAddress{2, IpGenAddr::fromString("10.0.0.1")}).bytes(),
      describe(Message(RTM_NEWADDR), TestAddress{2, IpGenAddr::fromString("2001:db8::1")}).bytes(),
      describeForwarding(Message(RTM_NEWNETCONF), Vantu::ipv4_, NETCONFA_IFINDEX_ALL, 1).bytes(),
      describe(Message(RTM_NEWROUTE), multipath).bytes(),
      describe(Message(RTM_NEWNEXTHOP), TestNexthop{1, {"10.0.0.1"}}).bytes()};
  for (const Bytes& bytes : whole) {
    bool isRefused = false;
    for (std::size_t size = sizeof(nlmsghdr); size < bytes.size(); ++size) {
      Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
      const auto length = static_cast<std::uint32_t>(size);
      std::memcpy(cut.data(), &length, sizeof(length));
      try {
        decodeBytes(cut);
        isRefused = false;
      } catch (const MalformedMessageException&) {
        isRefused = true;
      }
      if (size == sizeof(nlmsghdr)) {
        EXPECT_TRUE(isRefused) << "no fixed header";
      }
    }
    EXPECT_TRUE(isRefused) << "the last attribute lacks a byte";
  }
}

TEST(RtMessageTest, routes) {
  const auto decoded = [](const Message& message) { return std::get<RouteMessage>(decodeBytes(message.bytes())); };
  const auto route = decoded(describe(Message(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_APPEND), multipath));
  EXPECT_EQ(route.action, RouteMessage::Action::last);
  EXPECT_EQ(std::tie(route.address, route.length, route.metric, route.table),
            std::make_tuple(IpGenAddr::fromString("10.0.0.0"), 8U, 7U, 1001U));
  const std::vector<RouteHop> hops{{IpGenAddr(), 5, true},
                                   {IpGenAddr::fromString("10.0.0.1"), 2, false},
                                   {IpGenAddr::fromString("2001:db8::1"), 3, false}};
  EXPECT_EQ(route.content.hops, hops) << "in an order of their own";

  TestRoute object{"2001:db8::/32", {{"fe80::1"}}};
  object.nexthopId = 9;
  EXPECT_TRUE(decoded(describe(Message(RTM_NEWROUTE), object)).content.hops.empty()) << "they are the object's";
  rtmsg header{};
  header.rtm_family = AF_INET;
  header.rtm_type = RTN_UNICAST;
  EXPECT_EQ(decoded(Message(RTM_DELROUTE).fixed(header)).action, RouteMessage::Action::gone) << "the default route";
  header.rtm_flags = RTM_F_CLONED;
  EXPECT_EQ(decodeBytes(Message(RTM_NEWROUTE).fixed(header).bytes()).index(), 0U) << "of the cache";
  header.rtm_flags = 0;
  header.rtm_dst_len = 33;
  EXPECT_THROW(decodeBytes(Message(RTM_NEWROUTE).fixed(header).bytes()), MalformedMessageException);
}

TEST(RtMessageTest, randomDamageIsRefusedOrDecodedWithinTheLimits) {
  std::mt19937 random(1);
  const Bytes link = describe(Message(RTM_NEWLINK), TestLink{7, "eth0", IFF_UP, IF_OPER_UP, mac}).bytes();
  const Bytes address =
      describe(Message(RTM_NEWADDR), TestAddress{2, IpGenAddr::fromString("2001:db8::1"), 64}).bytes();
  const Bytes route = describe(Message(RTM_NEWROUTE), multipath).bytes();
  unsigned decoded = 0;
  for (int round = 0; round < 20000; ++round) {
    Bytes bytes = round % 3 == 0 ? route : round % 3 == 1 ? link : address;
    for (auto count = 1 + random() % 3; count > 0; --count) {
      bytes[4 + random() % (bytes.size() - 4)] = static_cast<std::uint8_t>(random());
    }
    try {
      const RtMessage message = decodeBytes(bytes);
      if (const auto* found = std::get_if<AddressMessage>(&message)) {
        ++decoded;
        ASSERT_TRUE(found->local.isSet() && found->ifIndex > 0);
        ASSERT_LE(found->prefixLength, found->local.af() == Vantu::ipv4_ ? 32U : 128U);
      } else if (const auto* changed = std::get_if<LinkMessage>(&message)) {
        ++decoded;
        ASSERT_TRUE(changed->name.size() < IFNAMSIZ && changed->ifIndex > 0);
      } else if (const auto* path = std::get_if<RouteMessage>(&message)) {
        ++decoded;
        ASSERT_LE(path->length, path->address.af() == Vantu::ipv4_ ? 32U : 128U);
      }
    } catch (const MalformedMessageException&) {
    }
  }
  EXPECT_GT(decoded, 1000U);
}

TEST(RtMessageTest, statusOfControlMessages) {
  const auto status = [](const Message& message) {
    const Bytes bytes = message.bytes();
    return statusOf(*reinterpret_cast<const nlmsghdr*>(bytes.data()));
  };
  EXPECT_EQ(status(Message(NLMSG_DONE).fixed(0)), 0);
  EXPECT_EQ(status(Message(NLMSG_ERROR).fixed(nlmsgerr{-EBUSY, {}})), EBUSY);
  EXPECT_EQ(status(Message(NLMSG_DONE)), EBADMSG);
}

}  // namespace
}  // namespace Mirror

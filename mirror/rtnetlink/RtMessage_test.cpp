// Messages that no kernel sends, or whose meaning the tests of the whole mirror cannot see.

#include "mirror/rtnetlink/RtMessage.h"

#include <gtest/gtest.h>
#include <linux/if_arp.h>

#include <cerrno>
#include <random>

#include "mirror/testing/TestMessages.h"

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

const auto mac = Vantu::EthAddr::fromString("02:00:00:00:00:07");
const TestLink eth0{7, "eth0", IFF_UP, IF_OPER_UP, mac};
const TestAddress address{2, IpGenAddr::fromString("10.0.0.1")};
const TestAddress address6{2, IpGenAddr::fromString("2001:db8::1"), 64};
const TestRoute multipath{
    "10.0.0.0/8", {{"10.0.0.1"}, {"2001:db8::1", 3}, {"", 5, true}}, 7, RTPROT_STATIC, RTN_UNICAST, 0, 1001};
const ifinfomsg linkHeader{AF_UNSPEC, 0, 0, 2, 0, 0};

TEST(RtMessageTest, links) {
  using namespace Interface;
  const OperStatus expected[] = {operStatusUnknown, operStatusNotPresent, operStatusDown, operStatusLowerLayerDown,
                                 operStatusTesting, operStatusDormant,    operStatusUp,   operStatusUnknown};
  for (int state = 0; state < 8; ++state) {
    const Bytes bytes = describe(Message(RTM_NEWLINK), TestLink{1, "lo", IFF_UP, state}).bytes();
    EXPECT_EQ(std::get<LinkMessage>(decodeBytes(bytes)).operStatus, expected[state]) << state;
  }
  Message message = Message(RTM_NEWLINK).fixed(linkHeader);
  message.attribute(0x3FFF, Bytes{1, 2, 3, 4, 5}).attribute(IFLA_ADDRESS, Bytes{10, 0, 0, 1});
  message.attribute(IFLA_OPERSTATE | NLA_F_NET_BYTEORDER, Bytes{6});
  const auto odd = std::get<LinkMessage>(decodeBytes(message.bytes()));
  EXPECT_EQ(odd.operStatus, operStatusUp) << "whatever flags the type has";
  EXPECT_EQ(odd.ethAddr, Vantu::EthAddr()) << "no address of six bytes";
}

// Kernels without the modules for such links cannot be asked.
TEST(RtMessageTest, detailsOfLinks) {
  struct Case {
    unsigned hardware;
    const char *kind, *masterKind;
    bool isElsewhere;  // IFLA_LINK
    std::uint32_t ifType, lower;
    bool isPort;
    Bytes address, physAddress;
  };
  const Bytes ethernet{2, 0, 0, 0, 0, 1}, ipv4{10, 0, 0, 1}, ipv6(16, 0xfd), eui64(8, 0xab), guid(20, 0x80);
  for (const auto& [hardware, kind, masterKind, isElsewhere, ifType, lower, isPort, given, physAddress] :
       {Case{ARPHRD_ETHER, "vlan", "bond", false, 135, 3, true, ethernet, ethernet},
        {ARPHRD_ETHER, "macvlan", "vrf", false, 6, 3, false, ethernet, ethernet},
        {ARPHRD_ETHER, "vlan", "bridge", true, 135, 0, true, ethernet, ethernet},
        {ARPHRD_ETHER, "veth", "team", false, 6, 0, true, ethernet, ethernet},
        {ARPHRD_ETHER, "bond", "bridge", false, 161, 3, true, Bytes(6), {}},
        {ARPHRD_ETHER, "gretap", "vrf", false, 6, 3, false, ethernet, ethernet},
        {ARPHRD_TUNNEL, "ipip", "vrf", false, 131, 3, false, ipv4, {}},
        {ARPHRD_SIT, "sit", "vrf", false, 131, 3, false, ipv4, {}},
        {ARPHRD_IPGRE, "gre", "vrf", false, 131, 3, false, ipv4, {}},
        {ARPHRD_TUNNEL6, "ip6tnl", "vrf", false, 131, 3, false, ipv6, {}},
        {ARPHRD_IP6GRE, "ip6gre", "vrf", false, 131, 3, false, ipv6, {}},
        {ARPHRD_INFINIBAND, "", "vrf", false, 199, 3, false, guid, guid},
        {ARPHRD_IEEE1394, "", "vrf", false, 1, 3, false, eui64, eui64},
        {ARPHRD_ETHER, "vrf", "vrf", false, 53, 3, false, ethernet, ethernet},
        {ARPHRD_NONE, "wireguard", "vrf", false, 131, 3, false, {}, {}},
        {ARPHRD_IEEE80211, "", "vrf", false, 1, 3, false, ethernet, ethernet}}) {
    Bytes info = attributeBytes(IFLA_INFO_KIND, std::string(kind));
    append(info, attributeBytes(IFLA_INFO_SLAVE_KIND, std::string(masterKind)));
    if (std::string(kind) == "vrf")
      append(info, attributeBytes(IFLA_INFO_DATA, attributeBytes(IFLA_VRF_TABLE, 7U)));
    Message message =
        Message(RTM_NEWLINK).fixed(ifinfomsg{AF_UNSPEC, 0, static_cast<unsigned short>(hardware), 2, IFF_UP, 0});
    message.attribute(IFLA_IFNAME, std::string("x0")).attribute(IFLA_LINK, 3U).attribute(IFLA_MASTER, 4U);
    message.attribute(IFLA_LINKINFO | NLA_F_NESTED, info).attribute(IFLA_PROMISCUITY, 2U);
    if (isElsewhere) message.attribute(IFLA_LINK_NETNSID, 0);
    message.attribute(IFLA_IFALIAS, std::string("a\xff")).attribute(IFLA_ADDRESS, given);
    message.attribute(IFLA_PARENT_DEV_NAME, std::string("0000:00:03.0")).attribute(IFLA_MTU, 9000U);
    const std::string phys(physAddress.begin(), physAddress.end());
    const LinkDetails expected{ifType, 9000, phys, "a\xff", true, true, lower, isPort};
    EXPECT_EQ(std::get<LinkMessage>(decodeBytes(message.bytes())).details, expected) << kind;
  }
}

TEST(RtMessageTest, messagesForOthersArePassedOver) {
  ndmsg bridge{};
  bridge.ndm_family = AF_BRIDGE;
  rtmsg cached{};
  cached.rtm_family = AF_INET;
  cached.rtm_type = RTN_UNICAST;
  cached.rtm_flags = RTM_F_CLONED;
  rtmsg certainSenders = cached;
  certainSenders.rtm_flags = 0;
  certainSenders.rtm_src_len = 8;
  const Message cases[] = {
      Message(0xFFFF),
      Message(RTM_NEWROUTE).fixed(rtmsg{}),
      Message(RTM_NEWROUTE).fixed(cached),
      Message(RTM_NEWROUTE).fixed(certainSenders),
      Message(RTM_NEWADDR).fixed(ifaddrmsg{AF_PHONET, 0, 0, 0, 2}),
      Message(RTM_DELLINK).fixed(ifinfomsg{AF_BRIDGE, 0, 0, 2, 0, 0}),  // a port leaves its bridge
      Message(RTM_NEWNEIGH).fixed(bridge),
      describe(Message(RTM_NEWNEIGH), TestNeighbour{3, address.local, mac, NUD_REACHABLE, NTF_PROXY}),
      describeForwarding(Message(RTM_NEWNETCONF), Vantu::ipv4_, NETCONFA_IFINDEX_DEFAULT, 1)};
  for (const auto& message : cases) EXPECT_EQ(decodeBytes(message.bytes()).index(), 0U) << &message - cases;
}

// What random damage, below, is unlikely to make.
TEST(RtMessageTest, wrongContentsAreRefused) {
  const auto link = [] { return Message(RTM_NEWLINK).fixed(linkHeader); };
  const auto newAddress = [] { return Message(RTM_NEWADDR).fixed(ifaddrmsg{AF_INET, 24, 0, 0, 2}); };
  ndmsg neighbour{};
  neighbour.ndm_family = AF_INET;
  neighbour.ndm_ifindex = 3;
  const std::pair<const char*, Message> cases[] = {
      {"state of no byte", link().attribute(IFLA_OPERSTATE, Bytes())},
      {"name of 16 bytes", link().attribute(IFLA_IFNAME, std::string(16, 'x'))},
      {"a VRF without a table",
       link().attribute(IFLA_LINKINFO, attributeBytes(IFLA_INFO_KIND, std::string("vrf")))},
      {"no address", newAddress()},
      {"address of 3 bytes", newAddress().attribute(IFA_LOCAL, Bytes{10, 0, 0})},
      {"address of 16 bytes", newAddress().attribute(IFA_LOCAL, Bytes(16, 1))},
      {"flags of 2 bytes", newAddress().attribute(IFA_LOCAL, Bytes{10, 0, 0, 1}).attribute(IFA_FLAGS, Bytes{1, 0})},
      {"neighbour without an address", Message(RTM_NEWNEIGH).fixed(neighbour)},
      {"next-hop object without a number", Message(RTM_NEWNEXTHOP).fixed(nhmsg{})}};
  for (const auto& [what, message] : cases) {
    EXPECT_THROW(decodeBytes(message.bytes()), MalformedMessageException) << what;
  }
}

const Bytes wholes[] = {describe(Message(RTM_NEWLINK), eth0).bytes(),
                        describe(Message(RTM_NEWADDR), address).bytes(),
                        describe(Message(RTM_NEWADDR), address6).bytes(),
                        describe(Message(RTM_NEWROUTE), multipath).bytes(),
                        describe(Message(RTM_NEWNEXTHOP), TestNexthop{1, {"10.0.0.1"}}).bytes(),
                        describeForwarding(Message(RTM_NEWNETCONF), Vantu::ipv4_, NETCONFA_IFINDEX_ALL, 1).bytes()};

Bytes cutTo(std::size_t size, Bytes bytes) {
  bytes.resize(size);
  const auto length = static_cast<std::uint32_t>(size);
  std::memcpy(bytes.data(), &length, sizeof(length));
  return bytes;
}

TEST(RtMessageTest, messagesWithoutTheirHeaderOrTheirLastByteAreRefused) {
  for (const Bytes& bytes : wholes) {
    for (const std::size_t size : {sizeof(nlmsghdr), bytes.size() - 1}) {
      EXPECT_THROW(decodeBytes(cutTo(size, bytes)), MalformedMessageException) << size;
    }
  }
}

TEST(RtMessageTest, randomDamageIsRefusedOrDecodedWithinTheLimits) {
  std::mt19937 random(1);
  unsigned decoded = 0;
  const auto limit = [](const IpGenAddr& addr) { return addr.af() == Vantu::ipv4_ ? 32U : 128U; };
  for (int round = 0; round < 20000; ++round) {
    const Bytes& whole = wholes[random() % std::size(wholes)];
    const auto size = random() % 4 == 0 ? sizeof(nlmsghdr) + random() % whole.size() / 2 : whole.size();
    Bytes bytes = cutTo(std::min(size, whole.size()), whole);
    for (auto count = 1 + random() % 3; count > 0; --count) {
      bytes[4 + random() % (bytes.size() - 4)] = static_cast<std::uint8_t>(random());
    }
    try {
      const RtMessage message = decodeBytes(bytes);
      ++decoded;
      if (const auto* found = std::get_if<AddressMessage>(&message)) {
        ASSERT_TRUE(found->local.isSet() && found->ifIndex > 0 && found->prefixLength <= limit(found->local));
      } else if (const auto* changed = std::get_if<LinkMessage>(&message)) {
        ASSERT_TRUE(changed->ifIndex > 0 && (!changed->name.empty() || !changed->isWhole));
      } else if (const auto* path = std::get_if<RouteMessage>(&message)) {
        ASSERT_LE(path->length, limit(path->address));
      }
    } catch (const MalformedMessageException&) {
    }
  }
  EXPECT_GT(decoded, 1000U);
}

TEST(RtMessageTest, anEndWithoutAStatusIsAnError) {
  const Bytes bytes = Message(NLMSG_DONE).bytes();
  EXPECT_EQ(statusOf(*reinterpret_cast<const nlmsghdr*>(bytes.data())), EBADMSG);
}

}  // namespace
}  // namespace Mirror

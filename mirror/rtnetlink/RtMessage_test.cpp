// Messages that no kernel sends, or whose meaning the tests of the whole mirror cannot see.

#include "mirror/rtnetlink/RtMessage.h"

#include <gtest/gtest.h>

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
    const Message message = describe(Message(RTM_NEWLINK), TestLink{1, "lo", IFF_UP, state});
    EXPECT_EQ(std::get<LinkMessage>(decodeBytes(message.bytes())).operStatus, expected[state]) << state;
  }
  const auto odd = std::get<LinkMessage>(decodeBytes(Message(RTM_NEWLINK)
                                                         .fixed(linkHeader)
                                                         .attribute(0x3FFF, Bytes{1, 2, 3, 4, 5})
                                                         .attribute(IFLA_ADDRESS, Bytes{10, 0, 0, 1})
                                                         .attribute(IFLA_OPERSTATE | NLA_F_NET_BYTEORDER, Bytes{6})
                                                         .bytes()));
  EXPECT_EQ(odd.operStatus, operStatusUp) << "whatever flags the type has";
  EXPECT_EQ(odd.ethAddr, Vantu::EthAddr()) << "no address of six bytes";
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

TEST(RtMessageTest, wrongContentsAreRefused) {
  const auto link = [] { return Message(RTM_NEWLINK).fixed(linkHeader); };
  const auto newAddress = [](unsigned char length, unsigned index) {
    return Message(RTM_NEWADDR).fixed(ifaddrmsg{AF_INET, length, 0, 0, index});
  };
  const Bytes ten{10, 0, 0, 1};
  rtmsg tooLong{};
  tooLong.rtm_family = AF_INET;
  tooLong.rtm_type = RTN_UNICAST;
  tooLong.rtm_dst_len = 33;
  ndmsg neighbour{};
  neighbour.ndm_family = AF_INET;
  neighbour.ndm_ifindex = 3;
  const std::pair<const char*, Message> cases[] = {
      {"index 0", Message(RTM_NEWLINK).fixed(ifinfomsg{})},
      {"state of no byte", link().attribute(IFLA_OPERSTATE, Bytes())},
      {"empty name", link().attribute(IFLA_IFNAME, std::string())},
      {"name of 16 bytes", link().attribute(IFLA_IFNAME, std::string(16, 'x'))},
      {"a VRF without a table",
       link().attribute(IFLA_LINKINFO, attributeBytes(IFLA_INFO_KIND, std::string("vrf")))},
      {"no address", newAddress(24, 2)},
      {"address of 3 bytes", newAddress(24, 2).attribute(IFA_LOCAL, Bytes{10, 0, 0})},
      {"address of 16 bytes", newAddress(24, 2).attribute(IFA_LOCAL, Bytes(16, 1))},
      {"prefix length 33", newAddress(33, 2).attribute(IFA_LOCAL, ten)},
      {"address of no interface", newAddress(24, 0).attribute(IFA_LOCAL, ten)},
      {"flags of 2 bytes", newAddress(24, 2).attribute(IFA_LOCAL, ten).attribute(IFA_FLAGS, Bytes{1, 0})},
      {"neighbour without an address", Message(RTM_NEWNEIGH).fixed(neighbour)},
      {"route of prefix length 33", Message(RTM_NEWROUTE).fixed(tooLong)},
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

// Every kind of message cut at every length, its header telling the cut length and the true one of its attributes.
TEST(RtMessageTest, messagesCutShort) {
  for (const Bytes& bytes : wholes) {
    bool isRefused = false;
    for (std::size_t size = sizeof(nlmsghdr); size < bytes.size(); ++size) {
      Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
      const auto length = static_cast<std::uint32_t>(size);
      std::memcpy(cut.data(), &length, sizeof(length));
      try {
        isRefused = false;
        decodeBytes(cut);
      } catch (const MalformedMessageException&) {
        isRefused = true;
      }
      EXPECT_TRUE(isRefused || size > sizeof(nlmsghdr)) << "no fixed header";
    }
    EXPECT_TRUE(isRefused) << "the last attribute lacks a byte";
  }
}

TEST(RtMessageTest, randomDamageIsRefusedOrDecodedWithinTheLimits) {
  std::mt19937 random(1);
  unsigned decoded = 0;
  const auto limit = [](const IpGenAddr& addr) { return addr.af() == Vantu::ipv4_ ? 32U : 128U; };
  for (int round = 0; round < 20000; ++round) {
    Bytes bytes = wholes[random() % std::size(wholes)];
    for (auto count = 1 + random() % 3; count > 0; --count) {
      bytes[4 + random() % (bytes.size() - 4)] = static_cast<std::uint8_t>(random());
    }
    try {
      const RtMessage message = decodeBytes(bytes);
      ++decoded;
      if (const auto* found = std::get_if<AddressMessage>(&message)) {
        ASSERT_TRUE(found->local.isSet() && found->ifIndex > 0 && found->prefixLength <= limit(found->local));
      } else if (const auto* changed = std::get_if<LinkMessage>(&message)) {
        ASSERT_TRUE(changed->name.size() < IFNAMSIZ && changed->ifIndex > 0);
      } else if (const auto* path = std::get_if<RouteMessage>(&message)) {
        ASSERT_LE(path->length, limit(path->address));
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

// Random histories of two namespaces: after them the store holds what the kernel that the tests make up has.

#include <random>

#include "mirror/testing/NamespaceMirrorTest.h"

namespace Mirror {
namespace {

using namespace Test;
using testing::Contains;
using testing::HasSubstr;

// Links, VRF devices, addresses, neighbours, next-hop objects and routes of two namespaces change; messages are lost or
// overtake each other; dumps are interrupted, refused or not answered; the mirror is started again; and one namespace
// comes and goes.
class RandomHistory : public NamespaceMirrorTest, public testing::WithParamInterface<unsigned> {
 protected:
  int below(std::size_t limit) { return static_cast<int>(random_() % limit); }
  bool oneIn(std::size_t count) { return below(count) == 0; }
  template <class All>
  decltype(auto) any(All& all) {
    return *std::next(std::begin(all), below(std::size(all)));
  }

  std::string freeName(const FakeKernel& kernel) {
    std::string name;
    const auto hasName = [&](const auto& entry) { return entry.second.name == name; };
    do {
      name = fmt::format("\xff/.{}\n", below(12));
    } while (std::any_of(kernel.links.begin(), kernel.links.end(), hasName));
    return name;
  }
  void changeLink(FakeKernel& kernel) {
    TestLink link = any(kernel.links).second;
    if (oneIn(2)) link.name = freeName(kernel);
    link.flags = oneIn(3) ? 0 : IFF_UP;
    link.operState = link.flags ? below(7) : int{IF_OPER_DOWN};
    if (oneIn(4)) link.vrfTable = oneIn(2) ? std::nullopt : std::optional<std::uint32_t>(1000 + below(3));
    if (oneIn(2)) link.master = oneIn(2) ? 0 : static_cast<std::uint32_t>(any(kernel.links).first);
    kernel.linkIs(link);
  }
  TestAddress anyAddress(const FakeKernel& kernel) {
    static const std::uint32_t flags[] = {IFA_F_PERMANENT, IFA_F_TENTATIVE,  IFA_F_TENTATIVE | IFA_F_OPTIMISTIC,
                                          IFA_F_DADFAILED, IFA_F_DEPRECATED, IFA_F_NODAD};
    const int ifIndex = any(kernel.links).first;
    if (oneIn(3)) return at(ifIndex, fmt::format("2001:db8::{}/{}", below(6), oneIn(9) ? 128 : 64), any(flags));
    TestAddress address = at(ifIndex, fmt::format("10.0.0.{}/{}", 1 + below(9), oneIn(4) ? 16 : 24));
    if (oneIn(5)) address.peer = Vantu::IpGenAddr::fromString(fmt::format("10.9.9.{}", below(2)));
    return address;
  }
  TestNeighbour anyNeighbour(const FakeKernel& kernel) {
    static const std::uint16_t states[] = {NUD_NONE,  NUD_INCOMPLETE, NUD_REACHABLE, NUD_STALE,    NUD_DELAY,
                                           NUD_PROBE, NUD_FAILED,     NUD_NOARP,     NUD_PERMANENT};
    auto result = neighbour(any(kernel.links).first, (oneIn(3) ? "fe80::" : "10.0.0.") + std::to_string(below(9)),
                            any(states), below(3));
    if (oneIn(9)) result.ethAddr.reset();
    return result;
  }
  std::optional<TestRoute> anyRoute(const FakeKernel& kernel) {
    static const std::uint8_t types[] = {RTN_BLACKHOLE, RTN_UNREACHABLE, RTN_PROHIBIT};
    static const std::uint8_t protocols[] = {RTPROT_KERNEL, RTPROT_BOOT, RTPROT_STATIC, 42};
    const bool isIpv6 = oneIn(2);
    TestRoute route{fmt::format("{}{}{}", isIpv6 ? "2001:db" : "10.", below(4), isIpv6 ? "::/32" : ".0.0/16")};
    if (oneIn(9)) route.prefix = isIpv6 ? "::/0" : "0.0.0.0/0";
    if (isIpv6 && oneIn(4)) route.prefix = "fe80::/64";
    route.metric = static_cast<std::uint32_t>(below(2));
    route.tos = !isIpv6 && oneIn(6) ? 16 : 0;
    route.table = oneIn(4) ? 1000 + static_cast<unsigned>(below(3)) : 254;
    route.protocol = oneIn(2) ? any(protocols) : static_cast<std::uint8_t>(185 + below(15));
    if (!isIpv6 && !kernel.addresses.empty() && oneIn(5)) route.source = any(kernel.addresses).local;
    if (route.source.af() == Vantu::ipv6_) route.source = {};
    if (oneIn(8)) {
      route.type = any(types);
    } else if (oneIn(4) && !kernel.nexthops.empty()) {
      route.nexthopId = any(kernel.nexthops).first;
    } else {
      std::set<TestHop> hops;
      for (int count = 1 + below(3); count > 0; --count) {
        const bool isVia = isIpv6 || oneIn(9);
        hops.insert({oneIn(4) ? "" : fmt::format("{}{}", isVia ? "fe80::" : "10.0.0.", 1 + below(4)),
                     any(kernel.links).first});
      }
      if (hops.begin()->gateway.empty()) hops.erase(std::next(hops.begin()), hops.end());
      route.hops = {hops.begin(), hops.end()};
    }
    // The kernel takes none through a link that is down.
    const auto isUp = [&](const TestHop& hop) { return kernel.isUp(hop.ifIndex); };
    return std::all_of(route.hops.begin(), route.hops.end(), isUp) ? std::optional(route) : std::nullopt;
  }
  void changeNexthop(FakeKernel& kernel) {
    const auto id = static_cast<std::uint32_t>(1 + below(6));
    const int ifIndex = any(kernel.links).first;
    if (oneIn(3)) {
      if (!kernel.nexthops.empty()) kernel.nexthopDel(any(kernel.nexthops).first);
    } else if (id == 6) {
      kernel.nexthopIs({id, {}, {}, true});
    } else if (id < 5) {
      if (kernel.isUp(ifIndex)) kernel.nexthopIs({id, {fmt::format("10.0.0.{}", below(4)), ifIndex}});
    } else {
      TestNexthop group{id};
      for (std::uint32_t member = 1; member < 5; ++member) {
        if (kernel.nexthops.contains(member)) group.members.push_back(member);
      }
      if (!group.members.empty()) kernel.nexthopIs(group);
    }
  }
  void change() {
    static const std::uint16_t flags[] = {NLM_F_EXCL, NLM_F_EXCL, NLM_F_APPEND, NLM_F_REPLACE, 0};
    FakeKernel& kernel = oneIn(4) ? otherKernel_ : kernel_;
    const int what = below(20);
    if (what == 0 && kernel.links.size() < 8) {
      kernel.linkIs({oneIn(4) ? 50 + below(5) : nextIndex_++, freeName(kernel)});
    } else if (what == 1 && kernel.links.size() > 2) {
      kernel.linkDel(any(kernel.links).first);
    } else if (what == 2) {
      changeLink(kernel);
    } else if (what < 5 && !kernel.addresses.empty()) {
      kernel.addressDel(any(kernel.addresses));
    } else if (what < 8) {
      kernel.addressIs(anyAddress(kernel));
    } else if (what < 10) {
      kernel.neighbourIs(anyNeighbour(kernel));
    } else if (what == 10 && !kernel.neighbours.empty()) {
      kernel.neighbourDel(any(kernel.neighbours));
    } else if (what == 11) {
      changeNexthop(kernel);
    } else if (what < 14 && !kernel.routes.empty()) {
      const auto index = static_cast<std::size_t>(below(kernel.routes.size()));
      const bool isMultipath = kernel.routes[index].isIpv6() && kernel.routes[index].hops.size() > 1;
      isMultipath&& oneIn(2) ? kernel.hopDel(index) : kernel.routeDel(index);
    } else if (const auto route = anyRoute(kernel)) {
      kernel.routeIs(*route, any(flags));
    }
  }

  void trouble() {
    isRestless_ = true;
    if (oneIn(3)) kernel_.queueLimit = otherKernel_.queueLimit = static_cast<std::size_t>(below(20));
    if (!mirror_->isComplete()) return;
    kernel_.isDumpSilent = oneIn(9);
    kernel_.isReopenRefused = oneIn(9);
    if (oneIn(9)) kernel_.dumpStatus = oneIn(2) ? EBUSY : ENOMEM;
    if (oneIn(9)) kernel_.isSendRefused = [this] { return oneIn(4); };
  }
  void heal() {
    kernel_.dumpStatus = 0;
    kernel_.isDumpSilent = kernel_.isReopenRefused = isRestless_ = false;
    kernel_.isSendRefused = [] { return false; };
    kernel_.queueLimit = otherKernel_.queueLimit = SIZE_MAX;
  }

  // A number once published is the same VRF's for ever, since there are more numbers than names.
  void expectStableVrfIds() {
    for (const auto& [id, name] : tree().vrfIdStatus->vrfName()) {
      ASSERT_EQ(vrfNames_.try_emplace(id, name).first->second, name);
    }
  }

  std::map<Vrf::VrfIdMap::VrfId, L3::VrfName> vrfNames_;
  std::mt19937 random_{GetParam()};
  int nextIndex_ = 10;
  bool isRestless_ = true;
};

TEST_P(RandomHistory, endsInWhatTheKernelHas) {
  for (FakeKernel* kernel : {&kernel_, &otherKernel_}) {
    kernel->isPieceLate = [this] {
      if (isRestless_ && oneIn(4)) change();  // the piece is ready, and this comes first
      return oneIn(3);
    };
    kernel->isInterrupted = [this] { return oneIn(20); };
    kernel->keepsAddresses = oneIn(2);
    kernel->routes = {{"10.99.0.0/16", {{"", 2}}, 0, RTPROT_STATIC, RTN_LOCAL},
                      {"10.98.0.0/16", {}, 0, RTPROT_STATIC, RTN_THROW}};
  }
  for (int i = 0; i < 40; ++i) change();
  mirror_->start();
  for (int round = 0; round < 150; ++round) {
    if (oneIn(15)) other_ ? withdrawOther() : startOther("\xff/.0\n");
    if (oneIn(30)) mirror_->reread();
    if (oneIn(30)) {
      heal();
      close();
      open();
      mirror_->start();
    }
    kernel_.objectsPerPiece = otherKernel_.objectsPerPiece = static_cast<std::size_t>(oneIn(2) ? 99 : 1 + below(5));
    trouble();
    for (int count = below(30); count > 0; --count) {
      change();
      if (oneIn(6)) turn();
    }
    now_ += below(3);
    mirror_->poll();
    if (!oneIn(3)) continue;
    heal();
    for (int polls = 0; polls < 100 && !isRight(); ++polls) poll();
    expectStableVrfIds();
    ASSERT_THAT(shown(), testing::ContainerEq(expectation())) << "seed " << GetParam() << ", round " << round;
  }
  EXPECT_THAT(traces_.lines, testing::Not(Contains(HasSubstr("ignored"))));
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomHistory, testing::Range(1U, 11U));

}  // namespace
}  // namespace Mirror

#pragma once
// What the tests of NamespaceMirror share: a mirror of a kernel that is not one.

#include <gtest/gtest.h>

#include "kel/Trace.h"
#include "mirror/NamespaceMirror.h"
#include "mirror/testing/TreeExpectation.h"

namespace Mirror::Test {

inline TestAddress at(int ifIndex, const char* text, std::uint32_t flags = IFA_F_PERMANENT) {
  const std::string whole = text;
  const auto slash = whole.find('/');
  return {ifIndex, Vantu::IpGenAddr::fromString(whole.substr(0, slash)),
          static_cast<unsigned>(std::stoul(whole.substr(slash + 1))), Vantu::IpGenAddr(), flags};
}

inline TestNeighbour neighbour(int ifIndex, const char* addr, std::uint16_t state = NUD_REACHABLE, int mac = 1) {
  return {ifIndex, Vantu::IpGenAddr::fromString(addr),
          Vantu::EthAddr::fromString("02:00:00:00:00:0" + std::to_string(mac)), state};
}

class NamespaceMirrorTest : public testing::Test {
 protected:
  NamespaceMirrorTest() {
    Kel::System::clockIs([this] { return now_; });
    Kel::TraceConfig::sinkIs([this](const Kel::TraceHandle&, unsigned level, const std::string& text) {
      if (level == 0) complaints_.push_back(text);
    });
    kernel_.links[1] = {1, "lo", IFF_UP | IFF_RUNNING, IF_OPER_UNKNOWN};
    kernel_.links[2] = {2, "eth0"};
  }
  ~NamespaceMirrorTest() override {
    Kel::System::clockIs({});
    Kel::TraceConfig::sinkIs({});
  }

  static void settle(NamespaceMirror& mirror) {
    while (mirror.receive()) {
    }
  }
  void settle() { settle(mirror_); }
  void startAndSettle() {
    mirror_.start();
    settle();
  }
  // The ids of VRF devices are the mirror's choice; that they are proper ones is tested elsewhere.
  Lines expectation() const {
    std::map<std::string, unsigned> ids;
    for (const auto& [name, id] : picture_.tree.vrfNameStatus->vrfId()) {
      if (!name.isDefault()) ids[name.stringValue()] = id.value();
    }
    Lines lines = expectedLines(kernel_, {}, ids);
    for (const auto& [ifIndex, link] : kernel_.links) {
      if (link.vrfTable) lines.insert("VRF " + link.name + " " + std::to_string(*link.vrfTable));
    }
    return lines;
  }
  // What the picture shows, with the VRFs.
  Lines shown() const {
    Lines lines = linesOf(picture_);
    for (const auto& [name, local] : tree_.allVrfStatusLocal->vrf()) {
      const auto info = Kel::dynamicPtr<Routing::VrfInfo>(tree_.routingVrfInfoDir->entityPtr(name.stringValue()));
      lines.insert("VRF " + name.stringValue() + " " + std::to_string(info->kernelTable()));
    }
    return lines;
  }
  void expectAgreement() { EXPECT_EQ(shown(), expectation()); }
  void settleAndCompare() {
    settle();
    expectAgreement();
  }
  std::string primary(const char* id) { return primaries(tree_)[id]; }

  Kel::Seconds now_ = 1000;
  std::vector<std::string> complaints_;
  FakeKernel kernel_;
  Picture picture_;
  Varnix::Tree& tree_ = picture_.tree;
  NamespaceMirror mirror_{kernel_, picture_, NamespaceScope(), ForwardingFlags("/nowhere")};
};

}  // namespace Mirror::Test

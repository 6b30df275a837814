#pragma once
// The fixture of tests with a FakeKernel: a mirror of the default namespace, on demand one of a VRF's namespace, and
// the store in which both are published.

#include <gmock/gmock.h>

#include "mirror/NamespaceMirror.h"
#include "mirror/publish/TreePublisher.h"
#include "mirror/testing/Expectation.h"
#include "quillo/testing/TestStore.h"

namespace Mirror::Test {

inline TestAddress at(int ifIndex, const std::string& text, std::uint32_t flags = IFA_F_PERMANENT) {
  const auto slash = text.find('/');
  return {ifIndex, Vantu::IpGenAddr::fromString(text.substr(0, slash)),
          static_cast<unsigned>(std::stoul(text.substr(slash + 1))), Vantu::IpGenAddr(), flags};
}

inline TestNeighbour neighbour(int ifIndex, const std::string& addr, std::uint16_t state = NUD_REACHABLE,
                               int mac = 1) {
  return {ifIndex, Vantu::IpGenAddr::fromString(addr),
          Vantu::EthAddr::fromString("02:00:00:00:00:0" + std::to_string(mac)), state};
}

class NamespaceMirrorTest : public Quillo::Test::TestStore {
 protected:
  NamespaceMirrorTest() {
    stopClock();
    now_ = 1000;
    std::filesystem::create_directories(procSys_ + "/net/ipv4");
    for (FakeKernel* kernel : {&kernel_, &otherKernel_}) {
      kernel->links[1] = {1, "lo", IFF_UP | IFF_RUNNING, IF_OPER_UNKNOWN};
      kernel->links[2] = {2, "eth0"};
    }
    open();
  }
  ~NamespaceMirrorTest() override { close(); }

  // Start and end the mirror's process, in effect: the store stays, everything in memory is made again.
  void open() {
    picture_ = std::make_unique<Picture>();
    publisher_ = std::make_unique<TreePublisher>(*picture_, config());
    if (const auto ids = publisher_->store().get(Quillo::TableId::varnix, "vrf/id/status")) {
      picture_->vrfs.ids().load(*ids);
    }
    kernel_.reopen();
    mirror_ = std::make_unique<NamespaceMirror>(kernel_, *picture_, NamespaceScope(), ForwardingFlags(procSys_));
  }
  void close() {
    other_.reset();
    mirror_.reset();
    publisher_.reset();
    picture_.reset();
  }
  // Mirrors the other namespace as VRF `name`, until withdrawOther().
  void startOther(const std::string& name) {
    const auto id = picture_->vrfs.namespaceIs(L3::VrfName(name));
    otherKernel_.reopen();
    other_ = std::make_unique<NamespaceMirror>(otherKernel_, *picture_, NamespaceScope(L3::VrfName(name), *id),
                                               ForwardingFlags("/nowhere"));
    other_->start();
    mirror_->settle();
  }
  void withdrawOther() {
    other_->withdraw();
    other_.reset();
    mirror_->settle();
  }

  // One turn of the service's event loop. Returns whether more may wait.
  bool turn() {
    bool mayMoreWait = mirror_->receive();
    if (other_) mayMoreWait |= other_->receive();
    if (mirror_->isComplete()) {
      mayMoreWait |= !publisher_->publish();
    } else {
      publisher_->publishRoutes();
    }
    return mayMoreWait || publisher_->isMorePending();
  }
  void run() {
    while (turn()) {
    }
  }
  void startAndRun() {
    mirror_->start();
    run();
  }
  void poll(Kel::Seconds seconds = 1) {
    now_ += seconds;
    mirror_->poll();
    if (other_) other_->poll();
    publisher_->poll();
    run();
  }

  // The lines that must be published for the kernels as they are. Takes the VRF ids from the mirror, since it may
  // choose them; other tests check the choice.
  Lines expectation() const {
    std::map<std::string, unsigned> ids;
    for (const auto& [name, id] : tree().vrfNameStatus->vrfId()) ids[name.stringValue()] = id.value();
    ids.erase("default");
    const TestScope other = otherScope();
    Lines lines;
    if (other_) {
      lines = expectedLines(otherKernel_, other);
      lines.merge(expectedRouteLines(otherKernel_, {{254, other.id}}, other));
      lines.insert("VRF " + other.vrf + " 254 namespace");
      ids.erase(other.vrf);
    }
    VrfsByTable vrfs{{254, 0}};
    for (const auto& [ifIndex, link] : kernel_.links) {
      if (!link.vrfTable || (other_ && link.name == other.vrf)) continue;
      lines.insert(fmt::format("VRF {} {}", link.name, *link.vrfTable));
      vrfs.emplace(*link.vrfTable, ids[link.name]);
    }
    lines.merge(expectedLines(kernel_, {}, ids));
    lines.merge(expectedRouteLines(kernel_, vrfs));
    return lines;
  }
  // The lines that are published.
  Lines shown() const {
    Lines lines = publishedLines(*picture_, *mount());
    for (const auto& [name, local] : tree().allVrfStatusLocal->vrf()) {
      const auto info = Kel::dynamicPtr<Routing::VrfInfo>(tree().routingVrfInfoDir->entityPtr(name.stringValue()));
      lines.insert(fmt::format("VRF {} {}{}", name.stringValue(), info->kernelTable(),
                               local->hasNamespace() ? " namespace" : ""));
    }
    return lines;
  }
  bool isRight() const { return shown() == expectation(); }
  void runAndCompare() {
    run();
    EXPECT_THAT(shown(), testing::ContainerEq(expectation()));
  }
  const Varnix::Tree& tree() const { return picture_->tree; }
  std::string primary(const char* id) const {
    return tree().ipConfig->ipIntfConfig(Vantu::IntfId(id))->addrWithMask().stringValue();
  }
  std::uint64_t journalHead() const { return publisher_->store().seq(); }

  Quillo::Test::Traces traces_;
  const std::string procSys_ = parent_ + "/sys";
  FakeKernel kernel_, otherKernel_;
  std::unique_ptr<Picture> picture_;
  std::unique_ptr<TreePublisher> publisher_;
  std::unique_ptr<NamespaceMirror> mirror_, other_;

 private:
  TestScope otherScope() const {
    return other_ ? TestScope{other_->scope().vrf().stringValue(), other_->scope().vrfId().value()} : TestScope();
  }
};

}  // namespace Mirror::Test

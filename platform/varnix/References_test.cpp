// What refers to something is never seen without it, however the documents come in.

#include "varnix/testing/TestTree.h"

namespace VarnixTest {
namespace {

// Looks for an address whose VRF is not known to its record.
struct HomelessWatch : Ip::IpIntfStatus::Notifiee {
  unsigned* found = nullptr;
  void look() const {
    const auto status = notifier();
    const bool hasAddress = !status->activeAddrWithMask().address().isZero();
    if (hasAddress && !status->l3Status()) ++*found;
  }
  void handleActiveAddrWithMask() override { look(); }
  void handleL3Status() override { look(); }
};
struct HomelessWatches : Ip::Status::Notifiee {
  unsigned found = 0;
  std::map<Vantu::IntfId, Kel::Ptr<HomelessWatch>> watches;
  void handleIpIntfStatus(const Vantu::IntfId& key) override {
    watches.erase(key);
    const auto status = notifier()->ipIntfStatus(key);
    if (!status) return;
    auto& watch = watches[key] = Kel::makePtr<HomelessWatch>();
    watch->found = &found;
    watch->notifierIs(status);
  }
};

// Whatever the steps cut a change into, in the first reading, when following, and after a restart of the publisher.
TEST(References, noAddressIsSeenWithoutItsVrf) {
  for (const auto limit : {1U, 2U, 7U}) {
    const Directory directory;
    std::mt19937 random(limit);
    const auto pick = [&random](unsigned count) { return static_cast<unsigned>(random() % count); };
    auto writer = std::make_unique<Writer>(directory.path());
    const auto change = [&] {
      const auto& tree = writer->tree;
      const auto key = id("eth" + std::to_string(pick(12)));
      const auto ip = tree.ipStatus->ipIntfStatus(key);
      if (ip && pick(2) == 0) {
        tree.ipStatus->ipIntfStatusDel(key);
        tree.l3StatusDir->intfStatusDel(key);
        return;
      }
      const auto l3 = tree.l3StatusDir->intfStatusIs(key);
      l3->vrfIs(L3::VrfName(pick(2) == 0 ? "red" : "blue"));
      const auto status = tree.ipStatus->ipIntfStatusIs(key);
      status->l3StatusIs(l3);
      status->activeAddrWithMaskIs(
          Vantu::IpAddrWithMask::fromString("10.0.0." + std::to_string(pick(200) + 1) + "/24"));
    };
    Reader reader(directory.path());
    auto watch = Kel::makePtr<HomelessWatches>();
    watch->notifierIs(reader.tree().ipStatus);
    for (int round = 0; round < 40; ++round) {
      if (round == 20) {
        writer.reset();
        writer = std::make_unique<Writer>(directory.path());
      }
      for (unsigned i = pick(15); i > 0; --i) change();
      round % 20 == 0 ? writer->documents.publishAll() : writer->documents.publish();
      reader.mount->refresh();
      for (unsigned steps = pick(20); steps > 0; --steps) reader.manager->step(limit);  // seldom all
    }
    while (reader.manager->step(limit)) {
    }
    EXPECT_EQ(textOf(reader.tree()), textOf(writer->tree));
    EXPECT_FALSE(watch->watches.empty());
    EXPECT_EQ(watch->found, 0u) << "steps of " << limit;
  }
}

}  // namespace
}  // namespace VarnixTest

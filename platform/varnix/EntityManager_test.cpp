#include "varnix/EntityManager.h"

#include <gmock/gmock.h>

#include <optional>

#include "varnix/testing/TestTree.h"

namespace VarnixTest {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

class EntityManagerTest : public Quillo::Test::TestStore {};

// Publishers restart, stores are made anew, tombstones expire; a pass is the publisher's or its caller's.
TEST_F(EntityManagerTest, randomHistoriesReachTheirReaders) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    const Varnix::Tree tree(Kel::makePtr<Kel::Dir>(""));
    Mutator mutator(tree, seed);
    Quillo::PublisherConfig config{.directory = directory_ + std::to_string(seed), .name = "test-publisher"};
    config.tombstoneLimit = seed % 3 == 0 ? 2 : 1000;
    std::optional<Writer> writer;
    const Reader follower(config.directory);
    for (int round = 0; round < 25; ++round) {
      mutator.change(40);
      if (round % 8 == 0) {
        writer.reset();
        config.recreate = round == 16;
        writer.emplace(config, tree);
        if (round == 8) writer->store.beginFullPass({Varnix::documentTable});
        round == 8 ? writer->documents.rewriteAll() : writer->documents.publishAll();
        ASSERT_EQ(writer->store.fullPassActive(), round == 8);
        if (round == 8) writer->store.endFullPass();
      } else {
        writer->documents.publish();
      }
      if (round % 3 != 0) continue;  // several commits between two steps
      follower.follow(7);
      ASSERT_EQ(textOf(follower.tree()), textOf(tree)) << "seed " << seed << ", round " << round;
      ASSERT_TRUE(follower.manager->ready());
    }
    const Reader fresh(config.directory);
    fresh.follow(1000);
    ASSERT_EQ(textOf(fresh.tree()), textOf(tree)) << "seed " << seed;
  }
}

// In the first reading, when following, and after a restart of the publisher, which goes on before all is read.
TEST_F(EntityManagerTest, noAddressIsSeenWithoutItsVrf) {
  std::mt19937 random(1);
  std::unique_ptr<Writer> writer;
  const Reader reader(directory_);
  for (unsigned round = 0; round < 200; ++round) {
    const bool isStart = round % 10 == 0;
    if (isStart) {
      writer.reset();
      writer = std::make_unique<Writer>(directory_);
    }
    for (unsigned i = 0; i < 9; ++i) {
      const auto key = id("eth" + std::to_string(i));
      const auto& tree = writer->tree;
      if (random() % 3 == 0) {
        tree.ipStatus->ipIntfStatusDel(key);
        tree.l3StatusDir->intfStatusDel(key);
        continue;
      }
      const auto status = tree.ipStatus->ipIntfStatusIs(key);
      status->l3StatusIs(tree.l3StatusDir->intfStatusIs(key));
      status->activeAddrWithMaskIs(Vantu::IpAddrWithMask(Vantu::IpAddr(10), 1 + round % 32));
    }
    isStart ? writer->documents.publishAll() : writer->documents.publish();
    reader.mount->refresh();
    bool more = true;
    for (auto steps = round % 10 == 9 ? 1000 : random() % 50; more && steps > 0; --steps) {
      more = reader.manager->step(1 + round / 10 % 3);
      for (const auto& [key, status] : reader.tree().ipStatus->ipIntfStatus()) {
        ASSERT_TRUE(status->l3Status() || status->activeAddrWithMask() == Vantu::IpAddrWithMask()) << round;
      }
    }
    ASSERT_TRUE(more || textOf(reader.tree()) == textOf(writer->tree)) << round;
  }
}

struct IntfWatch : Interface::AllIntfStatusDir::Notifiee {
  std::vector<std::string> calls;
  std::string throwsAt;
  void handleIntfStatus(const Vantu::IntfId& key) override {
    if (key.stringValue() == throwsAt) throw Kel::RangeException("cannot react");
    calls.push_back((notifier()->intfStatusHas(key) ? "+" : "-") + key.stringValue());
  }
};
struct IfIndexWatch : Interface::IntfStatus::Notifiee {
  std::vector<std::uint32_t> calls;
  bool throws = false;
  void handleIfIndex() override {
    if (throws) throw std::runtime_error("cannot react either");
    calls.push_back(notifier()->ifIndex());
  }
};
template <class Watch, class Notifier>
Kel::Ptr<Watch> watch(const Kel::Ptr<Notifier>& notifier) {
  auto made = Kel::makePtr<Watch>();
  made->notifierIs(notifier);
  return made;
}

TEST_F(EntityManagerTest, aReactorThatThrowsTakesNothingFromTheRest) {
  Writer writer(directory_);
  const auto dir = writer.tree.intfStatusDir;
  dir->intfStatusIs(id("eth0"))->ifIndexIs(1);
  writer.documents.publishAll();
  Traces traces;
  const Reader reader(directory_);
  reader.follow();
  const auto members = watch<IntfWatch>(reader.tree().intfStatusDir);
  members->throwsAt = "eth1";
  const auto eth0 = watch<IfIndexWatch>(reader.tree().intfStatusDir->intfStatus(id("eth0")));
  eth0->throws = true;
  const auto publish = [&] {
    writer.documents.publish();
    reader.follow();
    EXPECT_EQ(textOf(reader.tree()), textOf(writer.tree));
  };
  for (const auto* name : {"eth0", "eth1", "eth2"}) dir->intfStatusIs(id(name))->ifIndexIs(9);
  publish();
  dir->intfStatusDel(id("eth1"));
  publish();
  EXPECT_THAT(traces.take(),
              UnorderedElementsAre(AllOf(HasSubstr("intfStatus/eth0"), HasSubstr("cannot react either")),
                                   AllOf(HasSubstr("intfStatus/eth1"), HasSubstr("cannot react")),
                                   HasSubstr("intfStatus/eth1")));
}

TEST_F(EntityManagerTest, aRebuildDisturbsNothingThatStaysTheSame) {
  auto writer = std::make_unique<Writer>(directory_);
  const auto fill = [](const Varnix::Tree& tree) {
    for (const auto* name : {"eth0", "eth1", "eth2"}) tree.intfStatusDir->intfStatusIs(id(name))->ifIndexIs(3);
  };
  fill(writer->tree);
  writer->documents.publishAll();
  const Reader reader(directory_);
  reader.follow();
  const auto& dir = *reader.tree().intfStatusDir;
  const auto members = watch<IntfWatch>(reader.tree().intfStatusDir);
  const auto eth0 = watch<IfIndexWatch>(reader.tree().intfStatusDir->intfStatus(id("eth0")));
  const auto eth1 = watch<IfIndexWatch>(reader.tree().intfStatusDir->intfStatus(id("eth1")));

  writer.reset();
  writer = std::make_unique<Writer>(directory_, true);
  reader.follow();
  EXPECT_EQ(dir.intfStatus().size(), 3u) << "the new store is empty: the contents of the old one are served on";
  EXPECT_THAT(reader.manager->status(), AllOf(HasSubstr("was made anew"), HasSubstr("test-publisher (pid ")));
  EXPECT_TRUE(reader.manager->ready());
  fill(writer->tree);
  writer->tree.intfStatusDir->intfStatusDel(id("eth2"));
  writer->tree.intfStatusDir->intfStatus(id("eth1"))->ifIndexIs(4);
  writer->documents.publishAll();
  reader.follow(1);
  EXPECT_EQ(textOf(reader.tree()), textOf(writer->tree));
  EXPECT_THAT(members->calls, ElementsAre("-eth2"));
  EXPECT_THAT(eth0->calls, ElementsAre());
  EXPECT_THAT(eth1->calls, ElementsAre(4u));
  EXPECT_EQ(reader.manager->status(), "");
}

TEST_F(EntityManagerTest, worksInBoundedSteps) {
  Writer writer(directory_);
  for (int i = 0; i < 2000; ++i) writer.tree.intfStatusDir->intfStatusIs(id("Ethernet" + std::to_string(i)));
  writer.documents.publishAll();
  const Reader reader(directory_);
  const auto members = watch<IntfWatch>(reader.tree().intfStatusDir);
  for (const bool isFirst : {true, false}) {
    for (bool more = reader.mount->refresh(); more;) {
      members->calls.clear();
      more = reader.manager->step(100);
      EXPECT_LE(members->calls.size(), 100u);
      EXPECT_TRUE(!more || !isFirst || reader.manager->status().starts_with("reading"));
    }
    EXPECT_EQ(textOf(reader.tree()), textOf(writer.tree));
    for (int i = 0; i < 2000; i += 2) writer.tree.intfStatusDir->intfStatusDel(id("Ethernet" + std::to_string(i)));
    writer.documents.publish();
  }
}

TEST_F(EntityManagerTest, saysWhatItWaitsForAndServesWhatItHas) {
  const Reader reader(directory_);
  const auto expectWaiting = [&](bool isReady, const std::string& what) {
    reader.follow();
    EXPECT_EQ(reader.manager->ready(), isReady);
    EXPECT_THAT(reader.manager->status(), HasSubstr(what));
    EXPECT_EQ(reader.tree().intfStatusDir->intfStatusHas(id("eth0")), what != directory_ || isReady);
  };
  expectWaiting(false, directory_);
  const auto writer = std::make_unique<Writer>(directory_);
  for (int i = 0; i < 500; ++i) writer->tree.intfStatusDir->intfStatusIs(id("eth" + std::to_string(i)));
  writer->documents.publish();
  expectWaiting(false, "not complete yet");
  expectWaiting(false, "test-publisher (pid ");
  writer->documents.publishAll();
  expectWaiting(true, "");
  EXPECT_EQ(reader.manager->status(), "");
  const auto before = textOf(reader.tree());
  std::filesystem::remove_all(directory_);
  expectWaiting(true, directory_);
  EXPECT_EQ(textOf(reader.tree()), before);
  Writer next(directory_);
  next.tree.routingConfig->routingIs(true);
  next.documents.publishAll();
  reader.follow();
  EXPECT_EQ(textOf(reader.tree()), textOf(next.tree));
  EXPECT_EQ(reader.manager->status(), "");
}

TEST_F(EntityManagerTest, damagedDocumentsAreKeptAsLastReadAndTheRestIsServed) {
  Writer writer(directory_);
  const auto& dir = writer.tree.intfStatusDir;
  // Damaged: the first document of all, two in a row, and later b3. One key has the longest size.
  const std::string longest(Quillo::maxKeyBytes - std::string("routing/vrf/config.vrfConfig/").size(), 'v');
  for (const auto* name : {"a0", "a1", "b0", "b1", "b2", "b3"}) {
    dir->intfStatusIs(id(name))->kindIs(std::string("MARK-") + name);
  }
  writer.tree.routingVrfConfigDir->vrfConfigIs(longest)->routingIs(true);
  writer.documents.publishAll();
  const Reader served(directory_);
  served.follow();
  const auto complete = textOf(writer.tree);
  auto expected = complete;
  const auto damage = [&](const std::string& name) {
    ASSERT_GT(Quillo::Test::damage(dataFile(), "MARK-" + name), 0u);
    expected.erase("interface/status.intfStatus/" + name);
  };
  for (const auto* name : {"a0", "b1", "b2"}) damage(name);

  Traces traces;
  const Reader reader(directory_);
  for (const auto limit : {1U, 100U}) reader.follow(limit);
  EXPECT_THAT(traces.take(),
              ElementsAre(HasSubstr("intfStatus/a0"), HasSubstr("intfStatus/b1"), HasSubstr("intfStatus/b2")));
  EXPECT_EQ(reader.mount->corruptionCount(), 3u);
  EXPECT_EQ(textOf(reader.tree()), expected);
  EXPECT_TRUE(reader.manager->ready());
  EXPECT_EQ(reader.manager->status(), "");

  auto batch = writer.store.begin();
  batch.put(Varnix::documentTable, "\xff\n", "");
  dir->intfStatus(id("a1"))->ifIndexIs(9);
  writer.documents.addTo(batch);
  batch.commit();
  reader.follow();
  EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("\\xff\\x0a: document left out: not well-formed JSON")));
  EXPECT_EQ(reader.tree().intfStatusDir->intfStatus(id("a1"))->ifIndex(), 9u) << "following goes on";
  expected = textOf(reader.tree());
  damage("b3");
  const Reader later(directory_);
  later.follow();
  EXPECT_EQ(textOf(later.tree()), expected);

  served.follow();
  // A reader that has read them keeps them when it reads all documents anew.
  served.mount->corruptionDetected("met elsewhere");
  served.follow();
  auto kept = complete;
  kept["interface/status.intfStatus/a1"] = expected["interface/status.intfStatus/a1"];
  EXPECT_EQ(textOf(served.tree()), kept);
}

// Searches may pass over a damaged key without meeting it.
TEST_F(EntityManagerTest, noEntityIsDeletedForADamagedPath) {
  for (unsigned damaged = 10; damaged < 40; ++damaged) {
    const auto directory = directory_ + std::to_string(damaged);
    Writer writer(directory);
    for (int i = 10; i < 40; ++i) writer.tree.intfStatusDir->intfStatusIs(id("eth" + std::to_string(i)));
    writer.documents.publishAll();
    const Reader reader(directory);
    reader.follow();
    const auto path = "interface/status.intfStatus/eth" + std::to_string(damaged);
    ASSERT_GT(Quillo::Test::damage(directory + "/data.mdb", path), 0u);
    Traces traces;
    reader.mount->corruptionDetected("met elsewhere");
    reader.follow(1);
    EXPECT_EQ(textOf(reader.tree()), textOf(writer.tree)) << path;
    EXPECT_GE(traces.take().size(), 2u) << path;
  }
}

}  // namespace
}  // namespace VarnixTest

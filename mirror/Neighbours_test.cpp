// Neighbours, from the kernel's messages to the store's tables.

#include <gmock/gmock.h>

#include "mirror/publish/TreePublisher.h"
#include "mirror/testing/NamespaceMirrorTest.h"
#include "quillo/testing/TestStore.h"

namespace Mirror {
namespace {

using namespace Test;
using testing::ElementsAre;
using testing::IsEmpty;

using NeighboursTest = NamespaceMirrorTest;

TEST_F(NeighboursTest, thoseThatCanBeSentToAreShown) {
  kernel_.neighbours = {neighbour(2, "10.0.0.9"), neighbour(2, "fe80::9", NUD_STALE, 2),
                        neighbour(2, "10.0.0.8", NUD_PERMANENT), neighbour(2, "10.0.0.7", NUD_FAILED),
                        neighbour(2, "ff02::1", NUD_NOARP)};
  mirror_.start();
  EXPECT_EQ(picture_.neighbours.size(), 0U) << "an incomplete picture is not shown";
  settleAndCompare();
  EXPECT_EQ(picture_.neighbours.size(), 3U);
  kernel_.neighbourIs(neighbour(2, "10.0.0.7"));
  kernel_.neighbourIs(neighbour(2, "10.0.0.9", NUD_FAILED));
  kernel_.neighbourIs(neighbour(2, "fe80::9", NUD_STALE, 3));
  kernel_.neighbourDel(neighbour(2, "10.0.0.8"));
  settleAndCompare();
  EXPECT_EQ(picture_.neighbours.size(), 2U);
  kernel_.linkIs({2, "lan"});
  settleAndCompare();
  kernel_.linkDel(2);
  settleAndCompare();
  EXPECT_EQ(picture_.neighbours.size(), 0U);
}

TEST_F(NeighboursTest, interfacesThatSwapTheirNamesKeepTheirNeighbours) {
  kernel_.links[3] = {3, "eth1"};
  kernel_.neighbours = {neighbour(2, "10.0.0.2"), neighbour(3, "10.0.0.3"), neighbour(3, "10.0.0.2", NUD_STALE, 4)};
  startAndSettle();
  kernel_.linkIs({2, "tmp"});
  kernel_.linkIs({3, "eth0"});
  kernel_.linkIs({2, "eth1"});
  settleAndCompare();
}

TEST_F(NeighboursTest, aListThatMovedWhileItWasReadIsReadAgain) {
  kernel_.objectsPerPiece = 1;
  for (int number = 1; number < 9; ++number) {
    kernel_.neighbours.push_back(neighbour(2, ("10.0.0." + std::to_string(number)).c_str()));
  }
  // Each time one goes from the front, the next one is passed over.
  unsigned moves = 2;
  kernel_.isPieceLate = [&] {
    if (kernel_.dumps == 4 + 2 - moves && moves > 0) {
      --moves;
      kernel_.neighbourDel(kernel_.neighbours.front());
    }
    return false;
  };
  startAndSettle();
  expectAgreement();
  EXPECT_EQ(kernel_.dumps, 8U + 2U);

  // When it never keeps still, what there is of it has to do, and is completed later.
  const auto churn = neighbour(2, "10.0.0.99");
  kernel_.isPieceLate = [&] {
    kernel_.neighbourIs(churn);
    return false;
  };
  mirror_.reread();
  settle();
  EXPECT_EQ(mirror_.completeDumps(), 2U);
  kernel_.isPieceLate = [] { return false; };
  const unsigned before = kernel_.dumps;
  mirror_.poll();
  EXPECT_EQ(kernel_.dumps, before) << "not at once";
  now_ += 2;
  mirror_.poll();
  settleAndCompare();
  now_ += 1000;
  mirror_.poll();
  settle();
  EXPECT_EQ(mirror_.completeDumps(), 3U) << "and that was that";
}

// ---- the store

class NeighbourStoreTest : public Quillo::Test::TestStore {
 protected:
  static constexpr const char* mac = "02:00:00:00:00:01";

  void put(unsigned vrfId, const char* intf, const char* addr, const char* ethAddr = mac, bool isStatic = false) {
    const NeighbourTable::Place place{Vrf::VrfIdMap::VrfId(vrfId), Vantu::IntfId(intf)};
    picture_.neighbours.neighbourIs(place, Vantu::IpGenAddr::fromString(addr),
                                    {Vantu::EthAddr::fromString(ethAddr), isStatic});
  }
  void del(unsigned vrfId, const char* intf, const char* addr) {
    picture_.neighbours.neighbourDel({Vrf::VrfIdMap::VrfId(vrfId), Vantu::IntfId(intf)},
                                     Vantu::IpGenAddr::fromString(addr));
  }
  // As readers see it.
  Lines stored() const { return neighbourLines(directory_); }

  Picture picture_;
};

TEST_F(NeighbourStoreTest, onlyWhatDiffersIsWritten) {
  TreePublisher publisher(picture_, config());
  put(0, "eth0", "10.0.0.9");
  put(3, "red/eth0", "10.0.0.9", mac, true);
  put(3, "red/eth0", "fe80::9");
  ASSERT_TRUE(publisher.publish());
  EXPECT_THAT(stored(), ElementsAre("eth0 neighbour 0 10.0.0.9 02:00:00:00:00:01",
                                    "red/eth0 neighbour 3 10.0.0.9 02:00:00:00:00:01 static",
                                    "red/eth0 neighbour 3 fe80::9 02:00:00:00:00:01"));
  auto before = publisher.store().seq();
  put(0, "eth0", "10.0.0.9");
  EXPECT_TRUE(publisher.isUpToDate()) << "nothing new";
  put(0, "eth0", "10.0.0.9", "02:00:00:00:00:02");
  del(3, "red/eth0", "fe80::9");
  del(3, "red/eth0", "fe80::10");
  ASSERT_TRUE(publisher.publish());
  EXPECT_EQ(publisher.store().seq(), before + 2);
  // There and back, and gone and there again.
  before = publisher.store().seq();
  put(0, "eth0", "10.0.0.10");
  del(0, "eth0", "10.0.0.10");
  del(0, "eth0", "10.0.0.9");
  put(0, "eth0", "10.0.0.9", "02:00:00:00:00:02");
  ASSERT_TRUE(publisher.publish());
  EXPECT_EQ(publisher.store().seq(), before);
  EXPECT_THAT(stored(), ElementsAre("eth0 neighbour 0 10.0.0.9 02:00:00:00:00:02",
                                    "red/eth0 neighbour 3 10.0.0.9 02:00:00:00:00:01 static"));
}

TEST_F(NeighbourStoreTest, aFullPassRemovesWhatAnEarlierPublisherLeft) {
  {
    TreePublisher publisher(picture_, config());
    put(0, "eth0", "10.0.0.9");
    put(0, "eth0", "fe80::9");
    ASSERT_TRUE(publisher.publish());
  }
  Picture other;
  TreePublisher publisher(other, config());
  other.neighbours.neighbourIs({Vrf::VrfIdMap::VrfId(0), Vantu::IntfId("eth0")},
                               Vantu::IpGenAddr::fromString("fe80::9"), {Vantu::EthAddr::fromString(mac), false});
  const auto before = publisher.store().seq();
  ASSERT_TRUE(publisher.publish());
  EXPECT_THAT(stored(), ElementsAre("eth0 neighbour 0 fe80::9 02:00:00:00:00:01"));
  EXPECT_EQ(publisher.store().seq(), before + 1);
}

// So that a reader that takes the changes in order knows the interface of each neighbour.
TEST_F(NeighbourStoreTest, anInterfaceIsToldBeforeItsNeighboursAndGoesAfterThem) {
  TreePublisher publisher(picture_, config());
  ASSERT_TRUE(publisher.publish());
  const auto reader = mount();
  const Vantu::IntfId eth0("eth0");
  Quillo::Bookmark seen = reader->snapshot().bookmark();
  const auto news = [&] {
    reader->refresh();
    const auto changes = reader->snapshot().changesSince(seen, 10);
    seen = changes.next;
    std::string order;
    for (const auto& change : changes.changes) order += change.table == Quillo::TableId::varnix ? 'd' : 'n';
    return order;
  };
  put(0, "eth0", "10.0.0.9");
  picture_.tree.intfStatusDir->intfStatusIs(eth0);
  ASSERT_TRUE(publisher.publish());
  EXPECT_EQ(news(), "dn");
  picture_.tree.intfStatusDir->intfStatusDel(eth0);
  del(0, "eth0", "10.0.0.9");
  ASSERT_TRUE(publisher.publish());
  EXPECT_EQ(news(), "nd");
}

TEST_F(NeighbourStoreTest, veryManyAreWrittenInSeveralCommits) {
  TreePublisher publisher(picture_, config());
  ASSERT_TRUE(publisher.publish());
  constexpr unsigned count = 2 * NeighbourTable::changesPerCommit + 1;
  const NeighbourTable::Place place{Vrf::VrfIdMap::VrfId(1), Vantu::IntfId("red/eth0")};
  KernelNeighbours all;
  for (unsigned number = 0; number < count; ++number) {
    all[Vantu::IpAddr(0x0a000000 + number)] = {Vantu::EthAddr::fromString(mac), false};
  }
  picture_.neighbours.neighboursAre(place, all);
  ASSERT_TRUE(publisher.publish());
  EXPECT_EQ(stored().size(), count);
  picture_.neighbours.placeDel(place);
  EXPECT_EQ(picture_.neighbours.size(), 0U);
  ASSERT_TRUE(publisher.publish());
  EXPECT_THAT(stored(), IsEmpty());
}

}  // namespace
}  // namespace Mirror

#include <gtest/gtest.h>

#include <functional>

#include "kel/testing/TestTypes.h"

namespace KelTest {
namespace {

using Kel::makePtr;
using Kel::Ptr;

class Watcher : public Lamp::Notifiee {
 public:
  std::function<void()> onLit = [] {};
  std::vector<std::string> calls;

  void handleLit() override {
    calls.push_back(notifier() && notifier()->lit() ? "lit" : "dark");
    onLit();
  }
  void handleColour() override { calls.push_back("colour"); }
  void handleSockets(const Kel::Name& name) override { calls.push_back("socket " + name); }
  void handleDel() override { calls.push_back("del"); }
};

Ptr<Watcher> watch(const Ptr<Lamp>& lamp) {
  auto watcher = makePtr<Watcher>();
  watcher->notifierIs(lamp);
  return watcher;
}

using Calls = std::vector<std::string>;

TEST(Notifier, callsOnePerChangeAndNoneForEqualValues) {
  auto lamp = makePtr<Lamp>("hall");
  auto watcher = watch(lamp);
  lamp->litIs(true);
  lamp->litIs(true);
  lamp->colourIs(green);
  lamp->socketsIs("a", 1);
  lamp->socketsIs("a", 1);
  lamp->socketsIs("a", 2);
  EXPECT_TRUE(lamp->socketsDel("a"));
  EXPECT_FALSE(lamp->socketsDel("a"));
  EXPECT_EQ(watcher->calls, (Calls{"lit", "colour", "socket a", "socket a", "socket a"}));
}

TEST(Notifier, inactiveReactorsHearNothing) {
  auto lamp = makePtr<Lamp>("hall");
  auto watcher = watch(lamp);
  watcher->hasNotificationActiveIs(false);
  lamp->litIs(true);
  watcher->hasNotificationActiveIs(true);
  EXPECT_EQ(watcher->calls, Calls{});
  lamp->litIs(false);
  EXPECT_EQ(watcher->calls, Calls{"dark"});
}

TEST(Notifier, orderIsOrderOfAttachment) {
  auto lamp = makePtr<Lamp>("hall");
  Calls order;
  auto first = watch(lamp);
  auto second = watch(lamp);
  first->onLit = [&] { order.push_back("first"); };
  second->onLit = [&] { order.push_back("second"); };
  lamp->litIs(true);
  first->notifierIs(nullptr);
  first->notifierIs(lamp);
  lamp->litIs(false);
  EXPECT_EQ(order, (Calls{"first", "second", "second", "first"}));
}

TEST(Notifier, attachedInsideAHandlerHearsTheNextChangeOnly) {
  auto lamp = makePtr<Lamp>("hall");
  auto first = watch(lamp);
  Ptr<Watcher> late;
  first->onLit = [&] {
    if (!late) late = watch(lamp);
  };
  lamp->litIs(true);
  ASSERT_TRUE(late);
  EXPECT_EQ(late->calls, Calls{});
  lamp->litIs(false);
  EXPECT_EQ(late->calls, Calls{"dark"});
}

TEST(Notifier, detachedOrDestroyedInsideAHandlerIsNotCalled) {
  auto lamp = makePtr<Lamp>("hall");
  auto first = watch(lamp);
  auto detached = watch(lamp);
  auto destroyed = watch(lamp);
  auto last = watch(lamp);
  first->onLit = [&] {
    detached->notifierIs(nullptr);
    destroyed = nullptr;
  };
  lamp->litIs(true);
  EXPECT_EQ(detached->calls, Calls{});
  EXPECT_EQ(last->calls, Calls{"lit"});
}

TEST(Notifier, reactorMayDestroyItselfAndItsNotifier) {
  auto lamp = makePtr<Lamp>("hall");
  auto watcher = watch(lamp);
  auto second = watch(lamp);
  watcher->onLit = [&] {
    watcher = nullptr;
    lamp = nullptr;
    second = nullptr;
  };
  Lamp* raw = lamp.get();
  raw->litIs(true);  // the round itself keeps the lamp until it is over
  EXPECT_FALSE(watcher);
  EXPECT_FALSE(lamp);
}

TEST(Notifier, settingInsideAHandlerNestsRounds) {
  auto lamp = makePtr<Lamp>("hall");
  auto first = watch(lamp);
  auto second = watch(lamp);
  first->onLit = [&] { lamp->litIs(false); };
  lamp->litIs(true);
  // The inner change reaches both before the outer round goes on; the second then sees the latest value.
  EXPECT_EQ(first->calls, (Calls{"lit", "dark"}));
  EXPECT_EQ(second->calls, (Calls{"dark", "dark"}));
}

TEST(Notifier, deletionReachesTheMembersReactorsBeforeTheOwners) {
  auto house = makePtr<House>("house");
  Calls order;
  struct HouseWatcher : House::Notifiee {
    Calls* calls = nullptr;
    void handleLamp(const Kel::Name& name) override {
      calls->push_back((notifier()->lampHas(name) ? "added " : "removed ") + name);
    }
  };
  auto houseWatcher = makePtr<HouseWatcher>();
  houseWatcher->calls = &order;
  houseWatcher->notifierIs(house);
  auto lamp = house->lampIs("hall");
  struct LampWatcher : Lamp::Notifiee {
    Calls* calls = nullptr;
    void handleDel() override { calls->push_back("del " + notifier()->fullName()); }
  };
  auto lampWatcher = makePtr<LampWatcher>();
  lampWatcher->calls = &order;
  lampWatcher->notifierIs(lamp);
  house->lampDel("hall");
  EXPECT_EQ(order, (Calls{"added hall", "del house.lamp/hall", "removed hall"}));
  EXPECT_FALSE(lamp->parent());
}

TEST(Notifier, ownerDeletedInsideItsOwnMembersHandler) {
  auto house = makePtr<House>("house");
  auto lamp = house->lampIs("hall");
  house->lampIs("kitchen");
  auto watcher = watch(lamp);
  watcher->onLit = [&] { house = nullptr; };
  lamp->litIs(true);
  EXPECT_FALSE(lamp->parent());
  EXPECT_EQ(lamp->fullName(), "hall");
}

// Empties itself in its destructor.
struct Demolished : House {
  using House::House;
  static inline int count = 0;
  ~Demolished() override {
    ++count;
    porchDel();
    lampDelAll();
  }
};

TEST(Notifier, anObjectThatWasWatchedOnceMayChangeInItsDestructor) {
  Demolished::count = 0;
  Ptr<House> house = makePtr<Demolished>("house");
  auto watcher = makePtr<House::Notifiee>();
  watcher->notifierIs(house);
  watcher->notifierIs(nullptr);
  auto lamp = house->lampIs("hall");
  house->porchIs("lantern");
  struct Visitor : Lamp::Notifiee {
    int calls = 0;
    void handleDel() override {
      ++calls;
      EXPECT_FALSE(notifier()->parent());  // a handle to it now would destroy it once more
    }
  };
  auto visitor = makePtr<Visitor>();
  visitor->notifierIs(lamp);
  house = nullptr;
  EXPECT_EQ(Demolished::count, 1);
  EXPECT_EQ(visitor->calls, 1);
  EXPECT_FALSE(lamp->parent());
}

TEST(Notifier, ownerOutlivesTheOperationInWhichItsLastHandleGoes) {
  struct Wrecker : Lamp::Notifiee {
    Ptr<House>* house = nullptr;
    void handleDel() override {
      *house = nullptr;
      EXPECT_EQ(Demolished::count, 0);
    }
  };
  const std::vector<std::function<void(House&)>> operations{
      [](House& house) { house.lampDel("hall"); }, [](House& house) { house.lampDelAll(); },
      [](House& house) { house.porchDel(); }, [](House& house) { Kel::callOperation(house, "lampDelAll", {}); }};
  for (const auto& operation : operations) {
    Demolished::count = 0;
    Ptr<House> house = makePtr<Demolished>("house");
    auto wrecker = makePtr<Wrecker>();
    wrecker->house = &house;
    wrecker->notifierIs(&operation == &operations[2] ? house->porchIs("hall") : house->lampIs("hall"));
    house->lampIs("kitchen");
    operation(*house);
    EXPECT_EQ(Demolished::count, 1);
    EXPECT_FALSE(house);
  }
}

// As above, but it is the owner's own reactor that lets go of it, between two values.
TEST(Notifier, ownerOutlivesTheLastOfItsValues) {
  auto lamp = makePtr<Lamp>("hall");
  for (const auto* socket : {"a", "b", "c"}) lamp->socketsIs(socket, 1);
  struct Wrecker : Lamp::Notifiee {
    Calls calls;
    void handleSockets(const Kel::Name& name) override {
      calls.push_back(name);
      if (calls.size() == 1) notifierIs(nullptr);
    }
  };
  auto wrecker = makePtr<Wrecker>();
  wrecker->notifierIs(lamp);
  Lamp* const raw = lamp.get();
  lamp = nullptr;
  raw->socketsDelAll();
  EXPECT_EQ(wrecker->calls, Calls{"a"});
}

TEST(Notifier, childrenComeAndGoWithNotice) {
  struct PorchWatcher : House::Notifiee {
    int calls = 0;
    void handlePorch() override { ++calls; }
  };
  auto house = makePtr<House>("house");
  auto watcher = makePtr<PorchWatcher>();
  watcher->notifierIs(house);
  auto porch = house->porchIs("lantern");
  EXPECT_EQ(house->porchIs("lantern"), porch);
  EXPECT_EQ(porch->fullName(), "house.porch");
  EXPECT_TRUE(house->porchDel());
  EXPECT_FALSE(house->porchDel());
  EXPECT_EQ(watcher->calls, 2);
}

}  // namespace
}  // namespace KelTest

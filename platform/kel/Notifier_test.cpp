// Reactors: who is called, when, and what a handler may destroy.

#include "kel/Notifier.h"

#include <gtest/gtest.h>

#include <functional>

#include "kel/testing/TestTypes.h"

namespace KelTest {
namespace {

using Kel::makePtr;
using Kel::Ptr;
using Calls = std::vector<std::string>;

class Watcher : public Lamp::Notifiee {
 public:
  std::function<void()> onLit = [] {}, onSocket = [] {}, onDel = [] {};
  Calls calls;

  void handleLit() override {
    calls.push_back(notifier() && notifier()->lit() ? "lit" : "dark");
    onLit();
  }
  void handleColour() override { calls.push_back("colour"); }
  void handleSockets(const Kel::Name& name) override {
    calls.push_back("socket " + name);
    onSocket();
  }
  void handleDel() override {
    calls.push_back("del " + notifier()->fullName());
    onDel();
  }
};

struct NotifierTest : testing::Test {
  Ptr<Lamp> lamp = makePtr<Lamp>("hall");

  static Ptr<Watcher> watch(const Ptr<Lamp>& lamp) {
    auto watcher = makePtr<Watcher>();
    watcher->notifierIs(lamp);
    return watcher;
  }
};

TEST_F(NotifierTest, callsOncePerChangeAndNeverForEqualValues) {
  auto watcher = watch(lamp);
  for (const bool lit : {true, true}) lamp->litIs(lit);
  lamp->colourIs(green);
  for (const int value : {1, 1, 2}) lamp->socketsIs("a", value);
  EXPECT_TRUE(lamp->socketsDel("a"));
  EXPECT_FALSE(lamp->socketsDel("a"));
  watcher->hasNotificationActiveIs(false);
  lamp->litIs(false);
  watcher->hasNotificationActiveIs(true);
  lamp->litIs(true);
  EXPECT_EQ(watcher->calls, (Calls{"lit", "colour", "socket a", "socket a", "socket a", "lit"}));
}

TEST_F(NotifierTest, reactorsAreCalledInOrderOfAttachmentAndRoundsNest) {
  Calls order;
  auto first = watch(lamp), second = watch(lamp);
  first->onLit = [&] { order.push_back("first"); };
  second->onLit = [&] { order.push_back("second"); };
  lamp->litIs(true);
  first->notifierIs(nullptr);
  first->notifierIs(lamp);
  lamp->litIs(false);
  EXPECT_EQ(order, (Calls{"first", "second", "second", "first"}));
  // The inner change reaches both before the outer round goes on; the other then sees the latest value.
  second->onLit = [&] { lamp->litIs(false); };
  lamp->litIs(true);
  EXPECT_EQ(second->calls, (Calls{"lit", "dark", "lit", "dark"}));
  EXPECT_EQ(first->calls, (Calls{"lit", "dark", "dark", "dark"}));
}

TEST_F(NotifierTest, aHandlerMayAttachDetachAndDestroyReactors) {
  auto first = watch(lamp), detached = watch(lamp), destroyed = watch(lamp), last = watch(lamp);
  Ptr<Watcher> late;
  first->onLit = [&] {
    detached->notifierIs(nullptr);
    destroyed = nullptr;
    if (!late) late = watch(lamp);
  };
  lamp->litIs(true);
  EXPECT_EQ(detached->calls, Calls{});
  EXPECT_EQ(last->calls, Calls{"lit"});
  EXPECT_EQ(late->calls, Calls{});
  lamp->litIs(false);
  EXPECT_EQ(late->calls, Calls{"dark"});
}

TEST_F(NotifierTest, aHandlerMayDestroyItselfAndItsNotifier) {
  auto watcher = watch(lamp), second = watch(lamp);
  watcher->onLit = [&] { watcher = second = nullptr, lamp = nullptr; };
  lamp.get()->litIs(true);  // the round itself keeps the lamp until it is over
  EXPECT_FALSE(watcher || lamp);

  lamp = makePtr<Lamp>("hall");
  for (const auto* socket : {"a", "b", "c"}) lamp->socketsIs(socket, 1);
  watcher = watch(lamp);
  watcher->onSocket = [&] { watcher->notifierIs(nullptr); };
  Lamp* const raw = lamp.get();
  lamp = nullptr;
  raw->socketsDelAll();  // and so does the operation
  EXPECT_EQ(watcher->calls, Calls{"socket a"});
}

TEST_F(NotifierTest, deletionReachesTheMembersReactorsBeforeTheOwners) {
  struct HouseWatcher : House::Notifiee {
    Calls* calls = nullptr;
    void handleLamp(const Kel::Name& name) override {
      calls->push_back((notifier()->lampHas(name) ? "added " : "removed ") + name);
    }
    void handlePorch() override { calls->push_back(notifier()->porch() ? "porch" : "no porch"); }
  };
  Calls order;
  auto house = makePtr<House>("house");
  auto houseWatcher = makePtr<HouseWatcher>();
  houseWatcher->calls = &order;
  houseWatcher->notifierIs(house);
  lamp = house->lampIs("hall");
  auto watcher = watch(lamp);
  watcher->onDel = [&] { order.push_back(watcher->calls.back()); };
  EXPECT_TRUE(house->lampDel("hall"));
  EXPECT_FALSE(lamp->parent());
  EXPECT_EQ(house->porchIs("lantern"), house->porchIs("lantern"));
  EXPECT_TRUE(house->porchDel());
  EXPECT_FALSE(house->porchDel());
  EXPECT_EQ(order, (Calls{"added hall", "del house.lamp/hall", "removed hall", "porch", "no porch"}));
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

TEST_F(NotifierTest, anObjectThatWasWatchedOnceMayChangeInItsDestructor) {
  Demolished::count = 0;
  Ptr<House> house = makePtr<Demolished>("house");
  auto watcher = makePtr<House::Notifiee>();
  watcher->notifierIs(house);
  watcher->notifierIs(nullptr);
  lamp = house->lampIs("hall");
  auto visitor = watch(lamp);
  visitor->onDel = [&] { EXPECT_FALSE(lamp->parent()); };  // a handle to it now would destroy it once more
  house = nullptr;
  EXPECT_EQ(Demolished::count, 1);
  EXPECT_EQ(visitor->calls.size(), 1U);
  EXPECT_FALSE(lamp->parent());
}

TEST_F(NotifierTest, ownerOutlivesTheOperationInWhichItsLastHandleGoes) {
  const std::vector<std::function<void(House&)>> operations{
      [](House& house) { house.lampDel("hall"); }, [](House& house) { house.lampDelAll(); },
      [](House& house) { Kel::callOperation(house, "lampDelAll", {}); }, [](House& house) { house.porchDel(); }};
  for (const auto& operation : operations) {
    Demolished::count = 0;
    Ptr<House> house = makePtr<Demolished>("house");
    auto wrecker = watch(&operation == &operations.back() ? house->porchIs("hall") : house->lampIs("hall"));
    wrecker->onDel = [&] {
      house = nullptr;
      EXPECT_EQ(Demolished::count, 0);
    };
    house->lampIs("kitchen");
    operation(*house);
    EXPECT_EQ(Demolished::count, 1);
  }
}

}  // namespace
}  // namespace KelTest

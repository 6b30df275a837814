#pragma once
// The collection and child operations behind the lines of Attribute.h. Not for users.

#include <tuple>
#include <type_traits>
#include <utility>

#include "kel/Collection.h"
#include "kel/Notifier.h"
#include "kel/Value.h"

namespace Kel {

class Entity;

void kelPlaceIfEntity(PtrInterface& object, const PtrInterface& parent, const char* attrName, bool isMember,
                      const Name& name);
void kelOrphanIfEntity(PtrInterface& object);
[[noreturn]] void kelReinstantiated(const PtrInterface& existing, const char* attrName, const String& value);

// Holds the owner of an attribute until the operation on it ends, since a handler may release the last handle. Null
// for an owner in its constructor or destructor, which no handle may be made to.
inline Ptr<const PtrInterface> kept(const PtrInterface& owner) {
  return owner.use_count() == 0 ? nullptr : Ptr<const PtrInterface>(&owner);
}

// An owned object must not point at an owner that is gone.
template <class Map>
struct OwnedMembers {
  Map map;
  ~OwnedMembers() {
    for (const auto& [key, member] : map) kelOrphanIfEntity(*member);
  }
};
template <class T>
struct ChildSlot {
  Ptr<T> object;
  ~ChildSlot() {
    if (object) kelOrphanIfEntity(*object);
  }
};

// Throws ReinstantiationException when an argument differs from the constructor parameter that `existing` was made
// with.
template <class T, class... Args>
void checkConstructor(const T& existing, const Args&... args) {
  if constexpr (requires { existing.kelCtorTie(); }) {
    const auto present = existing.kelCtorTie();
    const auto given = std::tie(args...);
    static_assert(std::tuple_size_v<std::remove_cvref_t<decltype(present)>> == sizeof...(Args),
                  "give every constructor parameter");
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      const auto check = [&]<std::size_t At>(std::integral_constant<std::size_t, At>) {
        using Parameter = std::remove_cvref_t<std::tuple_element_t<At, std::remove_cvref_t<decltype(present)>>>;
        const Parameter value(std::get<At>(given));
        if (!(std::get<At>(present) == value)) kelReinstantiated(existing, T::kelCtorNames[At], print(value));
      };
      (check(std::integral_constant<std::size_t, I>{}), ...);
    }
    (std::index_sequence_for<Args...>{});
  }
}

template <class T, class Key, class First, class... Rest>
Key memberKey(const First& first, const Rest&... rest) {
  if constexpr (requires { T::kelKeyOf(first, rest...); }) {
    return T::kelKeyOf(first, rest...);
  } else {
    return Key(first);
  }
}

// Members may also be reactors, which the owner keeps by key: their kelStart and kelStop are called too.
template <class T>
void kelStarted(const Ptr<T>& object) {
  if constexpr (requires { object->kelStart(); }) object->kelStart();
}

template <class T>
void kelRemoved(const Ptr<T>& object) {
  if constexpr (std::is_base_of_v<Notifier, T>) {
    object->kelDeleted();
  } else if constexpr (requires { object->kelStop(); }) {
    object->kelStop();
  }
  if constexpr (std::is_base_of_v<Entity, T>) kelOrphanIfEntity(*object);
}

template <class T, class Map, class Notify, class... Args>
Ptr<T> memberIs(const PtrInterface& owner, Map& map, const char* attrName, Notify notify, Args&&... args) {
  const typename Map::Key key = memberKey<T, typename Map::Key>(args...);
  if (const auto* existing = map.find(key)) {
    const Ptr<T> member = *existing;
    checkConstructor(*member, args...);
    return member;
  }
  const auto hold = kept(owner);
  const Ptr<T> created(new T(std::forward<Args>(args)...));
  if constexpr (std::is_base_of_v<Entity, T>) kelPlaceIfEntity(*created, owner, attrName, true, keyText(key));
  map.kelInsert(key, created);
  kelStarted(created);
  notify(key);
  return created;
}

template <class Map, class Notify>
bool memberDel(const PtrInterface& owner, Map& map, const typename Map::Key& givenKey, Notify notify) {
  const auto hold = kept(owner);
  const typename Map::Key key = givenKey;  // the given one may live in the member
  const auto gone = map.kelTake(key);
  if (!gone) return false;
  kelRemoved(gone);
  notify(key);
  return true;
}

template <class T, class Notify, class... Args>
Ptr<T> childIs(const PtrInterface& owner, ChildSlot<T>& slot, const char* attrName, Notify notify, Args&&... args) {
  if (slot.object) {
    const Ptr<T> child = slot.object;
    checkConstructor(*child, args...);
    return child;
  }
  const auto hold = kept(owner);
  const Ptr<T> created(new T(std::forward<Args>(args)...));
  if constexpr (std::is_base_of_v<Entity, T>) kelPlaceIfEntity(*created, owner, attrName, false, attrName);
  slot.object = created;
  kelStarted(created);
  notify();
  return created;
}

template <class T, class Notify>
bool childDel(const PtrInterface& owner, ChildSlot<T>& slot, Notify notify) {
  const auto hold = kept(owner);
  const Ptr<T> gone = std::exchange(slot.object, nullptr);
  if (!gone) return false;
  kelRemoved(gone);
  notify();
  return true;
}

template <class T, class Notify>
void ownedIs(const PtrInterface& owner, ChildSlot<T>& slot, const char* attrName, Ptr<T> object, Notify notify) {
  if (slot.object == object) return;
  const auto hold = kept(owner);
  if (slot.object) kelRemoved(std::exchange(slot.object, nullptr));
  slot.object = std::move(object);
  if (slot.object) kelPlaceIfEntity(*slot.object, owner, attrName, false, attrName);
  notify();
}

// True when the map changed. The version counts members, so a new value under a known key leaves it.
template <class Map, class Key, class T>
bool valueIs(Map& map, const Key& key, T value) {
  if (auto* present = map.kelFind(key)) {
    if (*present == value) return false;
    *present = std::move(value);
    return true;
  }
  map.kelInsert(key, std::move(value));
  return true;
}

}  // namespace Kel

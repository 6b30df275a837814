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

// Returns the name of a member that was made without one.
using KelMemberName = Name (*)(const Entity& member);

void kelPlaceIfEntity(PtrInterface& object, const PtrInterface& parent, const char* attrName,
                      KelMemberName memberName);
void kelOrphanIfEntity(PtrInterface& object);
[[noreturn]] void kelReinstantiated(const PtrInterface& existing, const char* attrName, const String& value);

// Returns a handle that keeps `owner` alive until an operation on its attribute ends: a handler may release the last
// other handle. Returns null while the owner is being constructed or destroyed, when no handle may be taken.
inline Ptr<const PtrInterface> kept(const PtrInterface& owner) {
  return owner.use_count() == 0 ? nullptr : Ptr<const PtrInterface>(&owner);
}

// The storage of KEL_MEMBERS and of KEL_CHILD and KEL_OWNED. Their destructors clear the parent of each owned entity,
// which others may still hold.
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

// The key of a member from its constructor parameters: what `T::kelKeyOf` returns, or the first parameter.
template <class T, class Key, class First, class... Rest>
Key memberKey(const First& first, const Rest&... rest) {
  if constexpr (requires { T::kelKeyOf(first, rest...); }) {
    return T::kelKeyOf(first, rest...);
  } else {
    return Key(first);
  }
}

// The text form of a member's key, which its constructor parameters hold.
template <class T, class Key>
Name kelMemberName(const Entity& member) {
  const auto key = [](const auto&... parameters) { return memberKey<T, Key>(parameters...); };
  return keyText(std::apply(key, static_cast<const T&>(member).kelCtorTie()));
}

// kelStarted and kelRemoved run the life cycle of an owned object: kelStart after creation, deletion handlers and
// kelStop after removal. A member may also be a reactor that is no Notifier; it needs only kelStart and kelStop.
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

// Create-or-get of a collection's member. Throws ReinstantiationException as checkConstructor does. A new member is in
// the map before it starts, and starts before `notify(key)`.
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
  if constexpr (std::is_base_of_v<Entity, T>) {
    kelPlaceIfEntity(*created, owner, attrName, kelMemberName<T, typename Map::Key>);
  }
  map.kelInsert(key, created);
  kelStarted(created);
  notify(key);
  return created;
}

// Deletes a member; false when there is none. The member's own reactors are notified before `notify(key)`.
template <class Map, class Notify>
bool memberDel(const PtrInterface& owner, Map& map, const typename Map::Key& givenKey, Notify notify) {
  const auto hold = kept(owner);
  const typename Map::Key key = givenKey;  // a copy: `givenKey` may be part of the member
  const auto gone = map.kelTake(key);
  if (!gone) return false;
  kelRemoved(gone);
  notify(key);
  return true;
}

// The same for a single child.
template <class T, class Notify, class... Args>
Ptr<T> childIs(const PtrInterface& owner, ChildSlot<T>& slot, const char* attrName, Notify notify, Args&&... args) {
  if (slot.object) {
    const Ptr<T> child = slot.object;
    checkConstructor(*child, args...);
    return child;
  }
  const auto hold = kept(owner);
  const Ptr<T> created(new T(std::forward<Args>(args)...));
  if constexpr (std::is_base_of_v<Entity, T>) kelPlaceIfEntity(*created, owner, attrName, nullptr);
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

// Replaces an owned object with `object`, which may be null. The previous object is deleted first.
template <class T, class Notify>
void ownedIs(const PtrInterface& owner, ChildSlot<T>& slot, const char* attrName, Ptr<T> object, Notify notify) {
  if (slot.object == object) return;
  const auto hold = kept(owner);
  if (slot.object) kelRemoved(std::exchange(slot.object, nullptr));
  slot.object = std::move(object);
  if (slot.object) kelPlaceIfEntity(*slot.object, owner, attrName, nullptr);
  notify();
}

// Sets the value of a key; true when that changed the map. A new value under an existing key does not change the map's
// version, which only counts insertions and removals.
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

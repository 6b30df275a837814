#pragma once
// Makes the reflection entry of each kind of attribute. Not for users.

#include <fmt/format.h>

#include <optional>

#include "kel/Collection.h"
#include "kel/KeyText.h"
#include "kel/Notifier.h"
#include "kel/Operations.h"
#include "kel/TypeInfo.h"

namespace Kel {

// The enclosing classes declare nested types with these; the objects handed in are always of type `Self`.
template <class Self>
const Self& selfOf(const PtrInterface& object) {
  return static_cast<const Self&>(object);
}
template <class Self>
Self& selfOf(PtrInterface& object) {
  return static_cast<Self&>(object);
}

template <class T>
TypeInfo kelMakeTypeInfo() {
  TypeInfo info;
  T::kelDescribeType(info);
  return info;
}

template <class Self>
AttributeInfo computedInfo(const char* name, auto get) {
  AttributeInfo info{name, AttributeKind::computed, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}};
  using Result = std::remove_cvref_t<decltype(get(std::declval<const Self&>()))>;
  info.typeName = boost::core::type_name<Result>();
  info.read = [get](const PtrInterface& object) { return Value(Result(get(selfOf<Self>(object)))); };
  return info;
}

template <class Self>
AttributeInfo constructorInfo(const char* name, auto get) {
  auto info = computedInfo<Self>(name, get);
  info.kind = AttributeKind::constructorParameter;
  return info;
}

template <class Self, class T>
AttributeInfo storedInfo(const char* name, auto get, auto set) {
  auto info = computedInfo<Self>(name, get);
  info.kind = AttributeKind::stored;
  info.toDatum = [get](const PtrInterface& object) { return toDatum(get(selfOf<Self>(object))); };
  info.fromDatum = [set](PtrInterface& object, const Datum& datum) {
    set(selfOf<Self>(object), fromDatum<T>(datum));
  };
  return info;
}

template <class Self, class T>
AttributeInfo referenceInfo(const char* name, auto get, auto set) {
  auto info = computedInfo<Self>(name, get);
  info.kind = AttributeKind::reference;
  info.typeName = boost::core::type_name<T>();
  info.toDatum = [get](const PtrInterface& object) { return toDatum(get(selfOf<Self>(object))); };
  info.referenceIs = [set](PtrInterface& object, const Ptr<PtrInterface>& target) {
    set(selfOf<Self>(object), Value(target).template as<Ptr<T>>());
  };
  return info;
}

template <class Types, class Call>
auto applyArguments(const std::vector<Value>& arguments, const char* const* names, Call call) {
  constexpr std::size_t count = std::tuple_size_v<Types>;
  if (arguments.size() != count) {
    throw AttributeException(fmt::format("takes {} arguments, {} were given", count, arguments.size()));
  }
  const auto convert = [&]<std::size_t I>(std::integral_constant<std::size_t, I>) {
    try {
      return arguments[I].template as<std::tuple_element_t<I, Types>>();
    } catch (const AttributeException& error) {
      throw AttributeException(fmt::format("argument {} ({}): {}", I + 1, names ? names[I] : "key", error.what()));
    }
  };
  return [&]<std::size_t... I>(std::index_sequence<I...>) {
    return call(convert(std::integral_constant<std::size_t, I>{})...);
  }
  (std::make_index_sequence<count>{});
}

template <class T>
const char* const* constructorNames() {
  if constexpr (requires { T::kelCtorNames; }) {
    return T::kelCtorNames;
  } else {
    return nullptr;
  }
}

template <class Self, class T>
AttributeInfo ownedInfo(const char* name, auto get, auto remove) {
  auto info = computedInfo<Self>(name, get);
  info.kind = AttributeKind::child;
  info.typeName = boost::core::type_name<T>();
  info.member = [get](const PtrInterface& object, std::string_view) -> Ptr<PtrInterface> {
    return get(selfOf<Self>(object));
  };
  info.remove = [remove](PtrInterface& object, std::string_view) { return remove(selfOf<Self>(object)); };
  info.removeAll = [remove](PtrInterface& object) { remove(selfOf<Self>(object)); };
  return info;
}

template <class Self, class T>
AttributeInfo childInfo(const char* name, auto get, auto create, auto remove) {
  auto info = ownedInfo<Self, T>(name, get, remove);
  info.create = [create](PtrInterface& object, const std::vector<Value>& arguments) -> Ptr<PtrInterface> {
    return applyArguments<typename T::KelCtorTypes>(arguments, constructorNames<T>(), [&](auto&&... args) {
      return create(selfOf<Self>(object), std::move(args)...);
    });
  };
  return info;
}

// The key under its text form. Keys that are not read from text are looked for one by one.
template <class Map>
auto keyByText(const Map& map, std::string_view name) -> std::optional<typename Map::Key> {
  using Key = typename Map::Key;
  if constexpr (FieldValue<Key>) {
    for (const auto& [key, value] : map) {
      if (keyText(key) == name) return key;
    }
    return std::nullopt;
  } else {
    return keyFromText<Key>(name);
  }
}

template <class Map>
auto findByText(const Map& map, std::string_view name) -> const typename Map::Value* {
  const auto key = keyByText(map, name);
  return key ? map.find(*key) : nullptr;
}

template <class Self>
std::function<std::vector<String>(const PtrInterface&)> memberNamesOf(auto map) {
  return [map](const PtrInterface& object) {
    std::vector<String> names;
    for (const auto& [key, value] : map(selfOf<Self>(object))) names.push_back(keyText(key));
    return names;
  };
}

template <class T>
AttributeInfo virtualMembersInfo(const char* name) {
  return {name, AttributeKind::members, boost::core::type_name<T>(), {}, {}, {}, {}, {}, {}, {}, {}, {}, {}};
}

template <class Self, class Key, class T>
AttributeInfo membersInfo(const char* name, auto map) {
  auto info = virtualMembersInfo<T>(name);
  info.member = [map](const PtrInterface& object, std::string_view member) -> Ptr<PtrInterface> {
    const auto* found = findByText(map(selfOf<Self>(object)), member);
    return found ? Ptr<PtrInterface>(*found) : nullptr;
  };
  info.memberNames = memberNamesOf<Self>(map);
  return info;
}

template <class Self>
std::function<bool(PtrInterface&, std::string_view)> removeByText(auto map, auto remove) {
  return [map, remove](PtrInterface& object, std::string_view name) {
    auto& self = selfOf<Self>(object);
    const auto key = keyByText(map(self), name);
    return key && remove(self, *key);
  };
}

template <class Self, class Key, class T>
AttributeInfo membersInfo(const char* name, auto map, auto create, auto remove, auto removeAll) {
  auto info = membersInfo<Self, Key, T>(name, map);
  using Types = typename T::KelCtorTypes;
  info.create = [create](PtrInterface& object, const std::vector<Value>& arguments) -> Ptr<PtrInterface> {
    if constexpr (std::tuple_size_v<Types> != 0) {
      return applyArguments<Types>(arguments, constructorNames<T>(), [&](auto&&... args) {
        return create(selfOf<Self>(object), std::move(args)...);
      });
    } else {
      static_cast<void>(create);
      throw AttributeException("the member type has no constructor parameters");
    }
  };
  if constexpr (std::tuple_size_v<Types> == 1) {
    if constexpr (std::same_as<std::tuple_element_t<0, Types>, Key>) {
      info.createNamed = [create](PtrInterface& object, std::string_view member) -> Ptr<PtrInterface> {
        auto key = keyFromText<Key>(member);
        if (!key) throw RangeException(fmt::format("'{}' is no {}", member, boost::core::type_name<Key>()));
        return create(selfOf<Self>(object), std::move(*key));
      };
    }
  }
  info.remove = removeByText<Self>(map, remove);
  info.removeAll = [removeAll](PtrInterface& object) { removeAll(selfOf<Self>(object)); };
  return info;
}

// As data: an object of the values by the keys' text forms. Setting makes the collection equal to it.
template <class Self, class Key, class T>
AttributeInfo valuesInfo(const char* name, auto map, auto set, auto remove, auto removeAll) {
  AttributeInfo info{name, AttributeKind::values, boost::core::type_name<T>(), {}, {}, {}, {}, {}, {}, {}, {}, {},
                     {}};
  info.memberNames = memberNamesOf<Self>(map);
  info.remove = removeByText<Self>(map, remove);
  info.removeAll = [removeAll](PtrInterface& object) { removeAll(selfOf<Self>(object)); };
  info.toDatum = [map](const PtrInterface& object) {
    Datum::Object members;
    for (const auto& [key, value] : map(selfOf<Self>(object))) members.emplace_back(keyText(key), toDatum(value));
    return Datum(std::move(members));
  };
  if constexpr (!IsPtr<T>::value) {
    info.fromDatum = [map, set, remove](PtrInterface& object, const Datum& datum) {
      const auto* members = datum.getIf<Datum::Object>();
      if (!members) wrongKind(datum, "an object");
      // Everything is read before anything is changed, so that bad data change nothing.
      OrderedMap<Key, T> wanted;
      for (const auto& [text, value] : *members) {
        const auto key = keyFromText<Key>(text);
        if (!key) throw RangeException(fmt::format("'{}' is no {}", text, boost::core::type_name<Key>()));
        wanted.insert_or_assign(*key, fromDatum<T>(value));
      }
      auto& self = selfOf<Self>(object);
      const auto hold = kept(self);
      for (const auto& key : map(self).keys()) {
        if (!wanted.contains(key)) remove(self, key);
      }
      for (const auto& [key, value] : wanted) set(self, key, value);
    };
  }
  return info;
}

}  // namespace Kel

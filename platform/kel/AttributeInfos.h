#pragma once
// Makes the reflection entry of each kind of attribute. Not for users.

#include <fmt/format.h>

#include <map>
#include <optional>

#include "kel/Collection.h"
#include "kel/Notifier.h"
#include "kel/Operations.h"
#include "kel/TypeInfo.h"
#include "kel/Value.h"

namespace Kel {

// Casts the object of a generic call. Requires: it is a `Self`, the type that declares the attribute.
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

// `Get`, `Set`, `Create`, `Remove` and `Map` are types of lambdas without captures. Each operation default-constructs
// the lambda that it calls, so an AttributeInfo holds plain function pointers.

template <class Self, class Get>
AttributeInfo computedInfo(const char* name, Get) {
  using Result = std::remove_cvref_t<std::invoke_result_t<Get, const Self&>>;
  AttributeInfo info{name, AttributeKind::computed, boost::core::type_name<Result>()};
  info.read = [](const PtrInterface& object) { return Value(Result(Get()(selfOf<Self>(object)))); };
  return info;
}

template <class Self, class Get>
AttributeInfo constructorInfo(const char* name, Get get) {
  auto info = computedInfo<Self>(name, get);
  info.kind = AttributeKind::constructorParameter;
  return info;
}

// A handle (`T` is a Ptr) is a reference: data cannot express it, so it has its own operation.
template <class Self, class T, class Get, class Set>
AttributeInfo storedInfo(const char* name, Get get, Set) {
  auto info = computedInfo<Self>(name, get);
  info.toDatum = [](const PtrInterface& object) { return toDatum(Get()(selfOf<Self>(object))); };
  if constexpr (IsPtr<T>::value) {
    info.kind = AttributeKind::reference;
    info.typeName = boost::core::type_name<typename T::element_type>();
    info.referenceIs = [](PtrInterface& object, const Ptr<PtrInterface>& target) {
      Set()(selfOf<Self>(object), Value(target).template as<T>());
    };
  } else {
    info.kind = AttributeKind::stored;
    info.fromDatum = [](PtrInterface& object, const Datum& datum) {
      Set()(selfOf<Self>(object), fromDatum<T>(datum));
    };
  }
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

template <class Self, class T, class Get, class Remove>
AttributeInfo ownedInfo(const char* name, Get get, Remove) {
  auto info = computedInfo<Self>(name, get);
  info.kind = AttributeKind::child;
  info.typeName = boost::core::type_name<T>();
  info.member = [](const PtrInterface& object, std::string_view) -> Ptr<PtrInterface> {
    return Get()(selfOf<Self>(object));
  };
  info.remove = [](PtrInterface& object, std::string_view) { return Remove()(selfOf<Self>(object)); };
  info.removeAll = [](PtrInterface& object) { Remove()(selfOf<Self>(object)); };
  return info;
}

template <class Self, class T, class Get, class Create, class Remove>
AttributeInfo childInfo(const char* name, Get get, Create, Remove remove) {
  auto info = ownedInfo<Self, T>(name, get, remove);
  info.create = [](PtrInterface& object, const std::vector<Value>& arguments) -> Ptr<PtrInterface> {
    return applyArguments<typename T::KelCtorTypes>(arguments, constructorNames<T>(), [&](auto&&... args) {
      return Create()(selfOf<Self>(object), std::move(args)...);
    });
  };
  return info;
}

// Finds a key by its text form. A key of several fields cannot be read from text, so the members are compared one by
// one.
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

template <class Self, class Map>
std::vector<String> memberNames(const PtrInterface& object) {
  std::vector<String> names;
  for (const auto& [key, value] : Map()(selfOf<Self>(object))) names.push_back(keyText(key));
  return names;
}

template <class Self, class Map, class Remove>
bool removeByText(PtrInterface& object, std::string_view name) {
  auto& self = selfOf<Self>(object);
  const auto key = keyByText(Map()(self), name);
  return key && Remove()(self, *key);
}

template <class Key>
Key keyOrRefusal(std::string_view text) {
  auto key = keyFromText<Key>(text);
  if (!key) throw RangeException(fmt::format("'{}' is no {}", text, boost::core::type_name<Key>()));
  return std::move(*key);
}

template <class T>
AttributeInfo virtualMembersInfo(const char* name) {
  return {name, AttributeKind::members, boost::core::type_name<T>()};
}

template <class Self, class Key, class T, class Map>
AttributeInfo membersInfo(const char* name, Map) {
  auto info = virtualMembersInfo<T>(name);
  info.member = [](const PtrInterface& object, std::string_view member) -> Ptr<PtrInterface> {
    const auto* found = findByText(Map()(selfOf<Self>(object)), member);
    return found ? Ptr<PtrInterface>(*found) : nullptr;
  };
  info.memberNames = memberNames<Self, Map>;
  return info;
}

template <class Self, class Key, class T, class Map, class Create, class Remove, class RemoveAll>
AttributeInfo membersInfo(const char* name, Map map, Create, Remove, RemoveAll) {
  auto info = membersInfo<Self, Key, T>(name, map);
  using Types = typename T::KelCtorTypes;
  if constexpr (std::tuple_size_v<Types> != 0) {
    info.create = [](PtrInterface& object, const std::vector<Value>& arguments) -> Ptr<PtrInterface> {
      return applyArguments<Types>(arguments, constructorNames<T>(), [&](auto&&... args) {
        return Create()(selfOf<Self>(object), std::move(args)...);
      });
    };
  }
  if constexpr (std::same_as<Types, std::tuple<Key>>) {
    info.createNamed = [](PtrInterface& object, std::string_view member) -> Ptr<PtrInterface> {
      return Create()(selfOf<Self>(object), keyOrRefusal<Key>(member));
    };
  }
  info.remove = removeByText<Self, Map, Remove>;
  info.removeAll = [](PtrInterface& object) { RemoveAll()(selfOf<Self>(object)); };
  return info;
}

// The Datum of the collection is an object of the values by the keys' text forms. Setting it replaces the whole
// contents.
template <class Self, class Key, class T, class Map, class Set, class Remove, class RemoveAll>
AttributeInfo valuesInfo(const char* name, Map, Set, Remove, RemoveAll) {
  AttributeInfo info{name, AttributeKind::values, boost::core::type_name<T>()};
  info.memberNames = memberNames<Self, Map>;
  info.remove = removeByText<Self, Map, Remove>;
  info.removeAll = [](PtrInterface& object) { RemoveAll()(selfOf<Self>(object)); };
  info.toDatum = [](const PtrInterface& object) {
    Datum::Object members;
    for (const auto& [key, value] : Map()(selfOf<Self>(object))) members.emplace_back(keyText(key), toDatum(value));
    return Datum(std::move(members));
  };
  if constexpr (!IsPtr<T>::value) {
    info.fromDatum = [](PtrInterface& object, const Datum& datum) {
      const auto* members = datum.getIf<Datum::Object>();
      if (!members) wrongKind(datum, "an object");
      // Reads everything before changing anything, so that bad data change nothing.
      std::map<Key, T> wanted;
      for (const auto& [text, value] : *members) {
        wanted.insert_or_assign(keyOrRefusal<Key>(text), fromDatum<T>(value));
      }
      auto& self = selfOf<Self>(object);
      const auto hold = kept(self);
      for (const auto& key : Map()(self).keys()) {
        if (!wanted.contains(key)) Remove()(self, key);
      }
      for (const auto& [key, value] : wanted) Set()(self, key, value);
    };
  }
  return info;
}

}  // namespace Kel

#pragma once
// Declares the attributes of a watched type, one line each. A line generates the accessor, the setter or the collection
// operations, the virtual handler of the type's `Notifiee`, and the reflection.
//
//   class VrfMibsDir : public Kel::Entity {
//     KEL_TYPE_BEGIN("IpSnmp::VrfMibsDir", VrfMibsDir, Kel::Entity)
//    public:
//     KEL_NAMED(VrfMibsDir, Kel::Entity)
//     KEL_MEMBERS(Hashed, Kel::Name, VrfMibs, mibs, Mibs)
//     KEL_TYPE_END
//   };
//
// | line                                          | gives                                                   |
// |-----------------------------------------------|---------------------------------------------------------|
// | KEL_CONSTRUCTOR(Type, ((T1, a))((T2, b)))     | Type(T1, T2), accessors a(), b(); fixed for life        |
// | KEL_NAMED(Type, Base)                         | Type(Kel::Name)                                         |
// | KEL_NAMED_CONSTRUCTOR(Type, Base, ((T1, a)))  | Type(Kel::Name, T1), accessor a()                       |
// | KEL_STORED(T, attr, Attr, initial...)         | attr(), attrIs(value), handleAttr()                     |
// | KEL_REFERENCE(T, attr, Attr)                  | handle to a T that another object owns: attr(),         |
// |                                               | attrIs(p), handleAttr()                                 |
// | KEL_CHILD(T, attr, Attr)                      | attr(), attrIs(ctor parameters...), attrDel(),          |
// |                                               | handleAttr()                                            |
// | KEL_OWNED(T, attr, Attr)                      | attr(), attrIs(handle), attrDel(), handleAttr()         |
// | KEL_MEMBERS(Ordered|Hashed, Key, T, attr,     | attr(), attr(key), attrHas(key),                        |
// |             Attr)                             | attrIs(ctor parameters...), attrDel(key or iterator),   |
// |                                               | attrDelAll(), handleAttr(key)                           |
// | KEL_VALUES(Ordered|Hashed, Key, T, attr,      | attr(), attr(key) (null if absent), attrHas(key),       |
// |            Attr)                              | attrIs(key, value), attrDel(key), attrDelAll(),         |
// |                                               | handleAttr(key)                                         |
// | KEL_VIRTUAL_MEMBERS(T, attr)                  | the name of a collection of T that stores nothing, for  |
// |                                               | reflection; it offers no operation                      |
// | KEL_COMPUTED(attr)                            | reflection of the member function attr()                |
// | KEL_COMPUTED_WHEN(attr, condition)            | the same, readable only while the condition holds       |
//
// A create-or-get operation takes the constructor parameters of the member or child. The key of a member is the first
// parameter, or the result of the member type's static `kelKeyOf(parameters...)`. If the member exists, it is returned
// unchanged; a different constructor parameter throws ReinstantiationException. A deletion notifies the member's own
// reactors (`handleDel`) before those of its owner.
//
// How it works: __COUNTER__ numbers the lines of a type, relative to its KEL_TYPE_BEGIN, so the numbers are the same in
// every source file. Two class templates are specialized by line number. KelInfos<N> adds the attribute of line N to
// the reflection. KelHandlers<N> adds a class with the handler of line N between the type's `Notifiee` and that of
// its base. The primary templates skip to N - 1 where line N specializes nothing.

#include <boost/preprocessor/seq/size.hpp>
#include <tuple>

#include "kel/AttributeInfos.h"
#include "kel/Collection.h"
#include "kel/Notifier.h"
#include "kel/Operations.h"
#include "kel/TypeInfo.h"
#include "kel/ValueType.h"

#define KEL_TYPE_BEGIN(typeText, Type, Base) KEL_TYPE_BEGIN_(__COUNTER__, typeText, Type, Base)
#define KEL_TYPE_BEGIN_(N, typeText, Type, Base)                                 \
 public:                                                                         \
  static constexpr int kelFirstLink = N;                                         \
  using KelSelf = Type;                                                          \
  template <int I, class D = void>                                               \
  struct KelHandlers : KelHandlers<I - 1, D> {};                                 \
  template <class D>                                                             \
  struct KelHandlers<0, D> {                                                     \
    using Reactor = typename Base::Notifiee;                                     \
  };                                                                             \
  template <int I, class D = void>                                               \
  struct KelInfos : KelInfos<I - 1, D> {};                                       \
  template <class D>                                                             \
  struct KelInfos<0, D> {                                                        \
    static void describe(::Kel::TypeInfo& type) { Base::kelDescribeType(type); } \
  };                                                                             \
  static constexpr const char* kelName() {                                       \
    return typeText;                                                             \
  }

// Ends the declaration. Every source that includes the header compiles the reflection, which is slow. A type in a
// public header therefore ends with KEL_TYPE_END_DECLARE, and one source has KEL_TYPE_DEFINE(Namespace::Type).
#define KEL_TYPE_END                                                                                 \
  KEL_TYPE_END_(__COUNTER__)                                                                         \
  static void kelDescribeType(::Kel::TypeInfo& type) KEL_DESCRIBE_BODY static const ::Kel::TypeInfo& \
  kelStaticTypeInfo() KEL_STATIC_INFO_BODY(KelSelf) const ::Kel::TypeInfo&                           \
  kelTypeInfo() const override {                                                                     \
    return kelStaticTypeInfo();                                                                      \
  }

#define KEL_TYPE_END_DECLARE                          \
  KEL_TYPE_END_(__COUNTER__)                          \
  static void kelDescribeType(::Kel::TypeInfo& type); \
  static const ::Kel::TypeInfo& kelStaticTypeInfo();  \
  const ::Kel::TypeInfo& kelTypeInfo() const override;

#define KEL_TYPE_DEFINE(Type)                                                                \
  void Type::kelDescribeType(::Kel::TypeInfo& type) KEL_DESCRIBE_BODY const ::Kel::TypeInfo& \
  Type::kelStaticTypeInfo() KEL_STATIC_INFO_BODY(Type) const ::Kel::TypeInfo&                \
  Type::kelTypeInfo() const {                                                                \
    return kelStaticTypeInfo();                                                              \
  }

#define KEL_TYPE_END_(N)                                                                      \
 public:                                                                                      \
  class Notifiee : public KelHandlers<N - kelFirstLink>::Reactor {                            \
   public:                                                                                    \
    void notifierIs(const ::Kel::Ptr<const KelSelf>& notifier) { this->kelAttach(notifier); } \
    ::Kel::Ptr<const KelSelf> notifier() const {                                              \
      return boost::static_pointer_cast<const KelSelf>(this->kelNotifier());                  \
    }                                                                                         \
  };                                                                                          \
  using KelLastInfo = KelInfos<N - kelFirstLink>;

#define KEL_DESCRIBE_BODY        \
  {                              \
    KelLastInfo::describe(type); \
    type.nameIs(kelName());      \
  }
#define KEL_STATIC_INFO_BODY(Type)                                      \
  {                                                                     \
    static const ::Kel::TypeInfo info = ::Kel::kelMakeTypeInfo<Type>(); \
    return info;                                                        \
  }

// Adds an entry to the reflection: the statement `...` adds an AttributeInfo to `type`.
#define KEL_INFO(N, ...)                                                     \
 public:                                                                     \
  template <class D>                                                         \
  struct KelInfos<N - kelFirstLink, D> : KelInfos<N - kelFirstLink - 1, D> { \
    static void describe(::Kel::TypeInfo& type) {                            \
      KelInfos<N - kelFirstLink - 1, D>::describe(type);                     \
      __VA_ARGS__;                                                           \
    }                                                                        \
  };

// As KEL_INFO, and declares a virtual handler.
#define KEL_LINK(N, handler, ...)                                    \
 public:                                                             \
  template <class D>                                                 \
  struct KelHandlers<N - kelFirstLink, D> {                          \
    struct Reactor : KelHandlers<N - kelFirstLink - 1, D>::Reactor { \
      handler                                                        \
    };                                                               \
  };                                                                 \
  KEL_INFO(N, __VA_ARGS__)

#define KEL_COMPUTED(attr) KEL_COMPUTED_(__COUNTER__, attr)
#define KEL_COMPUTED_(N, attr) \
  KEL_INFO(N, type.add(::Kel::computedInfo<KelSelf>(#attr, [](const KelSelf& self) { return self.attr(); })))

// `...` is a member expression of the object. While it is false, reading by name throws AttributeException.
#define KEL_COMPUTED_WHEN(attr, ...) KEL_COMPUTED_WHEN_(__COUNTER__, attr, __VA_ARGS__)
#define KEL_COMPUTED_WHEN_(N, attr, ...)                                                \
  KEL_INFO(N, type.add(::Kel::computedInfo<KelSelf>(#attr, [](const KelSelf& self) {    \
    if (!(self.__VA_ARGS__)) throw ::Kel::AttributeException(#attr " is not readable"); \
    return self.attr();                                                                 \
  })))

#define KEL_NAMED(Type, Base)                               \
 public:                                                    \
  using KelCtorTypes = std::tuple<::Kel::Name>;             \
  explicit Type(::Kel::Name name) : Base(std::move(name)) { \
  }                                                         \
  auto kelCtorTie() const {                                 \
    return std::tie(this->kelGivenName());                  \
  }                                                         \
  static constexpr const char* kelCtorNames[] = {"name"};

#define KEL_PP_TYPE_COMMA(r, data, i, field) BOOST_PP_COMMA_IF(i) KEL_PP_TYPE(field)
#define KEL_PP_TEXT_COMMA(r, data, i, field) BOOST_PP_COMMA_IF(i) KEL_PP_TEXT(field)
#define KEL_PP_MEMBER_COMMA(r, data, i, field) BOOST_PP_COMMA_IF(i) KEL_PP_MEMBER(field)
#define KEL_PP_INFO(r, data, field)                            \
  type.add(::Kel::constructorInfo<KelSelf>(KEL_PP_TEXT(field), \
                                           [](const KelSelf& self) { return self.KEL_PP_NAME(field)(); }));

// The accessors, members and reflection of constructor parameters.
#define KEL_PARAMETERS(N, fields)                   \
 public:                                            \
  BOOST_PP_SEQ_FOR_EACH(KEL_PP_ACCESSOR, _, fields) \
 private:                                           \
  BOOST_PP_SEQ_FOR_EACH(KEL_PP_DECLARE, _, fields)  \
  KEL_INFO(N, BOOST_PP_SEQ_FOR_EACH(KEL_PP_INFO, _, fields))

#define KEL_CONSTRUCTOR(Type, fields) KEL_CONSTRUCTOR_(__COUNTER__, Type, fields)
#define KEL_CONSTRUCTOR_(N, Type, fields)                                                                \
 public:                                                                                                 \
  using KelCtorTypes = std::tuple<BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_TYPE_COMMA, _, fields)>;                \
  explicit Type(BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_PARAMETER, _, fields))                                    \
      : BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_INIT, _, fields) {                                                \
  }                                                                                                      \
  auto kelCtorTie() const {                                                                              \
    return std::tie(BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_MEMBER_COMMA, _, fields));                            \
  }                                                                                                      \
  static constexpr const char* kelCtorNames[] = {BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_TEXT_COMMA, _, fields)}; \
  KEL_PARAMETERS(N, fields)

// A named entity with further constructor parameters: Type(Kel::Name, T1, T2).
#define KEL_NAMED_CONSTRUCTOR(Type, Base, fields) KEL_NAMED_CONSTRUCTOR_(__COUNTER__, Type, Base, fields)
#define KEL_NAMED_CONSTRUCTOR_(N, Type, Base, fields)                                                            \
 public:                                                                                                         \
  using KelCtorTypes = std::tuple<::Kel::Name, BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_TYPE_COMMA, _, fields)>;           \
  explicit Type(::Kel::Name name, BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_PARAMETER, _, fields))                          \
      : Base(std::move(name)), BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_INIT, _, fields) {                                 \
  }                                                                                                              \
  auto kelCtorTie() const {                                                                                      \
    return std::tie(this->kelGivenName(), BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_MEMBER_COMMA, _, fields));              \
  }                                                                                                              \
  static constexpr const char* kelCtorNames[] = {"name", BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_TEXT_COMMA, _, fields)}; \
  KEL_PARAMETERS(N, fields)

#define KEL_NOTIFY(Attr) this->template kelNotify<Notifiee>([](Notifiee& reactor) { reactor.handle##Attr(); })
#define KEL_NOTIFY_KEY(Attr, key) \
  this->template kelNotify<Notifiee>([&](Notifiee& reactor) { reactor.handle##Attr(key); })

#define KEL_STORED(T, attr, Attr, ...) KEL_STORED_(__COUNTER__, T, attr, Attr, __VA_ARGS__)
#define KEL_STORED_(N, T, attr, Attr, ...)                                         \
 public:                                                                           \
  const T& attr() const {                                                          \
    return attr##_;                                                                \
  }                                                                                \
  void attr##Is(T value) {                                                         \
    if (attr##_ == value) return;                                                  \
    attr##_ = std::move(value);                                                    \
    KEL_NOTIFY(Attr);                                                              \
  }                                                                                \
                                                                                   \
 private:                                                                          \
  T attr##_{__VA_ARGS__};                                                          \
  KEL_LINK(N, virtual void handle##Attr(){},                                       \
           type.add(::Kel::storedInfo<KelSelf, T>(                                 \
               #attr, [](const KelSelf& self) -> const T& { return self.attr(); }, \
               [](KelSelf& self, T value) { self.attr##Is(std::move(value)); })))

#define KEL_REFERENCE(T, attr, Attr) KEL_STORED_(__COUNTER__, ::Kel::Ptr<T>, attr, Attr, )

// The part of KEL_CHILD and KEL_OWNED that does not create the child.
#define KEL_CHILD_ACCESS(T, attr, Attr)                                   \
 public:                                                                  \
  ::Kel::Ptr<T> attr() {                                                  \
    return attr##_.object;                                                \
  }                                                                       \
  ::Kel::Ptr<const T> attr() const {                                      \
    return attr##_.object;                                                \
  }                                                                       \
  bool attr##Del() {                                                      \
    return ::Kel::childDel(*this, attr##_, [this] { KEL_NOTIFY(Attr); }); \
  }                                                                       \
                                                                          \
 private:                                                                 \
  ::Kel::ChildSlot<T> attr##_;

#define KEL_CHILD(T, attr, Attr) KEL_CHILD_(__COUNTER__, T, attr, Attr)
#define KEL_CHILD_(N, T, attr, Attr)                                                            \
  KEL_CHILD_ACCESS(T, attr, Attr)                                                               \
 public:                                                                                        \
  template <class... Args>                                                                      \
  ::Kel::Ptr<T> attr##Is(Args&&... args) {                                                      \
    return ::Kel::childIs(                                                                      \
        *this, attr##_, #attr, [this] { KEL_NOTIFY(Attr); }, std::forward<Args>(args)...);      \
  }                                                                                             \
  KEL_LINK(N, virtual void handle##Attr(){},                                                    \
           type.add(::Kel::childInfo<KelSelf, T>(                                               \
               #attr, [](const KelSelf& self) { return self.attr##_.object; },                  \
               [](KelSelf& self, auto&&... args) { return self.attr##Is(std::move(args)...); }, \
               [](KelSelf& self) { return self.attr##Del(); })))

// A child that the caller creates. Setting another one deletes the previous one.
#define KEL_OWNED(T, attr, Attr) KEL_OWNED_(__COUNTER__, T, attr, Attr)
#define KEL_OWNED_(N, T, attr, Attr)                                                        \
  KEL_CHILD_ACCESS(T, attr, Attr)                                                           \
 public:                                                                                    \
  void attr##Is(::Kel::Ptr<T> object) {                                                     \
    ::Kel::ownedIs(*this, attr##_, #attr, std::move(object), [this] { KEL_NOTIFY(Attr); }); \
  }                                                                                         \
  KEL_LINK(N, virtual void handle##Attr(){},                                                \
           type.add(::Kel::ownedInfo<KelSelf, T>(                                           \
               #attr, [](const KelSelf& self) { return self.attr##_.object; },              \
               [](KelSelf& self) { return self.attr##Del(); })))

// KEL_MEMBERS without operations, for an owner that defines its own.
#define KEL_MEMBERS_READ(Kind, KeyT, T, attr, Attr) KEL_MEMBERS_READ_(__COUNTER__, Kind, KeyT, T, attr, Attr)
#define KEL_MEMBERS_READ_(N, Kind, KeyT, T, attr, Attr)   \
  KEL_MEMBERS_ACCESS(Kind, KeyT, T, attr)                 \
  KEL_LINK(N, virtual void handle##Attr(const KeyT&){},   \
           type.add(::Kel::membersInfo<KelSelf, KeyT, T>( \
               #attr, [](const KelSelf& self) -> const auto& { return self.attr(); })))

#define KEL_MEMBERS(Kind, KeyT, T, attr, Attr) KEL_MEMBERS_(__COUNTER__, Kind, KeyT, T, attr, Attr)
#define KEL_MEMBERS_(N, Kind, KeyT, T, attr, Attr)                                                              \
  KEL_MEMBERS_ACCESS(Kind, KeyT, T, attr)                                                                       \
 public:                                                                                                        \
  template <class... Args>                                                                                      \
  ::Kel::Ptr<T> attr##Is(Args&&... args) {                                                                      \
    return ::Kel::memberIs<T>(                                                                                  \
        *this, attr##_.map, #attr, [this](const KeyT& key) { KEL_NOTIFY_KEY(Attr, key); },                      \
        std::forward<Args>(args)...);                                                                           \
  }                                                                                                             \
  bool attr##Del(const KeyT& key) {                                                                             \
    return ::Kel::memberDel(*this, attr##_.map, key, [this](const KeyT& gone) { KEL_NOTIFY_KEY(Attr, gone); }); \
  }                                                                                                             \
  bool attr##Del(typename ::Kel::Kind<KeyT, ::Kel::Ptr<T>>::ConstIterator at) {                                 \
    const KeyT key = at->first;                                                                                 \
    return attr##Del(key);                                                                                      \
  }                                                                                                             \
  void attr##DelAll() {                                                                                         \
    const auto hold = ::Kel::kept(*this);                                                                       \
    for (const auto& key : attr##_.map.keys()) attr##Del(key);                                                  \
  }                                                                                                             \
  KEL_LINK(N, virtual void handle##Attr(const KeyT&){},                                                         \
           type.add(::Kel::membersInfo<KelSelf, KeyT, T>(                                                       \
               #attr, [](const KelSelf& self) -> const auto& { return self.attr(); },                           \
               [](KelSelf& self, auto&&... args) { return self.attr##Is(std::move(args)...); },                 \
               [](KelSelf& self, const KeyT& key) { return self.attr##Del(key); },                              \
               [](KelSelf& self) { self.attr##DelAll(); })))

#define KEL_MEMBERS_ACCESS(Kind, KeyT, T, attr)          \
 public:                                                 \
  const ::Kel::Kind<KeyT, ::Kel::Ptr<T>>& attr() const { \
    return attr##_.map;                                  \
  }                                                      \
  ::Kel::Ptr<T> attr(const KeyT& key) {                  \
    const auto* found = attr##_.map.find(key);           \
    return found ? *found : nullptr;                     \
  }                                                      \
  ::Kel::Ptr<const T> attr(const KeyT& key) const {      \
    const auto* found = attr##_.map.find(key);           \
    return found ? *found : nullptr;                     \
  }                                                      \
  bool attr##Has(const KeyT& key) const {                \
    return attr##_.map.has(key);                         \
  }                                                      \
                                                         \
 private:                                                \
  ::Kel::OwnedMembers<::Kel::Kind<KeyT, ::Kel::Ptr<T>>> attr##_;

#define KEL_VIRTUAL_MEMBERS(T, attr) KEL_VIRTUAL_MEMBERS_(__COUNTER__, T, attr)
#define KEL_VIRTUAL_MEMBERS_(N, T, attr) KEL_INFO(N, type.add(::Kel::virtualMembersInfo<T>(#attr)))

#define KEL_VALUES(Kind, KeyT, T, attr, Attr) KEL_VALUES_(__COUNTER__, Kind, KeyT, T, attr, Attr)
#define KEL_VALUES_(N, Kind, KeyT, T, attr, Attr)                                                     \
 public:                                                                                              \
  const ::Kel::Kind<KeyT, T>& attr() const {                                                          \
    return attr##_;                                                                                   \
  }                                                                                                   \
  const T* attr(const KeyT& key) const {                                                              \
    return attr##_.find(key);                                                                         \
  }                                                                                                   \
  bool attr##Has(const KeyT& key) const {                                                             \
    return attr##_.has(key);                                                                          \
  }                                                                                                   \
  void attr##Is(const KeyT& givenKey, T value) {                                                      \
    const KeyT key = givenKey;                                                                        \
    if (::Kel::valueIs(attr##_, key, std::move(value))) KEL_NOTIFY_KEY(Attr, key);                    \
  }                                                                                                   \
  bool attr##Del(const KeyT& givenKey) {                                                              \
    const KeyT key = givenKey;                                                                        \
    if (!attr##_.has(key)) return false;                                                              \
    [[maybe_unused]] const T gone = attr##_.kelTake(key);                                             \
    KEL_NOTIFY_KEY(Attr, key);                                                                        \
    return true;                                                                                      \
  }                                                                                                   \
  void attr##DelAll() {                                                                               \
    const auto hold = ::Kel::kept(*this);                                                             \
    for (const auto& key : attr##_.keys()) attr##Del(key);                                            \
  }                                                                                                   \
                                                                                                      \
 private:                                                                                             \
  ::Kel::Kind<KeyT, T> attr##_;                                                                       \
  KEL_LINK(N, virtual void handle##Attr(const KeyT&){},                                               \
           type.add(::Kel::valuesInfo<KelSelf, KeyT, T>(                                              \
               #attr, [](const KelSelf& self) -> const auto& { return self.attr(); },                 \
               [](KelSelf& self, const KeyT& key, T value) { self.attr##Is(key, std::move(value)); }, \
               [](KelSelf& self, const KeyT& key) { return self.attr##Del(key); },                    \
               [](KelSelf& self) { self.attr##DelAll(); })))

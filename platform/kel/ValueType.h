#pragma once
// Declares a value type from the list of its fields, in the order in which they are compared:
//
//   class ArpTableIndex {
//     KEL_VALUE_TYPE("IpSnmp::ArpTableIndex", ArpTableIndex, ((std::uint32_t, ifIndex))((Vantu::IpAddr, ipAddr)))
//   };
//
// defines a default constructor, a constructor with every field, one accessor per field, lexicographic comparison,
// `hash_value`, printing and conversion to and from `Datum`. A field type with a comma in it needs an alias.

#include <boost/container_hash/hash.hpp>
#include <boost/preprocessor/punctuation/comma_if.hpp>
#include <boost/preprocessor/seq/enum.hpp>
#include <boost/preprocessor/seq/for_each.hpp>
#include <boost/preprocessor/seq/for_each_i.hpp>
#include <boost/preprocessor/stringize.hpp>
#include <boost/preprocessor/tuple/elem.hpp>
#include <compare>
#include <ostream>
#include <utility>

#include "kel/Value.h"

#define KEL_PP_TYPE(field) BOOST_PP_TUPLE_ELEM(2, 0, field)
#define KEL_PP_NAME(field) BOOST_PP_TUPLE_ELEM(2, 1, field)
#define KEL_PP_TEXT(field) BOOST_PP_STRINGIZE(KEL_PP_NAME(field))
#define KEL_PP_MEMBER(field) BOOST_PP_CAT(KEL_PP_NAME(field), _)

#define KEL_PP_PARAMETER(r, data, i, field) BOOST_PP_COMMA_IF(i) KEL_PP_TYPE(field) KEL_PP_NAME(field)
#define KEL_PP_INIT(r, data, i, field) BOOST_PP_COMMA_IF(i) KEL_PP_MEMBER(field)(std::move(KEL_PP_NAME(field)))
#define KEL_PP_ACCESSOR(r, data, field)                   \
  const KEL_PP_TYPE(field) & KEL_PP_NAME(field)() const { \
    return KEL_PP_MEMBER(field);                          \
  }
#define KEL_PP_DECLARE(r, data, field) KEL_PP_TYPE(field) KEL_PP_MEMBER(field){};
#define KEL_PP_VISIT(r, data, field) visit(KEL_PP_TEXT(field), KEL_PP_MEMBER(field));
#define KEL_PP_HASH(r, data, field) boost::hash_combine(seed, value.KEL_PP_MEMBER(field));
#define KEL_PP_READ(r, data, i, field) \
  BOOST_PP_COMMA_IF(i) read(KEL_PP_TEXT(field), std::type_identity<KEL_PP_TYPE(field)>{})

#define KEL_VALUE_TYPE(typeText, Type, fields)                            \
 public:                                                                  \
  static constexpr const char* kelTypeName = typeText;                    \
  Type() = default;                                                       \
  explicit Type(BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_PARAMETER, _, fields))     \
      : BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_INIT, _, fields) {                 \
  }                                                                       \
  BOOST_PP_SEQ_FOR_EACH(KEL_PP_ACCESSOR, _, fields)                       \
  auto operator<=>(const Type&) const = default;                          \
  bool operator==(const Type&) const = default;                           \
  template <class Visitor>                                                \
  void kelForEachField(Visitor&& visit) const {                           \
    BOOST_PP_SEQ_FOR_EACH(KEL_PP_VISIT, _, fields)                        \
  }                                                                       \
  template <class Reader>                                                 \
  static Type kelFromFields(Reader&& read) {                              \
    return Type{BOOST_PP_SEQ_FOR_EACH_I(KEL_PP_READ, _, fields)};         \
  }                                                                       \
  friend std::size_t hash_value(const Type& value) {                      \
    std::size_t seed = 0;                                                 \
    BOOST_PP_SEQ_FOR_EACH(KEL_PP_HASH, _, fields)                         \
    return seed;                                                          \
  }                                                                       \
  friend std::ostream& operator<<(std::ostream& out, const Type& value) { \
    return out << ::Kel::print(value);                                    \
  }                                                                       \
                                                                          \
 private:                                                                 \
  BOOST_PP_SEQ_FOR_EACH(KEL_PP_DECLARE, _, fields)                        \
                                                                          \
 public:

#pragma once
// Counted handles.
//
// `Ptr<T>` owns one count of an object that derives from `PtrInterface`; `Ptr<const T>` is a read-only view of the
// same object. Lifetime: an object is deleted with its last handle. Thread: counting is not atomic; all handles stay
// on one thread.
//
//   Ptr<Row> row = makePtr<Row>(index);     // the only way to make a counted object; never put one on the stack
//   Ptr<const Row> view = row;

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Kel {

template <class T>
using Ptr = boost::intrusive_ptr<T>;

class TypeInfo;

// The base of every counted object.
class PtrInterface : public boost::intrusive_ref_counter<PtrInterface, boost::thread_unsafe_counter> {
 public:
  PtrInterface() = default;
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;
  virtual ~PtrInterface() = default;

  // The types of the constructor parameters; a type with parameters declares its own.
  using KelCtorTypes = std::tuple<>;

  // The reflection of the object's most derived declared type. A type that declares no attributes has an empty list.
  virtual const TypeInfo& kelTypeInfo() const;
};

// Constructs a counted object, then calls its kelStart(), if it has one.
template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
  Ptr<T> object(new T(std::forward<Args>(args)...));
  if constexpr (requires { object->kelStart(); }) object->kelStart();
  return object;
}

// Null when the object is not a `T`.
template <class T, class U>
Ptr<T> dynamicPtr(const Ptr<U>& from) {
  return boost::dynamic_pointer_cast<T>(from);
}

template <class T>
struct IsPtr : std::false_type {};
template <class T>
struct IsPtr<Ptr<T>> : std::true_type {};

}  // namespace Kel

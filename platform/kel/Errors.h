#pragma once
// The framework's exceptions. Each text states the fault and its place.

#include <stdexcept>
#include <string>

namespace Kel {

class Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A value outside the range of its type ("VrfName::bytes > VrfName::maxLength not allowed").
class RangeException : public Exception {
 public:
  using Exception::Exception;
};

// A call of an operation that a type declares but lacks (a keyed lookup in a virtual collection).
class NoImplementationException : public Exception {
 public:
  using Exception::Exception;
};

// A member that exists was created again with other constructor parameters.
class ReinstantiationException : public Exception {
 public:
  using Exception::Exception;
};

// A call of the generic attribute interface named an attribute or operation that the type lacks, or had arguments of
// the wrong number or type.
class AttributeException : public Exception {
 public:
  using Exception::Exception;
};

// Aborts the process after writing "<where>: assertion failed: <condition>" and the latest function entries
// (kel/Trace.h) to standard error. Active in every build type, since it reports programming and configuration faults.
[[noreturn]] void assertionFailed(const char* condition, const char* where);

}  // namespace Kel

#define KEL_STRINGIFY_1(x) #x
#define KEL_STRINGIFY(x) KEL_STRINGIFY_1(x)
#define KEL_WHERE __FILE__ ":" KEL_STRINGIFY(__LINE__)
// Reports `text` instead of the condition.
#define KEL_ASSERT_TEXT(condition, text)                       \
  do {                                                         \
    if (!(condition)) ::Kel::assertionFailed(text, KEL_WHERE); \
  } while (false)
#define KEL_ASSERT(condition) KEL_ASSERT_TEXT(condition, #condition)
// Reports "assertion failed: false" for code that must not be reached.
#define KEL_UNREACHABLE() ::Kel::assertionFailed("false", KEL_WHERE)

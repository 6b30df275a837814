#pragma once
// Keeps exceptions out of net-snmp's C code: every function that net-snmp calls runs its body in atCBoundary.
//
//   int myHandler(...) { return Snmp::atCBoundary(traceHandle, __func__, SNMP_ERR_GENERR, [&] { ... }); }
//
// An exception is traced at level 0 with the function's name, and `onException` is returned.

#include <exception>
#include <type_traits>
#include <utility>

#include "kel/Trace.h"

namespace Snmp {

template <class Result, class Body>
Result atCBoundary(const Kel::TraceHandle& traceHandle, const char* function, Result onException,
                   Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (const std::exception& error) {
    QTRACE(traceHandle, 0) << function << ": " << error.what();
  } catch (...) {
    QTRACE(traceHandle, 0) << function << ": unknown exception";
  }
  return onException;
}

// For functions without a result.
template <class Body>
void atCBoundary(const Kel::TraceHandle& traceHandle, const char* function, Body&& body) noexcept {
  atCBoundary(traceHandle, function, 0, [&] {
    std::forward<Body>(body)();
    return 0;
  });
}

}  // namespace Snmp

#pragma once
// Notification by what stands between the store and its readers: no reactor can keep another one from being told.

#include "kel/Notifier.h"
#include "kel/Trace.h"

namespace Quillo {

// Calls `call` for each reactor of `notifier` that is an `N`. What one throws is traced at level 0, and the next one
// is called all the same.
template <class N, class Call>
void tell(const Kel::Notifier& notifier, Kel::TraceHandle& traceHandle, const Call& call) {
  notifier.kelNotify<N>([&](N& reactor) {
    try {
      call(reactor);
    } catch (const std::exception& error) {
      QTRACE(traceHandle, 0) << "a reactor failed: " << error.what();
    }
  });
}

}  // namespace Quillo

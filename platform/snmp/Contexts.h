#pragma once
// The SNMP contexts that the agent serves: the default one ("") first, then one per VRF, named as the VRF is.
//
// Entering a context enters every announced module in order of name; leaving it leaves them in reverse. Requires: the
// agent enters a context after its caches are complete, and leaves it before they are deleted.

#include <vector>

#include "kel/Name.h"
#include "snmp/HandlerRegistration.h"

namespace Snmp {

class Contexts {
 public:
  Contexts() = default;
  // Leaves every context that is still entered, the latest first.
  ~Contexts();
  Contexts(const Contexts&) = delete;
  Contexts& operator=(const Contexts&) = delete;

  // Nothing happens when the context is entered already. The first one must be the default context. A context name
  // ends at its first null byte for net-snmp, so one with a null byte in it is refused. Both faults throw
  // Kel::RangeException, and nothing is entered.
  void enter(const Kel::String& context);
  // Leaves the modules that `enter` entered there; nothing happens when the context is not entered. Leaving the
  // default context leaves all others first.
  void leave(const Kel::String& context);

  bool isEntered(const Kel::String& context) const;
  // In the order of entering.
  std::vector<Kel::String> names() const;

 private:
  struct Entered {
    Kel::String name;
    std::vector<HandlerRegistration*> modules;
  };
  std::vector<Entered>::const_iterator find(const Kel::String& context) const;
  void leaveLast();

  std::vector<Entered> entered_;
};

// Which modules serve which SNMP context, as the modules report it. For diagnosis only: the registrations in net-snmp
// decide which requests are answered.
//
// Records that a module serves a context. Recording twice is recording once.
void registerMibContext(const Kel::String& context, const Kel::String& moduleName);
// Takes the record back; nothing happens when there is none.
void unregisterMibContext(const Kel::String& context, const Kel::String& moduleName);

// The contexts that some module serves, the default one ("") first.
std::vector<Kel::String> mibContexts();
// The modules that serve the context, in order of name; empty for an unknown one.
std::vector<Kel::String> mibContextModules(const Kel::String& context);

}  // namespace Snmp

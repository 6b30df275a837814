#pragma once
// The SNMP contexts that the agent serves: the default one ("") first, then one for each VRF, which has the VRF's name.
//
// Entering a context calls initHandler of every announced module in order of name; leaving it calls their `leaving`, and
// then exitHandler in reverse order. Requires: the agent enters a context after its caches are complete, and leaves it before they are
// deleted.

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

  // A no-op when the context is entered. Throws Kel::RangeException, and enters nothing, when another context is
  // entered before the default one, or the name has a null byte, at which a name ends for net-snmp.
  void enter(const Kel::String& context);
  // Leaves the modules that `enter` entered; a no-op for any other context. Leaving the default context
  // leaves all others first.
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
  void leave(std::vector<Entered>::const_iterator context);

  std::vector<Entered> entered_;
};

// Records that a module serves a context, for diagnosis only: the registrations in net-snmp decide which requests are
// answered. A no-op when it is recorded.
void registerMibContext(const Kel::String& context, const Kel::String& moduleName);
// Removes the record, if it exists.
void unregisterMibContext(const Kel::String& context, const Kel::String& moduleName);

// The contexts with a record, the default one ("") first.
std::vector<Kel::String> mibContexts();
// Whether the context has a record: it is entered, and not left yet.
bool isMibContext(const Kel::String& context);
// The modules recorded for the context, in order of name.
std::vector<Kel::String> mibContextModules(const Kel::String& context);

}  // namespace Snmp

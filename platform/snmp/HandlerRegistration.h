#pragma once
// One MIB module, as the agent framework sees it.
//
// A module is a source unit with one static registration object and, after it, one static `AutoRegistree` that
// announces it when the unit is loaded:
//
//   class Example_HandlerRegistration : public Snmp::HandlerRegistration {
//    public:
//     void initHandler(Kel::String context) override { init_Example(context); }
//     void exitHandler(Kel::String context) override { unregister_Example(context); }
//     const char* name() const override { return "Example"; }
//   };
//   static Example_HandlerRegistration exampleRegistration;
//   static Snmp::AutoRegistree exampleRegistree(&exampleRegistration);
//
// The framework enters the module once per SNMP context and leaves it once per context (snmp/Contexts.h).

#include <vector>

#include "kel/Name.h"

namespace Snmp {

class HandlerRegistration {
 public:
  HandlerRegistration() = default;
  HandlerRegistration(const HandlerRegistration&) = delete;
  HandlerRegistration& operator=(const HandlerRegistration&) = delete;
  virtual ~HandlerRegistration() = default;

  // Registers everything the module serves in the context; "" is the default one. What the module needs there (its
  // caches) exists already.
  virtual void initHandler(Kel::String context) = 0;
  // Unregisters all of it. The caches still exist.
  virtual void exitHandler(Kel::String context) = 0;
  // Under which the module calls registerMibContext, and by which modules are ordered. Must not change.
  virtual const char* name() const = 0;
};

// Announces a module to the framework for as long as this object exists, from load to unload. Requires: no context is
// entered at unload, since net-snmp would still call the module's handlers.
class AutoRegistree {
 public:
  // `registration` is not owned and must outlive this object.
  explicit AutoRegistree(HandlerRegistration* registration);
  ~AutoRegistree();
  AutoRegistree(const AutoRegistree&) = delete;
  AutoRegistree& operator=(const AutoRegistree&) = delete;

  // Every announced module, in order of name.
  static std::vector<HandlerRegistration*> registrations();

 private:
  HandlerRegistration* registration_;
};

// Whose object answers, when the agent has another module for the same one. So it is with a stock snmpd, which has
// built-in modules: as plugin or subagent, ours replace them.
//
// net-snmp lets the registration with the longer identifier answer, and of equally long ones that with the lower
// priority number; two of the same number it refuses.
//
// Set at start, before any context is entered.
bool takesPrecedence();
void takesPrecedenceIs(bool takes);

// The priority of our registrations: net-snmp's default of 127, or one that goes before it.
int registrationPriority();

}  // namespace Snmp

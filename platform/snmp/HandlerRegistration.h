#pragma once
// The interface between a MIB module and the agent framework.
//
// A module has one static registration object and, after it, one static `AutoRegistree` that announces the module at
// load:
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
// The framework calls initHandler and exitHandler once for each SNMP context (snmp/Contexts.h).

#include <vector>

#include "kel/Name.h"

namespace Snmp {

class HandlerRegistration {
 public:
  HandlerRegistration() = default;
  HandlerRegistration(const HandlerRegistration&) = delete;
  HandlerRegistration& operator=(const HandlerRegistration&) = delete;
  virtual ~HandlerRegistration() = default;

  // Registers everything that the module serves in the context; "" is the default one. The context's caches exist.
  virtual void initHandler(Kel::String context) = 0;
  // The context was entered: called for every module after the last initHandler.
  virtual void entered(const Kel::String& /*context*/) {}
  // The context is about to be left: called for every module before the first exitHandler.
  virtual void leaving(const Kel::String& /*context*/) {}
  // Unregisters everything in the context. The context's caches still exist.
  virtual void exitHandler(Kel::String context) = 0;
  // The name for registerMibContext and for the order of modules. Must not change.
  virtual const char* name() const = 0;
};

// Announces a module to the framework for as long as this object exists, from load to unload. Requires: no context is
// entered at unload, since net-snmp would still call the module's handlers.
class AutoRegistree {
 public:
  // Lifetime: `registration` must outlive this object.
  explicit AutoRegistree(HandlerRegistration* registration);
  ~AutoRegistree();
  AutoRegistree(const AutoRegistree&) = delete;
  AutoRegistree& operator=(const AutoRegistree&) = delete;

  // Every announced module, in order of name.
  static std::vector<HandlerRegistration*> registrations();

 private:
  HandlerRegistration* registration_;
};

// Whether our modules replace other modules for the same objects. A plugin or subagent needs this, since a stock
// snmpd has built-in modules. Requires: set before any context is entered.
//
// net-snmp uses the registration with the longest identifier, and among those the one with the lowest priority
// number. It refuses a second registration with the same number.
bool takesPrecedence();
void setTakesPrecedence(bool takes);

// The priority of our registrations: net-snmp's default of 127, or with precedence a lower number.
int registrationPriority();

}  // namespace Snmp

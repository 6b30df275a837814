#pragma once
// Serves objects in the contexts of VRFs without a registration for each. A context has one registration, internet, whose
// handler finds the object of a request and calls the handlers that the object has in the default context. A
// registration for each object would take 2 KiB in each context (docs/decisions/0039).
//
// - An object that a module registers in the default context is offered to the others, where the frame adds it with the
//   cache of the VRF. The handlers get a registration with this cache, the context, and the name that the object has
//   there. An object that the default context lacks is registered by itself.
// - Objects of net-snmp's own modules, of which there is one value for all contexts, are offered by offerStock().
//
// Entered for each context like a MIB module (snmp/HandlerRegistration.h), before all that register objects there, and
// left after them. Thread: the agent's.

#include <map>
#include <memory>
#include <vector>

#include "kel/Entity.h"
#include "modules/frame/NetSnmp.h"
#include "snmp/HandlerRegistration.h"

namespace Modules {

class Module;

class ContextObjects final : public Snmp::HandlerRegistration {
 public:
  // The only object.
  static ContextObjects& instance();

  // Offers an object of the default context. Lifetime: the registration must live until the object is withdrawn.
  void offer(const Module& module, const std::vector<oid>& root, const netsnmp_handler_registration& original);
  // Offers all objects that the default context has below a root at the time of a request, whoever registered them,
  // read-only, in every context that is entered afterwards.
  // `adjust`, if any, may change a value before it is sent in the context.
  using Adjust = void (*)(netsnmp_variable_list& value, const char* context);
  void offerStock(const std::vector<oid>& root, Adjust adjust);
  // Withdraws what the module offers: no context serves it until it is offered again. Null: what offerStock() did;
  // requires that no context of a VRF is entered.
  void withdraw(const Module* module);

  // Serves an object in the context of a VRF, with a counted reference to its cache there. Returns false, and does
  // nothing, if the object is not offered, or the context is not entered.
  bool add(const Kel::String& context, const std::vector<oid>& root, const Kel::Ptr<Kel::Entity>& cache);
  // Stops serving the objects of the module in the context.
  void remove(const Kel::String& context, const Module& module);

  // Whether `name` is that of the registration that a context has for all objects.
  static bool isCommonRoot(Name name);
  // The objects that a context serves.
  std::vector<std::vector<oid>> roots(const Kel::String& context) const;

  void initHandler(Kel::String context) override;
  void exitHandler(Kel::String context) override;
  // The first in order but for "AgentX": net-snmp divides a registration at those inside it, and finds all of its
  // pieces again only after the others are gone.
  const char* name() const override { return "ContextObjects"; }

  // What one context serves: the data of its registration's handler.
  class Context;

 private:
  struct Object {
    const Module* module;                          // null: net-snmp's own
    const netsnmp_handler_registration* original;  // null: whatever the default context has, or withdrawn
    Adjust adjust;
  };
  using Objects = std::map<std::vector<oid>, Object>;
  struct Served {
    Objects::const_iterator object;
    Kel::Ptr<Kel::Entity> cache;
  };

  ContextObjects() = default;

  Objects objects_;  // by their roots
  std::map<Kel::String, std::unique_ptr<Context>> contexts_;
};

}  // namespace Modules

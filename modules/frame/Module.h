#pragma once
// The common part of all MIB modules: announces a module at load, enters and leaves SNMP contexts, and records what the
// module registered in each. Thread: the agent's.
//
//   Kel::TraceHandle exampleTrace("Example");
//   Modules::Module example("Example", exampleTrace);
//   ... its scalars (Scalar.h) and tables (IteratorTable.h) ...
//   void init_Example(Kel::String context) {
//     example.entering(context, __func__);
//     ... registers them ...
//     example.entered(context);
//   }
//   MIB_MODULE(Example, example)

#include <initializer_list>
#include <map>
#include <vector>

#include "kel/Entity.h"
#include "kel/Name.h"
#include "kel/Trace.h"
#include "modules/frame/NetSnmp.h"
#include "snmp/HandlerRegistration.h"

namespace Modules {

// enterprises.E followed by the given sub-identifiers, E being the build option QUORIN_ENTERPRISE.
inline std::vector<oid> enterpriseObject(std::initializer_list<oid> below) {
  std::vector<oid> object{1, 3, 6, 1, 4, 1, QUORIN_ENTERPRISE};
  object.insert(object.end(), below);
  return object;
}

class Module {
 public:
  // Where the module's values come from.
  enum class Facts {
    published,  // from a publisher: not answered while FactsGate.h is closed
    own         // from the kernel or the agent itself
  };

  // `name` is also net-snmp's debug token and, with ".cpp", the name of the source. Lifetime: both must outlive this
  // object.
  Module(const char* name, const Kel::TraceHandle& trace, Facts facts = Facts::published)
      : name_(name), trace_(trace), facts_(facts) {}
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  const char* name() const { return name_; }
  const Kel::TraceHandle& trace() const { return trace_; }
  bool isFedByPublisher() const { return facts_ == Facts::published; }

  // The first and the last step of entering a context.
  // `line` is the caller's (clang 14 has no std::source_location with this standard library).
  void entering(const Kel::String& context, const char* function, int line = __builtin_LINE()) const;
  void entered(const Kel::String& context) const;
  // Unregisters everything that the module registered in the context, and frees its column records. No-op for a context
  // that was never entered.
  void leave(const Kel::String& context);

  // Traces that an object is about to be registered.
  void traceInitializing(const char* function, const std::vector<oid>& object, const Kel::String& context) const;

  // Makes a registration for the context, and leaves registering it to the caller. Returns null without memory.
  netsnmp_handler_registration* registration(const char* object, Netsnmp_Node_Handler* handler,
                                             const std::vector<oid>& identifier, int modes,
                                             const Kel::String& context) const;

  // Serves an object in the context of a VRF by the registration of the default context (ContextObjects.h). Returns false
  // if the object needs a registration of its own.
  bool share(const Kel::String& context, const std::vector<oid>& object, const Kel::Ptr<Kel::Entity>& entity) const;

  // Call it when an object is registered, with all its handlers.
  void registered(const Kel::String& context, const std::vector<oid>& object,
                  const netsnmp_handler_registration& registration) const;

  // Record what `leave` must undo. The module takes ownership.
  void addRegistration(const Kel::String& context, netsnmp_handler_registration* registration);
  void addColumnInfo(const Kel::String& context, netsnmp_column_info* columns);
  // Drops a registration that net-snmp refused and freed.
  void forgetRegistration(const Kel::String& context, netsnmp_handler_registration* registration);

 private:
  const char* name_;
  const Kel::TraceHandle& trace_;
  const Facts facts_;
  std::map<Kel::String, std::vector<netsnmp_handler_registration*>> registrationsByContext_;
  std::map<Kel::String, std::vector<netsnmp_column_info*>> columnInfoByContext_;
};

}  // namespace Modules

// Exports a function from a plugin, whatever the default visibility.
#define MIB_EXPORT __attribute__((visibility("default")))

// Defines unregister_<ModuleName> for the Module `module`, its registration object, and the object that announces it to
// the agent framework at load.
#define MIB_MODULE(ModuleName, module)                                                              \
  void unregister_##ModuleName(Kel::String context) {                                               \
    (module).leave(context);                                                                        \
  }                                                                                                 \
  class ModuleName##_HandlerRegistration : public ::Snmp::HandlerRegistration {                     \
   public:                                                                                          \
    void initHandler(Kel::String context) override { init_##ModuleName(std::move(context)); }       \
    void exitHandler(Kel::String context) override { unregister_##ModuleName(std::move(context)); } \
    const char* name() const override { return #ModuleName; }                                       \
  };                                                                                                \
  static ModuleName##_HandlerRegistration ModuleName##_registration;                                \
  static ::Snmp::AutoRegistree ModuleName##_registree(&ModuleName##_registration);

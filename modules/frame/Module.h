#pragma once
// What every MIB module does alike: it announces itself at load, enters SNMP contexts and leaves them, and keeps
// account of what it registered in each.
//
// A module is one source unit:
//
//   Kel::TraceHandle traceHandle("Example");
//   Modules::Module module("Example", traceHandle);
//   ... its scalars (modules/Scalar.h) and tables (modules/IteratorTable.h) ...
//   void init_Example(Kel::String context) {
//     module.entering(context, "init_Example");
//     ... registers them ...
//     module.entered(context);
//   }
//   void unregister_Example(Kel::String context) { module.leave(context); }
//   MIB_MODULE(Example)

#include <map>
#include <vector>

#include "kel/Name.h"
#include "kel/Trace.h"
#include "modules/frame/NetSnmp.h"
#include "snmp/HandlerRegistration.h"

namespace Modules {

class Module {
 public:
  // `name` is also net-snmp's debug token and, with ".cpp", the name of the source unit. Both must outlive this.
  Module(const char* name, const Kel::TraceHandle& trace) : name_(name), trace_(trace) {}
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  const char* name() const { return name_; }
  const Kel::TraceHandle& trace() const { return trace_; }

  // First and last step of entering a context.
  // `line` is the caller's (clang 14 has no std::source_location with this standard library).
  void entering(const Kel::String& context, const char* function, int line = __builtin_LINE()) const;
  void entered(const Kel::String& context) const;
  // Unregisters everything that the module registered in the context, and frees its column records. A context that
  // was never entered is left without a word.
  void leave(const Kel::String& context);

  // Announces an object that is about to be registered.
  void traceInitializing(const char* function, const std::vector<oid>& object, const Kel::String& context) const;

  // A registration for the context, not yet registered with the agent; null when there is no memory for it.
  netsnmp_handler_registration* registration(const char* object, Netsnmp_Node_Handler* handler,
                                             const std::vector<oid>& identifier, int modes,
                                             const Kel::String& context) const;

  // What `leave` is to take back. Both are given up to the module.
  void registrationAdd(const Kel::String& context, netsnmp_handler_registration* registration);
  void columnInfoAdd(const Kel::String& context, netsnmp_column_info* columns);
  // For a registration that net-snmp refused, and freed.
  void registrationForget(const Kel::String& context, netsnmp_handler_registration* registration);

 private:
  const char* name_;
  const Kel::TraceHandle& trace_;
  std::map<Kel::String, std::vector<netsnmp_handler_registration*>> registrationsByContext_;
  std::map<Kel::String, std::vector<netsnmp_column_info*>> columnInfoByContext_;
};

}  // namespace Modules

// Seen from outside a plugin, whatever the visibility of the rest.
#define MIB_EXPORT __attribute__((visibility("default")))

// The module's registration object, and the one that announces it to the agent framework at load.
#define MIB_MODULE(ModuleName)                                                                      \
  class ModuleName##_HandlerRegistration : public ::Snmp::HandlerRegistration {                     \
   public:                                                                                          \
    void initHandler(Kel::String context) override { init_##ModuleName(std::move(context)); }       \
    void exitHandler(Kel::String context) override { unregister_##ModuleName(std::move(context)); } \
    const char* name() const override { return #ModuleName; }                                       \
  };                                                                                                \
  static ModuleName##_HandlerRegistration ModuleName##_registration;                                \
  static ::Snmp::AutoRegistree ModuleName##_registree(&ModuleName##_registration);

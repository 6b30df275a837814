#include "modules/frame/Module.h"

#include <cstdlib>
#include <cstring>

#include "modules/frame/ContextObjects.h"
#include "snmp/Contexts.h"
#include "snmp/HandlerRegistration.h"

namespace Modules {

namespace {

// Like netsnmp_unregister_handler, but with copies: net-snmp 5.9 reads the context's name again, to clear its cache of
// the tree, after it freed the registration that owns the name.
void unregister(const netsnmp_handler_registration& registration) {
  std::vector<oid> identifier(registration.rootoid, registration.rootoid + registration.rootoid_len);
  const Kel::String context = registration.contextName != nullptr ? registration.contextName : "";
  unregister_mib_context(identifier.data(), identifier.size(), registration.priority, registration.range_subid,
                         registration.range_ubound,
                         registration.contextName != nullptr ? context.c_str() : nullptr);
}

}  // namespace

void Module::entering(const Kel::String& context, const char* function, int line) const {
  if (snmp_get_do_debugging() == 0) return;
  const Kel::String file = Kel::String(name_) + ".cpp";
  debugmsgtoken("trace", "%s(): %s, %d:\n", function, file.c_str(), line);
  debugmsg("trace", "%s(): %s, %d:\n", function, file.c_str(), line);
  debugmsgtoken(name_, "Initializing in context \"%s\"\n", context.c_str());
  debugmsg(name_, "Initializing in context \"%s\"\n", context.c_str());
}

void Module::entered(const Kel::String& context) const {
  Snmp::registerMibContext(context, name_);
}

void Module::leave(const Kel::String& context) {
  QTRACE(trace_, 2) << "Unregistering " << name_ << " in context \"" << context << "\"";

  auto& shared = ContextObjects::instance();
  shared.remove(context, *this);
  if (context.empty()) shared.withdraw(this);

  const auto registrations = registrationsByContext_[context];
  for (auto* registration : registrations) unregister(*registration);
  registrationsByContext_.erase(context);

  // Every request reads the column records of its table, so they are freed after the last registration.
  const auto columnInfos = columnInfoByContext_[context];
  for (auto* columns : columnInfos) {
    while (columns != nullptr) {
      auto* const next = columns->next;
      std::free(columns);
      columns = next;
    }
  }
  columnInfoByContext_.erase(context);

  Snmp::unregisterMibContext(context, name_);
}

void Module::traceInitializing(const char* function, const std::vector<oid>& object,
                               const Kel::String& context) const {
  if (!trace_.enabled(1)) return;
  char text[200];
  snprint_objid(text, sizeof(text), object.data(), object.size());
  QTRACE(trace_, 1) << function << " initializing oid " << text << " in context \"" << context << "\"";
}

netsnmp_handler_registration* Module::registration(const char* object, Netsnmp_Node_Handler* handler,
                                                   const std::vector<oid>& identifier, int modes,
                                                   const Kel::String& context) const {
  const Kel::String name = Kel::String(object) + "_" + context;
  auto* const result =
      netsnmp_create_handler_registration(name.c_str(), handler, identifier.data(), identifier.size(), modes);
  if (result == nullptr) return nullptr;
  result->priority = Snmp::registrationPriority();
  if (context.empty()) return result;
  result->contextName = strdup(context.c_str());
  if (result->contextName != nullptr) return result;
  // Without a name it would be registered in the default context.
  netsnmp_handler_registration_free(result);
  return nullptr;
}

bool Module::share(const Kel::String& context, const std::vector<oid>& object,
                   const Kel::Ptr<Kel::Entity>& entity) const {
  return ContextObjects::instance().add(context, object, entity);
}

void Module::registered(const Kel::String& context, const std::vector<oid>& object,
                        const netsnmp_handler_registration& registration) const {
  if (context.empty()) ContextObjects::instance().offer(*this, object, registration);
}

void Module::addRegistration(const Kel::String& context, netsnmp_handler_registration* registration) {
  registrationsByContext_[context].push_back(registration);
}

void Module::addColumnInfo(const Kel::String& context, netsnmp_column_info* columns) {
  columnInfoByContext_[context].push_back(columns);
}

void Module::forgetRegistration(const Kel::String& context, netsnmp_handler_registration* registration) {
  std::erase(registrationsByContext_[context], registration);
}

}  // namespace Modules

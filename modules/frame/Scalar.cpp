#include "modules/frame/Scalar.h"

#include <fmt/format.h>

#include <cstdio>

#include "kel/Errors.h"
#include "modules/frame/FactsGate.h"
#include "modules/frame/ServedEntity.h"
#include "snmp/CBoundary.h"
#include "snmp/HandlerRegistration.h"
#include "snmp/SnmpUtil.h"
#include "snmp/Varbind.h"

namespace Modules {

namespace {

int genErr(netsnmp_request_info* request) {
  netsnmp_request_set_error(request, SNMP_ERR_GENERR);
  return SNMP_ERR_GENERR;
}

int get(const Scalar& scalar, const char* function, const Kel::Entity* entity, netsnmp_request_info* request) {
  const auto& trace = scalar.module.trace();
  const auto& source = scalar.source;
  if (entity == nullptr || !source.isOfType(*entity)) {
    QTRACE(trace, 2) << function << " - entity /<sysname>/" << source.defaultPath << " is not of type "
                     << source.typeName;
    return genErr(request);
  }
  QTRACE(trace, 2) << function << " - reading " << source.defaultPath << "->" << scalar.attribute << "()";
  unsigned char buffer[1024];
  const auto encoded = Snmp::atCBoundary(trace, function, std::optional(-1),
                                         [&] { return scalar.encode(*entity, buffer, sizeof(buffer)); });
  if (!encoded) {
    // Of a GETNEXT, net-snmp's instance helper passes on to the next object.
    netsnmp_request_set_error(request, SNMP_NOSUCHINSTANCE);
    return SNMP_ERR_NOERROR;
  }
  const int length = *encoded;
  QTRACE(trace, 2) << function << " - " << scalar.conversion << " returned " << length << "bytes for "
                   << source.defaultPath << "->" << scalar.attribute << "()";
  if (!Snmp::setVarbindValue(request->requestvb, scalar.asnType, buffer, length)) {
    QTRACE(trace, 2) << function << " - " << scalar.conversion << " failed for: " << scalar.attribute;
    return genErr(request);
  }
  return SNMP_ERR_NOERROR;
}

int answer(const Scalar& scalar, const char* function, const Kel::Entity* entity, int mode,
           netsnmp_request_info* request) {
  const auto& trace = scalar.module.trace();
  switch (mode) {
    case MODE_SET_RESERVE1:
    case MODE_SET_RESERVE2:
    case MODE_SET_ACTION:
    case MODE_SET_COMMIT:
    case MODE_SET_FREE:
    case MODE_SET_UNDO:
      QTRACE(trace, 2) << function << " - SET is not configured for " << scalar.name;
      netsnmp_request_set_error(request, SNMP_ERR_NOTWRITABLE);
      return SNMP_ERR_NOERROR;
    case MODE_GET:
      return get(scalar, function, entity, request);
    default:
      QTRACE(trace, 2) << function << " - unknown mode from request: " << mode;
      return genErr(request);
  }
}

}  // namespace

void initializeScalar(const Scalar& scalar, Netsnmp_Node_Handler* handler, const char* function,
                      const Snmp::Config::PtrConst& config, const Kel::String& context) noexcept {
  auto& module = scalar.module;
  if (scalar.group != nullptr && SnmpUtil::objectsDisabled(config, scalar.group)) {
    std::printf("%s skipping scalar %s because %s are disabled.\n", function, scalar.name, scalar.group);
    std::fflush(stdout);
    return;
  }
  if (!scalar.source.serves(context)) {
    QTRACE(module.trace(), 2) << function << " in context \"" << context
                              << "\": varnixPathWithContext not specified for " << scalar.name << "; "
                              << "skipping registration";
    return;
  }
  const auto entity = entityAt(scalar.source, context,
                               {.object = fmt::format("scalar {}", scalar.name),
                                .wrongTypeEnding = fmt::format(" for scalar {}.", scalar.name),
                                .missingAssertion = fmt::format("e_{}", scalar.name),
                                .wrongTypeAssertion = fmt::format("ptr_{}", scalar.name)});
  if (module.share(context, scalar.identifier, entity)) return;
  const bool isInstance = scalar.isInstanceInSnmpd && Snmp::takesPrecedence() && context.empty();
  auto identifier = scalar.identifier;
  if (isInstance) identifier.push_back(0);
  auto* const registration = module.registration(scalar.name, handler, identifier, scalar.modes, context);
  KEL_ASSERT_TEXT(registration != nullptr, fmt::format("reg_{}", scalar.name).c_str());
  registration->priority = scalar.priority;
  holdEntity(registration, entity);
  module.addRegistration(context, registration);
  // net-snmp frees what it refuses.
  if ((isInstance ? netsnmp_register_instance(registration) : netsnmp_register_scalar(registration)) !=
      MIB_REGISTERED_OK) {
    module.forgetRegistration(context, registration);
    QTRACE(module.trace(), 0) << function << " in context \"" << context << "\": the agent refuses the scalar "
                              << scalar.name << ", which is then not served; is it registered already?";
    return;
  }
  const bool hasGate = injectFactsGate(registration, module.isFedByPublisher());
  KEL_ASSERT(hasGate);
  module.registered(context, scalar.identifier, *registration);
}

int handleScalar(const Scalar& scalar, const char* function, const netsnmp_mib_handler* handler,
                 const netsnmp_handler_registration* registration, const netsnmp_agent_request_info* requestInfo,
                 netsnmp_request_info* requests) noexcept {
  return Snmp::atCBoundary(scalar.module.trace(), function, SNMP_ERR_GENERR, [&] {
    return answer(scalar, function, heldEntity(handler, registration), requestInfo->mode, requests);
  });
}

}  // namespace Modules

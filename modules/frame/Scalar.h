#pragma once
// A scalar: one attribute of an entity, read at each request. It refuses every SET.
//
//   const Modules::Scalar routes{.module = module, .name = "ipCidrRouteNumber", ...};
//   MIB_SCALAR_HANDLER(ipCidrRouteNumber, routes)
//   Modules::initializeScalar(routes, handle_ipCidrRouteNumber, "init_IpForward", config, context);

#include <vector>

#include "modules/frame/Module.h"
#include "modules/frame/ServedEntity.h"
#include "snmp/Config.h"

namespace Modules {

// Ahead of the agent's default of 127, so that ours win over any other registration of the same object.
inline constexpr int scalarPriority = 64;

struct Scalar {
  Module& module;
  const char* name;
  std::vector<oid> identifier;
  int modes;     // as netsnmp_create_handler_registration takes them
  int priority;  // among registrations of the same object the lowest wins; the agent's default is 127
  EntitySource source;
  const char* attribute;
  unsigned char asnType;
  const char* conversion;  // what `encode` is called in traces
  // Writes the attribute's value; as the conversions do (snmp/Conversions.h). The entity is of the source's type.
  int (*encode)(const Kel::Entity& entity, unsigned char* buffer, int length);
  // The group of objects by which the configuration can switch it off; null: it cannot.
  const char* group = nullptr;
};

// Registers the scalar in the context. Where it is not served there, traces that at level 2; where its group is
// disabled, prints that on standard output. `function` is the caller, for traces. Aborts when its entity is missing
// or of another type, and on any exception: leaving the context would unregister somebody else's object in place of
// one that is listed, but not registered.
void initializeScalar(const Scalar& scalar, Netsnmp_Node_Handler* handler, const char* function,
                      const Snmp::Config::PtrConst& config, const Kel::String& context) noexcept;

// Answers the first request. The result is an SNMP error status. `function` is the caller, "handle_" and the
// scalar's name.
int handleScalar(const Scalar& scalar, const char* function, const netsnmp_mib_handler* handler,
                 const netsnmp_handler_registration* registration, const netsnmp_agent_request_info* requestInfo,
                 netsnmp_request_info* requests) noexcept;

// The function that net-snmp calls: handle_<name>, serving the Scalar `scalar`.
#define MIB_SCALAR_HANDLER(name, scalar)                                                                  \
  extern "C" int handle_##name(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,  \
                               netsnmp_agent_request_info* requestInfo, netsnmp_request_info* requests) { \
    return ::Modules::handleScalar(scalar, __func__, handler, registration, requestInfo, requests);       \
  }

}  // namespace Modules

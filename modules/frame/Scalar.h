#pragma once
// A scalar: one attribute of an entity, read at each request. It refuses every SET.
//
//   const Modules::Scalar routes{.module = module, .name = "ipCidrRouteNumber", ...};
//   MIB_SCALAR_HANDLER(ipCidrRouteNumber, routes)
//   Modules::initializeScalar(routes, handle_ipCidrRouteNumber, "init_IpForward", config, context);

#include <functional>
#include <optional>
#include <vector>

#include "modules/frame/Module.h"
#include "modules/frame/ServedEntity.h"
#include "snmp/Config.h"

namespace Modules {

// Below the agent's default of 127, so that our registration of an object takes precedence.
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
  const char* conversion;  // the name of `encode` in traces
  // Writes the attribute's value, like the conversions (snmp/Conversions.h); nullopt if there is no instance of the
  // object now. `entity` is of the source's type.
  std::function<std::optional<int>(const Kel::Entity& entity, unsigned char* buffer, int length)> encode;
  // The object group that disables the scalar in the configuration; null: none.
  const char* group = nullptr;
  // Whether a stock snmpd registers this object with its instance identifier (".0"). net-snmp prefers the longer
  // identifier, whatever the priority. So in the default context, with Snmp::takesPrecedence(), this scalar is
  // registered with it too.
  bool isInstanceInSnmpd = false;
};

// Registers the scalar in the context. If it is not served there, traces that at level 2; if its group is disabled,
// prints that on standard output; if net-snmp refuses it, traces that at level 0. `function` is the caller, for traces.
// Aborts if its entity is missing or of another type, and on any exception. Otherwise the scalar would be listed but
// not registered, and leaving the context would unregister another module's object.
void initializeScalar(const Scalar& scalar, Netsnmp_Node_Handler* handler, const char* function,
                      const Snmp::Config::PtrConst& config, const Kel::String& context) noexcept;

// Answers the first request. Returns an SNMP error status. `function` is the caller: "handle_" and the scalar's name.
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

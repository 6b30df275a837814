#include <fmt/format.h>
#include <fmt/ranges.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include "host/agent/AnswerSize.h"
#include "host/agent/NetSnmpAgent.h"
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/library/snmp_transport.h>

#include <boost/algorithm/string.hpp>
#include <cerrno>
#include <cstring>

#include "kel/Errors.h"

namespace Host {

namespace {

// Not reachable from other machines.
constexpr const char* defaultEndpoint = "udp:127.0.0.1:161";

const char* advice(int error) {
  switch (error) {
    case EADDRINUSE:
      return "stop the program that uses the address, or listen on another one";
    case EACCES:
      return "start as root or with CAP_NET_BIND_SERVICE, or listen on a port from 1024 on";
    case EADDRNOTAVAIL:
      return "listen on an address that this machine has";
    case ENODEV:
      return "the interface after @ must be there first";
    default:
      return "write it as udp:HOST:PORT, udp6:[HOST]:PORT, tcp:HOST:PORT or unix:PATH";
  }
}

// Throws Kel::Exception, naming the address, the reason and what to do.
void listenOn(const std::string& endpoint, StreamConnections& connections) {
  errno = 0;
  netsnmp_transport* transport = netsnmp_transport_open_server("snmp", endpoint.c_str());
  const int error = errno;
  if (transport != nullptr && receiveMessages(*transport)) return connections.guard(*transport);
  throw Kel::Exception(fmt::format(
      "cannot listen on {}: {}; {}", endpoint,
      error != 0 ? std::strerror(error) : "it names no known host or kind of transport", advice(error)));
}

// Returns the addresses of the command line and of agentAddress directives, which net-snmp collects; without any, the
// default one. Empty if one of them is "none", which requests no address at all.
std::vector<std::string> configuredEndpoints() {
  const char* ports = netsnmp_ds_get_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS);
  if (ports == nullptr) return {defaultEndpoint};
  std::vector<std::string> endpoints;
  boost::split(endpoints, ports, boost::is_any_of(","));
  for (auto& endpoint : endpoints) {
    boost::trim(endpoint);
    if (boost::iequals(endpoint, "none")) return {};
  }
  std::erase(endpoints, "");
  return endpoints;
}

}  // namespace

void NetSnmpAgent::listen() {
  if (masterSession_) return;
  endpoints_ = configuredEndpoints();
  for (const auto& endpoint : endpoints_) listenOn(endpoint, connections_);
  // Start the rest of the master agent without opening the addresses again.
  netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, "none");
  netsnmp_addrcache_initialise();
  if (init_master_agent() != 0) throw Kel::Exception("net-snmp's master agent does not start");
}

std::string NetSnmpAgent::role() const {
  if (masterSession_) return "serving through an AgentX master";
  return fmt::format("answering on {}", fmt::join(endpoints_, ", "));
}

}  // namespace Host

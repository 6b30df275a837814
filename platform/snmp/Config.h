#pragma once
// The agent's settings, which are tokens of its configuration file:
//
//   quorinDisableObjects GROUP...              object groups not to serve (Snmp::Config::objectGroups); takes
//                                              effect when a context is entered
//   quorinStore DIR                            the directory of the store, an absolute path
//   quorinNetnsDir DIR                         the directory of the network namespaces of VRFs, an absolute path
//   quorinKernelIpHeader strict | any          whether to accept a longer header of the kernel's IPv4 statistics
//   quorinDefaultInterfaces own | all          whose interfaces ifTable has in the default context: those of the
//                                              default VRF, or of all VRFs
//   quorinManagementInterfaces INTERFACE...    interfaces whose neighbours the FIB statistics do not count:
//                                              "red/eth0", or "eth0" for those of all VRFs
//   quorinRouteCountInterval SECONDS           time between two counts of a VRF's routes (ipCidrRouteNumber)
//   quorinIdleTimeout SECONDS                  time without data after which quorind closes a TCP or Unix connection;
//                                              0 means never
//   quorinStaleAfter SECONDS                   age of the publisher's last report after which its objects are no longer
//                                              answered; 0 means never
//   quorinControlSocket PATH | none            the Unix socket for quorinctl
//   quorinContextCommunities SEPARATOR | none  the separator between a community and the VRF whose context it reads
//   quorinVrfSysName TEMPLATE | none           sysName in the context of a VRF: %h is sysName, %v the VRF
//   quorinTrace FACILITY/LEVELS[;...]          trace levels, such as IpBase/0-2,8;Vrf*/0,7
//   quorinTraceOutput stderr | syslog | FILE   where trace lines go; FILE is an absolute path
//
// A token may occur several times: the lines of quorinDisableObjects, quorinManagementInterfaces and quorinTrace add
// up, and the last line of any other token applies. A wrong value is ignored and logged in one line that names file,
// line and fault. Each reading of the configuration first resets all settings to their defaults.

#include <set>
#include <vector>

#include "kel/Name.h"
#include "kel/Ptr.h"
#include "kel/Trace.h"
#include "vantu/IntfId.h"

namespace Snmp {

// The settings that MIB modules use. A Config does not change after the configuration was read. The next reading
// makes a new one, so holders of the old one see consistent settings.
class Config : public Kel::PtrInterface {
 public:
  using Ptr = Kel::Ptr<Config>;
  using PtrConst = Kel::Ptr<const Config>;

  // The groups of objects that can be disabled:
  //   interface-tables   the objects of IF-MIB, and dot3StatsTable
  //   ip-mib-tables      the objects of the modules ipMIB and ipSystemStats (modules/MibModules.h)
  //   mpls-l3vpn         MPLS-L3VPN-STD-MIB
  //   route-tables       ipCidrRouteNumber, ipCidrRouteTable, inetCidrRouteNumber, inetCidrRouteTable and the FIB
  //                      statistics tables
  static const std::vector<Kel::String>& objectGroups();

  const std::set<Kel::String>& disabledObjects() const { return disabledObjects_; }
  // Adds a group to the disabled ones. Throws Kel::RangeException that names the known groups if there is no such
  // group.
  void disableObjects(const Kel::String& group);

  // The configured directory of the store, an absolute path; empty when none is configured.
  const Kel::String& storeDirectory() const { return storeDirectory_; }
  // Throws Kel::RangeException for a path that is not absolute.
  void setStoreDirectory(const Kel::String& directory);

  // The configured directory of network namespaces (Vantu::setNsByName), an absolute path; empty when none is
  // configured.
  const Kel::String& netnsDirectory() const { return netnsDirectory_; }
  // Throws Kel::RangeException for a path that is not absolute.
  void netnsDirectoryIs(const Kel::String& directory);

  // Whether to accept a header line of the kernel's IPv4 statistics that has further names after the expected ones
  // (Ip::SwFwdStats).
  bool takesAnyKernelIpHeader() const { return takesAnyKernelIpHeader_; }
  // "any" or "strict". Throws Kel::RangeException for another word.
  void setKernelIpHeader(const Kel::String& word);

  // Whether the default context has the interfaces of all VRFs.
  bool areAllInterfacesInDefault() const { return areAllInterfacesInDefault_; }
  // "own" or "all". Throws Kel::RangeException for another word.
  void setDefaultInterfaces(const Kel::String& word);

  // The configured management interfaces (Vantu::MgmtIntfId).
  const std::set<Vantu::IntfId>& managementInterfaces() const { return managementInterfaces_; }
  // Throws Kel::RangeException for a text that is no interface id.
  void addManagementInterface(const Kel::String& name);

  // Seconds between two counts of a VRF's routes (ipCidrRouteNumber), 1 to 86400.
  unsigned routeCountInterval() const { return routeCountInterval_; }
  // Throws Kel::RangeException for a text that is no such number.
  void routeCountIntervalIs(const Kel::String& seconds);

  // Seconds without data after which the agent closes a connection of a stream transport, 0 to 86400; 0 means never.
  unsigned idleTimeout() const { return idleTimeout_; }
  // Throws Kel::RangeException for a text that is no such number.
  void idleTimeoutIs(const Kel::String& seconds);

  // The age in seconds of the publisher's last report after which its objects are no longer answered, 0 to 86400; 0
  // means never.
  unsigned staleAfter() const { return staleAfter_; }
  // Throws Kel::RangeException for a text that is no such number.
  void staleAfterIs(const Kel::String& seconds);

  // The path of the agent's control socket; empty: none.
  const Kel::String& controlSocket() const { return controlSocket_; }
  // Throws Kel::RangeException for a path that is not absolute, or too long for a socket.
  void controlSocketIs(const Kel::String& path);

  // The separator between a community and the VRF whose context it reads ("@" in "public@red"); empty: none.
  const Kel::String& contextCommunities() const { return contextCommunities_; }
  // "none" means no separator. Throws Kel::RangeException unless the text is 1 to 8 printable ASCII characters without
  // blanks.
  void contextCommunitiesIs(const Kel::String& separator);

  // sysName in the context of a VRF, with "%h" for sysName and "%v" for the VRF; empty: as in the default context.
  const Kel::String& vrfSysName() const { return vrfSysName_; }
  // "none" means no template. Throws Kel::RangeException for a template without "%v", or with another letter after "%".
  void vrfSysNameIs(const Kel::String& text);

 private:
  std::set<Kel::String> disabledObjects_;
  Kel::String storeDirectory_;
  Kel::String netnsDirectory_;
  bool takesAnyKernelIpHeader_ = false;
  bool areAllInterfacesInDefault_ = false;
  std::set<Vantu::IntfId> managementInterfaces_;
  unsigned routeCountInterval_ = 60;
  unsigned idleTimeout_ = 60;
  unsigned staleAfter_ = 0;
  Kel::String controlSocket_;
  Kel::String contextCommunities_;
  Kel::String vrfSysName_;
};

// Resets all settings to their defaults, and registers the tokens for the application type that net-snmp was
// initialized with. Requires: init_agent was called, and no line with one of the tokens has been read yet.
void registerConfigTokens();
// Unregisters the tokens and keeps the settings.
void unregisterConfigTokens();

// Sets where trace lines go without a quorinTraceOutput; initially standard error. Takes effect with the next reading
// of the configuration. `target` is the identity in syslog or the path of the file.
void setDefaultTraceOutput(Kel::TraceConfig::Output output, const Kel::String& target);

// The same for an agent that logs through a function.
void setDefaultTraceSink(Kel::TraceConfig::Sink sink);

// The latest configuration; never null. Before the first reading it has the defaults.
Config::PtrConst currentConfig();

}  // namespace Snmp

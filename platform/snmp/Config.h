#pragma once
// Our settings, as tokens of the agent's configuration file:
//
//   quorinDisableObjects GROUP...              object groups not to serve (Snmp::Config::objectGroups); takes
//                                              effect when a context is entered
//   quorinStore DIR                            the directory of the store, an absolute path
//   quorinNetnsDir DIR                         the directory of the network namespaces of VRFs, an absolute path
//   quorinKernelIpHeader strict | any          whether a longer header of the kernel's IPv4 statistics is taken
//   quorinManagementInterfaces INTERFACE...    interfaces whose neighbours are no routes for the FIB statistics:
//                                              "red/eth0", or "eth0" for those of all VRFs
//   quorinRouteCountInterval SECONDS           time between two counts of a VRF's routes (ipCidrRouteNumber)
//   quorinTrace FACILITY/LEVELS[;...]          trace levels, such as IpBase/0-2,8;Vrf*/0,7
//   quorinTraceOutput stderr | syslog | FILE   where trace lines go; FILE is an absolute path
//
// A token may stand more than once; the lines of quorinDisableObjects, quorinManagementInterfaces and quorinTrace
// add up, of the others the last one counts. A wrong value gives one line in the agent's log that names file, line and
// fault, and is left out; the rest is in effect. When the configuration is read again, all settings go back to their
// defaults first.

#include <set>
#include <vector>

#include "kel/Name.h"
#include "kel/Ptr.h"
#include "kel/Trace.h"
#include "vantu/IntfId.h"

namespace Snmp {

// The agent's configuration, as far as MIB modules ask for it. A Config does not change after the configuration was
// read. The next reading makes a new one; holders of the old one keep consistent answers.
class Config : public Kel::PtrInterface {
 public:
  using Ptr = Kel::Ptr<Config>;
  using PtrConst = Kel::Ptr<const Config>;

  // The groups of objects that can be switched off:
  //   route-tables   ipCidrRouteNumber, ipCidrRouteTable and the FIB statistics tables
  static const std::vector<Kel::String>& objectGroups();

  const std::set<Kel::String>& disabledObjects() const { return disabledObjects_; }
  // Throws Kel::RangeException, naming the known groups, for a group that does not exist.
  void disabledObjectsIs(const Kel::String& group);

  // The directory of the store that the configuration names, an absolute path; empty when it names none.
  const Kel::String& storeDirectory() const { return storeDirectory_; }
  // Throws Kel::RangeException for a path that is not absolute.
  void storeDirectoryIs(const Kel::String& directory);

  // The directory of the network namespaces that the configuration names (Vantu::setNsByName), an absolute path; empty
  // when it names none.
  const Kel::String& netnsDirectory() const { return netnsDirectory_; }
  // Throws Kel::RangeException for a path that is not absolute.
  void netnsDirectoryIs(const Kel::String& directory);

  // Whether a header line of the kernel's IPv4 statistics that is longer than expected is taken, if it begins with the
  // expected names (Ip::SwFwdStats).
  bool takesAnyKernelIpHeader() const { return takesAnyKernelIpHeader_; }
  // "any" or "strict". Throws Kel::RangeException for another word.
  void kernelIpHeaderIs(const Kel::String& word);

  // Interfaces that are management interfaces whatever they are called (Vantu::MgmtIntfId).
  const std::set<Vantu::IntfId>& managementInterfaces() const { return managementInterfaces_; }
  // Throws Kel::RangeException for a text that is no interface id.
  void managementInterfaceIs(const Kel::String& name);

  // Seconds between two counts of a VRF's routes (ipCidrRouteNumber), 1 to 86400.
  unsigned routeCountInterval() const { return routeCountInterval_; }
  // Throws Kel::RangeException for a text that is no such number.
  void routeCountIntervalIs(const Kel::String& seconds);

 private:
  std::set<Kel::String> disabledObjects_;
  Kel::String storeDirectory_;
  Kel::String netnsDirectory_;
  bool takesAnyKernelIpHeader_ = false;
  std::set<Vantu::IntfId> managementInterfaces_;
  unsigned routeCountInterval_ = 60;
};

// Makes the tokens known to net-snmp for the application type that it was initialized with; to be called after
// init_agent and before the configuration is read, or at least its lines with our tokens. All settings are at their
// defaults then.
void registerConfigTokens();
// Unregisters the tokens. The settings stay as they are.
void unregisterConfigTokens();

// Where trace lines go when no quorinTraceOutput says otherwise: standard error unless set. In effect from the next
// reading of the configuration on. `target` is the identity in syslog or the path of the file.
void defaultTraceOutputIs(Kel::TraceConfig::Output output, const Kel::String& target);

// The same for an agent whose log is reached through a function.
void defaultTraceSinkIs(Kel::TraceConfig::Sink sink);

// The configuration as it was read last; never null. Before the first reading: the defaults.
Config::PtrConst currentConfig();

}  // namespace Snmp

#pragma once
// The agent's configuration, as far as MIB modules ask for it. A Config does not change once the configuration has
// been read: reading it again makes a new one, and who holds the old one goes on with consistent answers.

#include <set>
#include <vector>

#include "kel/Name.h"
#include "kel/Ptr.h"
#include "vantu/IntfId.h"

namespace Snmp {

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

}  // namespace Snmp

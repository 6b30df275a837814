#pragma once
// Maps communities to the contexts of VRFs: with the separator "@", `public@red` asks the context red as `public`.
// The settings are net-snmp's own: com2sec lines give `public` its sources and its security name, and group, access and
// view lines what that name may read in red.
//
// - A community that a com2sec line names as a whole is that line's.
// - The base community must be one of the default context (a com2sec line without -Cn).
// - Without such a context or such a base the request is dropped, as net-snmp does with an unknown community. Nothing is
//   logged or kept of it.
//
// It takes the place of net-snmp's access check and calls that for every other request. Requires: vacm_conf is
// initialized, and at most one object exists at a time.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

namespace Host {

class CommunityContexts {
 public:
  CommunityContexts();
  ~CommunityContexts();
  CommunityContexts(const CommunityContexts&) = delete;
  CommunityContexts& operator=(const CommunityContexts&) = delete;
};

}  // namespace Host

#pragma once
// Keeps the interface MIB's map of ifIndexes equal to the interfaces' status records. An interface without an ifIndex
// is not in the map.
// Lifetime: stopping or destroying the machine empties the map.

#include <map>

#include "ipsnmp/agent/address/Reactors.h"
#include "snmp/IfMib.h"

namespace IpSnmp {

class IfMibSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IfMibSm", IfMibSm, Kel::Entity)
 public:
  // Requires: no handle is null.
  // clang-format off
  KEL_CONSTRUCTOR(IfMibSm,
    ((Kel::Ptr<const Interface::AllIntfStatusDir>, intfStatusDir))
    ((Kel::Ptr<IntfSnmp::IfMib>, ifMib)))
  // clang-format on
  KEL_TYPE_END_DECLARE

  ~IfMibSm() override;
  void kelStart() override;
  void kelStop() override;

 private:
  void handleIntfStatus(const Vantu::IntfId& intfId);

  Kel::Ptr<KelIntfStatusDir> kelIntfStatusDir_;
  std::map<Vantu::IntfId, Kel::Ptr<IfIndexWatch>> watches_;
};

}  // namespace IpSnmp

#pragma once
// Keeps the interface MIB's map of ifIndexes equal to what the interfaces' status records say. An interface without
// an ifIndex is not in the map. Stopping or destroying the machine empties the map.

#include <map>

#include "ipsnmp/agent/address/IntfWatches.h"
#include "snmp/IfMib.h"

namespace IpSnmp {

class IfMibSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IfMibSm", IfMibSm, Kel::Entity)
 public:
  // Neither may be null.
  KEL_CONSTRUCTOR(IfMibSm, ((Kel::Ptr<const Interface::AllIntfStatusDir>,
                             intfStatusDir))((Kel::Ptr<IntfSnmp::IfMib>, ifMib)))
  KEL_TYPE_END_DECLARE

  ~IfMibSm() override;
  void kelStart() override;
  void kelStop() override;

 private:
  void handleIntfStatus(const Vantu::IntfId& intfId);
  void stop();

  Kel::Ptr<KelIntfStatusDir> kelIntfStatusDir_;
  std::map<Vantu::IntfId, Kel::Ptr<IfIndexWatch>> watches_;
};

}  // namespace IpSnmp

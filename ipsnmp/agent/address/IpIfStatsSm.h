#pragma once
// Keeps the rows of one IP version in IpMib::ipIfStatsTable (quorinIpIfStatsTable): one for each interface that has
// counters in the state database and a status record with an ifIndex. The row moves with the ifIndex. Of two interfaces
// with the same ifIndex, the one notified last has the row.
// Lifetime: stopping or destroying the machine removes its rows.

#include <map>

#include "ipsnmp/IpMib.h"
#include "ipsnmp/agent/address/Reactors.h"
#include "varnix/Interface.h"

namespace IpSnmp {

class IpIfStatsSm : public Kel::Entity {
  KEL_TYPE_BEGIN("IpSnmp::IpIfStatsSm", IpIfStatsSm, Kel::Entity)
 public:
  // Requires: no handle is null.
  // clang-format off
  KEL_CONSTRUCTOR(IpIfStatsSm,
    ((Ip::IpVersion, ipVersion))
    ((Kel::Ptr<const Interface::AllIntfStatusDir>, intfStatusDir))
    ((Kel::Ptr<const Ip::AllIntfStats>, allIntfStats))
    ((Kel::Ptr<IpMib>, ipMib)))
  // clang-format on
  KEL_TYPE_END_DECLARE

  ~IpIfStatsSm() override;
  void kelStart() override;
  void kelStop() override;

 private:
  struct KelAllIntfStats : OwnedReactor<IpIfStatsSm, Ip::AllIntfStats> {
    using OwnedReactor::OwnedReactor;
    void handleIntfStats(const Vantu::IntfId& intfId) override { owner_->handleIntf(intfId); }
  };
  struct KelIntfStats : OwnedReactor<IpIfStatsSm, Ip::IntfStats> {
    using OwnedReactor::OwnedReactor;
    void handleCounters() override { owner_->handleIntf(notifier()->intfId()); }
    void handleDiscontinuityTime() override { owner_->handleIntf(notifier()->intfId()); }
    void handleUtcOffset() override { owner_->handleIntf(notifier()->intfId()); }
  };
  struct Watch {
    Kel::Ptr<KelIntfStats> stats;
    Kel::Ptr<IfIndexWatch> status;
    std::uint32_t ifIndex = 0;  // of its row; 0: no row
  };

  void handleIntf(const Vantu::IntfId& intfId);
  void setRow(const Vantu::IntfId& intfId, Watch& watch, std::uint32_t ifIndex);
  void removeRow(const Vantu::IntfId& intfId, Watch& watch);

  Kel::Ptr<KelIntfStatusDir> kelIntfStatusDir_;  // null: stopped
  Kel::Ptr<KelAllIntfStats> kelAllIntfStats_;
  std::map<Vantu::IntfId, Watch> watches_;  // of interfaces with counters
  std::map<std::uint32_t, Vantu::IntfId> owners_;
};

}  // namespace IpSnmp

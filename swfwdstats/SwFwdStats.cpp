#include "swfwdstats/SwFwdStats.h"

#include "kel/Trace.h"
#include "snmp/SnmpUtil.h"
#include "swfwdstats/KernelStats.h"
#include "vantu/NetNs.h"

KEL_TYPE_DEFINE(Ip::SwFwdStats)
KEL_TYPE_DEFINE(Ip::FwdStatsBogon)

namespace Ip {
namespace {

Kel::TraceHandle swFwdStatsTrace("IpSwFwdStats");

bool takesAnyIpHeader() {
  return SnmpUtil::getSnmpConfig()->takesAnyKernelIpHeader();
}

// Keeps the thread in the namespace of a VRF while it lives.
class InVrf {
 public:
  InVrf(const SwFwdStats& stats, const L3::VrfName& vrf) : stats_(stats), isElsewhere_(!vrf.isDefault()) {
    if (isElsewhere_) stats_.setNs(vrf.stringValue());
  }
  ~InVrf() {
    if (!isElsewhere_) return;
    try {
      stats_.setNs(L3::VrfName::defaultName);
    } catch (const Kel::Exception& error) {
      // The agent must not continue in a foreign namespace.
      KEL_ASSERT_TEXT(false, error.what());
    }
  }
  InVrf(const InVrf&) = delete;
  InVrf& operator=(const InVrf&) = delete;

 private:
  const SwFwdStats& stats_;
  const bool isElsewhere_;
};

}  // namespace

bool SwFwdStats::isCounted() const {
  doFreshen();
  return lastUpdate_ != 0;
}

std::optional<std::uint64_t> SwFwdStats::transmitted() const {
  doFreshen();
  if (more_.outTransmits) return more_.outTransmits;
  const auto sent = data_.forwDatagrams + data_.outRequests + data_.fragCreates;
  const auto kept = data_.fragFails + data_.outNoRoutes + data_.outDiscards + data_.fragOKs;
  return sent < kept ? std::nullopt : std::optional(sent - kept);
}

std::uint64_t SwFwdStats::inForwDatagrams() const {
  doFreshen();
  return data_.forwDatagrams + data_.inNoRoutes;
}

std::uint64_t SwFwdStats::fragReqds() const {
  doFreshen();
  return data_.fragOKs + data_.fragFails;
}

std::uint64_t SwFwdStats::outTransmits() const {
  doFreshen();
  return data_.forwDatagrams + data_.outRequests - data_.fragFails - data_.outNoRoutes - data_.outDiscards -
         data_.fragOKs + data_.fragCreates;
}

void SwFwdStats::doFreshen() const {
  if (Kel::System::currentTime() - lastUpdate_ > freshness) doRead();
}

void SwFwdStats::setNs(const Kel::Name& vrfName) const {
  Vantu::setNsByName(Vantu::nsNameOfVrf(vrfName).c_str());
}

void SwFwdStats::hasNamespaceIs(bool hasNamespace) {
  hasNamespace_ = hasNamespace;
  if (hasNamespace_) return;
  data_ = {};
  more_ = {};
  lastUpdate_ = 0;
}

void SwFwdStats::doRead() const {
  if (!hasNamespace_ || (ipVersion() != ipVersion4 && ipVersion() != ipVersion6)) return;
  SwFwdStatsData fresh = data_;
  SwFwdStatsMore more;
  try {
    const InVrf inside(*this, vrf_);
    refusal_.clear();
    if (!read(fresh, more)) return;
  } catch (const Kel::Exception& error) {
    // Each requested counter would trace it again.
    if (refusal_ == error.what()) return;
    refusal_ = error.what();
    QTRACE(swFwdStatsTrace, 0) << refusal_;
    return;
  }
  const auto now = Kel::System::currentTime();
  if (fresh.inReceives < data_.inReceives || fresh.outRequests < data_.outRequests) discontinuityTime_ = now;
  data_ = fresh;
  more_ = more;
  lastUpdate_ = now;
}

bool SwFwdStats::read(SwFwdStatsData& data, SwFwdStatsMore& more) const {
  if (ipVersion() == ipVersion6) return readKernelIp6(data, &more);
  return readKernelIp4(data, takesAnyIpHeader() ? IpHeader::any : IpHeader::strict, &more);
}

Kel::Ptr<SwFwdStats> swFwdStatsFactory(Ip::IpVersion ipVersion, Kel::Name vrfName) {
  return Kel::makePtr<SwFwdStats>(ipVersion, std::move(vrfName));
}

Kel::String kernelIpHeaderAdvice() {
  return takesAnyIpHeader() ? Kel::String() : adviceOnIpHeader();
}

}  // namespace Ip

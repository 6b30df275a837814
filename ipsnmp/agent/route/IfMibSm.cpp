#include "ipsnmp/agent/route/IfMibSm.h"

KEL_TYPE_DEFINE(IpSnmp::IfMibSm)

namespace IpSnmp {

IfMibSm::~IfMibSm() {
  IfMibSm::kelStop();
}

void IfMibSm::kelStart() {
  kelIntfStatusDir_ =
      Kel::makePtr<KelIntfStatusDir>([this](const Vantu::IntfId& intfId) { handleIntfStatus(intfId); });
  kelIntfStatusDir_->notifierIs(intfStatusDir());
  for (const auto& intfId : intfStatusDir()->intfStatus().keys()) handleIntfStatus(intfId);
}

void IfMibSm::kelStop() {
  if (!kelIntfStatusDir_) return;
  kelIntfStatusDir_ = nullptr;
  watches_.clear();
  ifMib()->ifIndexByIntfIdDelAll();
}

void IfMibSm::handleIntfStatus(const Vantu::IntfId& givenId) {
  if (!kelIntfStatusDir_) return;
  const Vantu::IntfId intfId = givenId;  // the caller's may live in the record
  const auto status = intfStatusDir()->intfStatus(intfId);
  if (!status) {
    watches_.erase(intfId);
    ifMib()->ifIndexByIntfIdDel(intfId);
    return;
  }
  auto& watch = watches_[intfId];
  if (!watch) watch = Kel::makePtr<IfIndexWatch>([this, intfId] { handleIntfStatus(intfId); });
  watch->notifierIs(status);
  if (const auto ifIndex = assignedIfIndex(status)) {
    ifMib()->ifIndexByIntfIdIs(intfId, static_cast<std::int32_t>(ifIndex));
  } else {
    ifMib()->ifIndexByIntfIdDel(intfId);
  }
}

}  // namespace IpSnmp

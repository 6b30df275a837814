#include "ipsnmp/agent/vrf/VrfIfReactors.h"

#include "ipsnmp/agent/vrf/VrfIfTableSm.h"

namespace IpSnmp::VrfIfReactors {

template <class Record>
void IntfReactor<Record>::kelStart() {
  this->notifierIs(record_);
  l3Watch_->notifierIs(record_->l3Config());
  intfStatusIs(owner_->intfStatusDir()->intfStatus(intfId()));
}

template <class Record>
void IntfReactor<Record>::kelStop() {
  this->notifierIs(nullptr);
  l3Watch_->notifierIs(nullptr);
  intfStatusWatch_->notifierIs(nullptr);
}

template <class Record>
void IntfReactor<Record>::intfStatusIs(const Kel::Ptr<const Interface::IntfStatus>& status) {
  if (!this->notifier()) return;  // stopped
  intfStatusWatch_->notifierIs(status);
  changed();
}

template <class Record>
L3::VrfName IntfReactor<Record>::vrf() const {
  const auto l3 = l3Watch_->notifier();
  return l3 ? l3->vrf() : L3::VrfName();
}

template <class Record>
void IntfReactor<Record>::handleL3Config() {
  l3Watch_->notifierIs(record_->l3Config());
  changed();
}

template <class Record>
void IntfReactor<Record>::changed() {
  owner_->handleIntf(intfId());
}

template class IntfReactor<Ip::IpIntfConfig>;
template class IntfReactor<Ip6::IntfConfig>;

}  // namespace IpSnmp::VrfIfReactors

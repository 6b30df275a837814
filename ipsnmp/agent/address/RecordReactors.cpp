#include "ipsnmp/agent/address/RecordReactors.h"

#include "ipsnmp/agent/address/IpAddressTableSm.h"

// A record may have been deleted and made again before its change is heard, so a reactor is always made anew.
namespace IpSnmp::AddressReactors {

void KelConfig::handleIpIntfConfig(const Vantu::IntfId& intfId) {
  owner_->ipIntfConfigDel(intfId);
  if (const auto record = notifier()->ipIntfConfig(intfId)) owner_->ipIntfConfigIs(owner_, record);
}

void KelStatus::handleIpIntfStatus(const Vantu::IntfId& intfId) {
  owner_->ipIntfStatusDel(intfId);
  if (const auto record = notifier()->ipIntfStatus(intfId)) owner_->ipIntfStatusIs(owner_, record);
}

void KelConfig6::handleIntf(const Vantu::IntfId& intfId) {
  owner_->ip6IntfConfigDel(intfId);
  if (const auto record = notifier()->intf(intfId)) owner_->ip6IntfConfigIs(owner_, record);
}

void KelStatus6::handleIntf(const Vantu::IntfId& intfId) {
  owner_->ip6IntfStatusDel(intfId);
  if (const auto record = notifier()->intf(intfId)) owner_->ip6IntfStatusIs(owner_, record);
}

void KelIntfStatusDir::handleIntfStatus(const Vantu::IntfId& intfId) {
  owner_->handleIntfStatus(intfId);
}

}  // namespace IpSnmp::AddressReactors

#pragma once
// The reactors of the VRF root state machine that watch collections. Not for users of the machine.
//
// They belong to it and must not outlive it.

#include "ipsnmp/agent/vrf/VrfRootSm.h"

namespace IpSnmp {

// What the task does.
struct VrfRootSm::KelTask {
  void operator()(Brev::Task&) const { owner->doProcessVrfBacklog(); }
  VrfRootSm* owner;
};

struct VrfRootSm::KelArpQuillo : Arp::Table::Status::Notifiee {
  explicit KelArpQuillo(VrfRootSm* owner) : owner_(owner) {}
  void handleInitialized() override {
    const Kel::Ptr<VrfRootSm> keep(owner_);
    for (const auto& sm : owner_->arpTableSms()) sm->handleInitialized();
    owner_->retryVrfs();
  }
  void handleTable() override {
    const Kel::Ptr<VrfRootSm> keep(owner_);
    for (const auto& sm : owner_->arpTableSms()) sm->handleTable();
    owner_->retryVrfs();
  }
  void onArpEntry(const Arp::Table::ArpKey& key) override { owner_->handleArpEntry(key); }
  void onNeighborEntry(const Arp::Table::ArpKey& key) override { owner_->handleNeighborEntry(key); }
  VrfRootSm* const owner_;
};

struct VrfRootSm::KelNameToIdMap : Vrf::VrfIdMap::NameToIdMap::Notifiee {
  explicit KelNameToIdMap(VrfRootSm* owner) : owner_(owner) {}
  void handleVrfId(const L3::VrfName& vrfName) override { owner_->handleNameToIdMap(vrfName); }
  VrfRootSm* const owner_;
};

struct VrfRootSm::KelRoutingVrfConfigDir : Routing::VrfConfigDir::Notifiee {
  explicit KelRoutingVrfConfigDir(VrfRootSm* owner) : owner_(owner) {}
  void handleVrfConfig(const Kel::Name& vrfName) override { owner_->onVrfConfig(vrfName); }
  VrfRootSm* const owner_;
};

struct VrfRootSm::KelRouting6VrfConfigDir : Routing6::VrfConfigDir::Notifiee {
  explicit KelRouting6VrfConfigDir(VrfRootSm* owner) : owner_(owner) {}
  void handleVrfConfig(const Kel::Name& vrfName) override { owner_->onVrf6Config(vrfName); }
  VrfRootSm* const owner_;
};

struct VrfRootSm::KelRoutingVrfInfoDir : Kel::Dir::Notifiee {
  explicit KelRoutingVrfInfoDir(VrfRootSm* owner) : owner_(owner) {}
  void handleEntityPtr(const Kel::Name& vrfName) override { owner_->onEntityPtr(vrfName); }
  VrfRootSm* const owner_;
};

struct VrfRootSm::KelRouting6VrfInfoDir : Kel::Dir::Notifiee {
  explicit KelRouting6VrfInfoDir(VrfRootSm* owner) : owner_(owner) {}
  void handleEntityPtr(const Kel::Name& vrfName) override {
    if (notifier()->entityPtrHas(vrfName)) owner_->handleVrfCreation(vrfName);
  }
  VrfRootSm* const owner_;
};

struct VrfRootSm::KelVrfNameStatus : Vrf::VrfIdMap::NameToIdMapWrapper::Notifiee {
  explicit KelVrfNameStatus(VrfRootSm* owner) : owner_(owner) {}
  void handleVrfId(const L3::VrfName& vrfName) override { owner_->handleVrfNameToIdChange(vrfName); }
  VrfRootSm* const owner_;
};

struct VrfRootSm::KelAllVrfStatusLocal : Ip::AllVrfStatusLocal::Notifiee {
  explicit KelAllVrfStatusLocal(VrfRootSm* owner) : owner_(owner) {}
  // A record may have been deleted and made again before its change is heard, so its reactor is always made anew.
  void handleVrf(const L3::VrfName& vrfName) override {
    const Kel::Ptr<VrfRootSm> keep(owner_);
    owner_->vrfStatusLocalDel(vrfName);
    if (const auto record = notifier()->vrf(vrfName)) owner_->vrfStatusLocalIs(owner_, record);
  }
  VrfRootSm* const owner_;
};

struct VrfRootSm::KelAllVrfStatusGlobal : Ip::AllVrfStatusGlobal::Notifiee {
  explicit KelAllVrfStatusGlobal(VrfRootSm* owner) : owner_(owner) {}
  void handleVrf(const L3::VrfName& vrfName) override { owner_->addToVrfTable(vrfName.stringValue()); }
  VrfRootSm* const owner_;
};

struct VrfRootSm::KelAllVrfConfig : Ip::AllVrfConfig::Notifiee {
  explicit KelAllVrfConfig(VrfRootSm* owner) : owner_(owner) {}
  void handleVrfConfig(const L3::VrfName& vrfName) override { owner_->addToVrfTable(vrfName.stringValue()); }
  VrfRootSm* const owner_;
};

struct VrfRootSm::KelSnmpStatus : Snmp::Status::Notifiee {
  explicit KelSnmpStatus(VrfRootSm* owner) : owner_(owner) {}
  void handleAgentStatus() override { owner_->handleSnmpStatus(); }
  VrfRootSm* const owner_;
};

struct VrfRootSm::KelSnmpAgentStatus : Snmp::AgentStatus::Notifiee {
  explicit KelSnmpAgentStatus(VrfRootSm* owner) : owner_(owner) {}
  void handleAgentReady() override { owner_->handleInitialized(notifier()->agentReady()); }
  VrfRootSm* const owner_;
};

struct VrfRootSm::KelIntfStatusDir : Interface::AllIntfStatusDir::Notifiee {
  explicit KelIntfStatusDir(VrfRootSm* owner) : owner_(owner) {}
  void handleIntfStatus(const Vantu::IntfId& intfId) override { owner_->handleIntfStatus(intfId); }
  VrfRootSm* const owner_;
};

template <class Reactor, class Watched>
void VrfRootSm::watch(const Kel::Ptr<Watched>& watched) {
  const auto reactor = Kel::makePtr<Reactor>(this);
  reactor->notifierIs(watched);
  reactors_.push_back(reactor);
}

}  // namespace IpSnmp

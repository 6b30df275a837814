#include "host/AgentTree.h"

#include "snmp/SnmpUtil.h"

namespace Host {
namespace {

template <class T>
Kel::Ptr<T> enter(const Kel::Ptr<Kel::Dir>& dir, const char* name) {
  auto entity = Kel::makePtr<T>(name);
  dir->entityIs(entity);
  return entity;
}

}  // namespace

AgentTree::AgentTree()
    : root_(Kel::makePtr<Kel::Dir>("")),
      varnix_(root_->dirIs("Varnix")),
      snmpStatus_(enter<Snmp::Status>(root_->dirIs("snmp"), "status")) {
  const auto ip = root_->dirIs("snmp")->dirIs("ip");
  ipMib_ = enter<IpSnmp::IpMib>(ip, "ipmib");
  ipForwardMib_ = enter<IpSnmp::IpForwardMib>(ip, "ipforwardmib");
  fibStatsMib_ = enter<FibStatsSnmp::FibStatsMib>(ip, "fibstatsmib");
  ipVrfMib_ = enter<IpSnmp::IpVrfMib>(ip, "ipvrfmib");
  vrfMibsDir_ = enter<IpSnmp::VrfMibsDir>(ip, "vrf");
  Interface::IntfDetailsProvider::providerIs(Interface::LinuxIntfDetails::kind, &linuxDetails_);
  ipRoot_ = Kel::makePtr<IpSnmp::Root>("ip");
  wire();
  SnmpUtil::rootIs(root_);
}

// The library makes none of its state machines by itself: the process that hosts it names those it wants.
void AgentTree::wire() {
  using Kel::Ptr;
  ipRoot_->ipConfigIs(varnix_.ipConfig);
  ipRoot_->ipStatusIs(varnix_.ipStatus);
  ipRoot_->ip6ConfigIs(varnix_.ip6Config);
  ipRoot_->ip6StatusIs(varnix_.ip6Status);
  ipRoot_->intfStatusDirIs(varnix_.intfStatusDir);
  ipRoot_->ipMibIs(ipMib_);
  ipRoot_->ipForwardMibIs(ipForwardMib_);
  ipRoot_->fibStatsMibIs(fibStatsMib_);
  Kel::callOperation(*ipRoot_, "ipAddressTableSmIs",
                     {Ptr<const Interface::AllIntfStatusDir>(varnix_.intfStatusDir), ipMib_,
                      Ptr<const Ip::Config>(varnix_.ipConfig), Ptr<const Ip::Status>(varnix_.ipStatus),
                      Ptr<const Ip6::Config>(varnix_.ip6Config), Ptr<const Ip6::Status>(varnix_.ip6Status)});
}

AgentTree::~AgentTree() {
  SnmpUtil::rootIs(nullptr);
  ipRoot_ = nullptr;  // the machines go before what they watch
  Interface::IntfDetailsProvider::providerIs(Interface::LinuxIntfDetails::kind, nullptr);
}

}  // namespace Host

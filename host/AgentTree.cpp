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

AgentTree::AgentTree(Kel::Ptr<Kel::Dir> root, const Varnix::Tree& varnix)
    : root_(std::move(root)), snmpStatus_(enter<Snmp::Status>(root_->dirIs("snmp"), "status")) {
  const auto ip = root_->dirIs("snmp")->dirIs("ip");
  ipMib_ = enter<IpSnmp::IpMib>(ip, "ipmib");
  ipForwardMib_ = enter<IpSnmp::IpForwardMib>(ip, "ipforwardmib");
  fibStatsMib_ = enter<FibStatsSnmp::FibStatsMib>(ip, "fibstatsmib");
  ipVrfMib_ = enter<IpSnmp::IpVrfMib>(ip, "ipvrfmib");
  vrfMibsDir_ = enter<IpSnmp::VrfMibsDir>(ip, "vrf");
  Interface::IntfDetailsProvider::providerIs(Interface::LinuxIntfDetails::kind, &linuxDetails_);
  ipRoot_ = Kel::makePtr<IpSnmp::Root>("ip");
  wire(varnix);
  SnmpUtil::rootIs(root_);
}

// The library makes none of its state machines by itself: the process that hosts it names those it wants.
void AgentTree::wire(const Varnix::Tree& varnix) {
  using Kel::Ptr;
  ipRoot_->ipConfigIs(varnix.ipConfig);
  ipRoot_->ipStatusIs(varnix.ipStatus);
  ipRoot_->ip6ConfigIs(varnix.ip6Config);
  ipRoot_->ip6StatusIs(varnix.ip6Status);
  ipRoot_->intfStatusDirIs(varnix.intfStatusDir);
  ipRoot_->ipMibIs(ipMib_);
  ipRoot_->ipForwardMibIs(ipForwardMib_);
  ipRoot_->fibStatsMibIs(fibStatsMib_);
  Kel::callOperation(*ipRoot_, "ipAddressTableSmIs",
                     {Ptr<const Interface::AllIntfStatusDir>(varnix.intfStatusDir), ipMib_,
                      Ptr<const Ip::Config>(varnix.ipConfig), Ptr<const Ip::Status>(varnix.ipStatus),
                      Ptr<const Ip6::Config>(varnix.ip6Config), Ptr<const Ip6::Status>(varnix.ip6Status)});
}

AgentTree::~AgentTree() {
  SnmpUtil::rootIs(nullptr);
  ipRoot_ = nullptr;  // the machines go before what they watch
  Interface::IntfDetailsProvider::providerIs(Interface::LinuxIntfDetails::kind, nullptr);
}

}  // namespace Host

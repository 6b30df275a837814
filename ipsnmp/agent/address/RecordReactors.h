#pragma once
// The reactors of the address state machine that watch collections: each keeps the per-interface reactors of one
// kind in step with the records that exist, or hands on that an interface's status record came or went.
//
// They belong to the state machine and must not outlive it.

#include "varnix/Interface.h"
#include "varnix/Ip.h"

namespace IpSnmp {

class IpAddressTableSm;

namespace AddressReactors {

template <class Watched>
class RecordReactor : public Watched::Notifiee {
 public:
  explicit RecordReactor(IpAddressTableSm* owner) : owner_(owner) {}

 protected:
  IpAddressTableSm* const owner_;
};

class KelConfig : public RecordReactor<Ip::Config> {
 public:
  using RecordReactor::RecordReactor;
  void handleIpIntfConfig(const Vantu::IntfId& intfId) override;
};

class KelStatus : public RecordReactor<Ip::Status> {
 public:
  using RecordReactor::RecordReactor;
  void handleIpIntfStatus(const Vantu::IntfId& intfId) override;
};

class KelConfig6 : public RecordReactor<Ip6::Config> {
 public:
  using RecordReactor::RecordReactor;
  void handleIntf(const Vantu::IntfId& intfId) override;
};

class KelStatus6 : public RecordReactor<Ip6::Status> {
 public:
  using RecordReactor::RecordReactor;
  void handleIntf(const Vantu::IntfId& intfId) override;
};

class KelIntfStatusDir : public RecordReactor<Interface::AllIntfStatusDir> {
 public:
  using RecordReactor::RecordReactor;
  void handleIntfStatus(const Vantu::IntfId& intfId) override;
};

}  // namespace AddressReactors
}  // namespace IpSnmp

#pragma once
// The reactors of the VRF interface state machine: each watches one configuration record of an interface, the layer-3
// record that this refers to, and the interface's status record.
//
// They belong to the state machine's collections and must not outlive it.

#include "ipsnmp/agent/address/IntfWatches.h"
#include "varnix/Ip.h"
#include "varnix/L3.h"

namespace IpSnmp {

class VrfIfTableSm;

namespace VrfIfReactors {

template <class Record>
class IntfReactor : public Record::Notifiee {
 public:
  IntfReactor(VrfIfTableSm* owner, Kel::Ptr<const Record> record) : owner_(owner), record_(std::move(record)) {}
  static const Vantu::IntfId& kelKeyOf(const VrfIfTableSm*, const Kel::Ptr<const Record>& record) {
    return record->intfId();
  }

  const Vantu::IntfId& intfId() const { return record_->intfId(); }
  // Null when the interface has none.
  Kel::Ptr<const Interface::IntfStatus> intfStatus() const { return intfStatusWatch_->notifier(); }
  void intfStatusIs(const Kel::Ptr<const Interface::IntfStatus>& status);
  // Where the configuration puts the interface: without a layer-3 record, in the default VRF.
  L3::VrfName vrf() const;

  // The owner's collection calls these when the reactor is entered and taken out.
  void kelStart();
  void kelStop();

  void handleL3Config() override;
  void handleDel() override { kelStop(); }

 private:
  struct KelL3Config : L3::Intf::Config::Notifiee {
    explicit KelL3Config(IntfReactor* reactor) : reactor_(reactor) {}
    void handleVrf() override { reactor_->changed(); }
    IntfReactor* reactor_;
  };

  void changed();

  VrfIfTableSm* const owner_;
  const Kel::Ptr<const Record> record_;
  const Kel::Ptr<KelL3Config> l3Watch_ = Kel::makePtr<KelL3Config>(this);
  const Kel::Ptr<IfIndexWatch> intfStatusWatch_ = Kel::makePtr<IfIndexWatch>([this] { changed(); });
};

using KelIpIntfConfig = IntfReactor<Ip::IpIntfConfig>;
using KelIp6IntfConfig = IntfReactor<Ip6::IntfConfig>;

}  // namespace VrfIfReactors
}  // namespace IpSnmp

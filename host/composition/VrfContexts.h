#pragma once
// Gives each VRF that is served its SNMP context, under the VRF's own name: entered when the VRF's caches are
// complete, left before they go.
//
// Which VRFs those are, an entity tells that has
//   KEL_VALUES(Hashed, L3::VrfName, bool, servedVrf, ServedVrf)
// with a member for each. Contexts follow within the call that changes it.

#include <map>

#include "kel/Ptr.h"
#include "snmp/Contexts.h"
#include "varnix/Routing.h"
#include "varnix/Values.h"

namespace Host {

class VrfContexts {
 public:
  // `contexts` must outlive this object and have the default context. Modules take a VRF's routing configuration
  // when its context is entered; one that is missing in `configDir` is waited for, and one that comes in the place
  // of another is served by entering the context again.
  VrfContexts(Snmp::Contexts& contexts, const Kel::Ptr<const Routing::VrfConfigDir>& configDir);
  // Contexts that are entered stay so.
  ~VrfContexts();
  VrfContexts(const VrfContexts&) = delete;
  VrfContexts& operator=(const VrfContexts&) = delete;

  // From now on follows `served`, whose present members are served at once.
  template <class Served>
  void follow(const Kel::Ptr<const Served>& served);

  // Enters the contexts of all served VRFs again, after all contexts were left.
  void reenter();

  // The longest context name that net-snmp's access control lets anybody ask for (RFC 3415, vacmContextName).
  static constexpr std::size_t longestAccessible = 32;
  // The longest there can be (RFC 3411, SnmpAdminString).
  static constexpr std::size_t longest = 255;

 private:
  class ConfigWatch;
  template <class Served>
  class ServedWatch;

  // A VRF came or went. A name that cannot be a context is one line in the log.
  void servedIs(const Kel::Name& vrf, bool isServed);
  static bool canBeContext(const Kel::Name& vrf);
  void enter(const Kel::Name& vrf);
  // The configuration of the VRF changed.
  void configured(const Kel::Name& vrf);

  Snmp::Contexts& contexts_;
  Kel::Ptr<const Routing::VrfConfigDir> configDir_;
  // With the configuration that the context was entered with; null: it waits for one.
  std::map<Kel::Name, Kel::Ptr<const Routing::Config>> served_;
  Kel::Ptr<Kel::NotifieeBase> configWatch_;
  Kel::Ptr<Kel::NotifieeBase> servedWatch_;
};

template <class Served>
class VrfContexts::ServedWatch : public Served::Notifiee {
 public:
  explicit ServedWatch(VrfContexts& owner) : owner_(owner) {}
  void handleServedVrf(const L3::VrfName& vrf) override {
    owner_.servedIs(vrf.stringValue(), this->notifier()->servedVrfHas(vrf));
  }

 private:
  VrfContexts& owner_;
};

template <class Served>
void VrfContexts::follow(const Kel::Ptr<const Served>& served) {
  const auto watch = Kel::makePtr<ServedWatch<Served>>(*this);
  watch->notifierIs(served);
  servedWatch_ = watch;
  for (const auto& vrf : served->servedVrf().keys()) servedIs(vrf.stringValue(), true);
}

}  // namespace Host

#include "varnix/TreeWatch.h"

#include "kel/Trace.h"
#include "varnix/ByteText.h"
#include "varnix/Document.h"

namespace Varnix {
namespace {

Kel::TraceHandle treeWatchTrace("VarnixWatch");

template <class T>
struct Watcher : T::Notifiee {
  TreeWatch* watch = nullptr;

  void changed() { watch->changed(*this->notifier()); }
  template <class MemberWatcher, class Key>
  void memberChanged(const char* attribute, const Key& key,
                     const Kel::Ptr<const typename MemberWatcher::Watched>& member) {
    if (member) {
      watch->entityIs<MemberWatcher>(member);
    } else {
      watch->entityDel(watch->path(*this->notifier()) + "." + attribute + "/" + Kel::keyText(key));
    }
  }
  // What is there when the watch begins.
  virtual void begin() {}

  using Watched = T;
};

// One line an attribute: stored or reference; collection of values; collection of members.
#define ON_ATTRIBUTE(Attr)       \
  void handle##Attr() override { \
    changed();                   \
  }
#define ON_VALUES(Key, Attr)               \
  void handle##Attr(const Key&) override { \
    changed();                             \
  }
#define ON_MEMBERS(Key, MemberWatcher, attr, Attr)                          \
  void handle##Attr(const Key& key) override {                              \
    memberChanged<MemberWatcher>(#attr, key, notifier()->attr(key));        \
  }                                                                         \
  void begin() override {                                                   \
    for (const auto& [key, member] : notifier()->attr()) handle##Attr(key); \
  }

struct OnIntfStatus : Watcher<Interface::IntfStatus> {
  ON_ATTRIBUTE(Kind)
  ON_ATTRIBUTE(IfIndex)
  ON_ATTRIBUTE(OperStatus)
  ON_ATTRIBUTE(EthAddr)
};
struct OnAllIntfStatus : Watcher<Interface::AllIntfStatusDir> {
  ON_MEMBERS(Vantu::IntfId, OnIntfStatus, intfStatus, IntfStatus)
};

struct OnL3Config : Watcher<L3::Intf::Config> {
  ON_ATTRIBUTE(Vrf)
};
struct OnL3ConfigDir : Watcher<L3::Intf::ConfigDir> {
  ON_MEMBERS(Vantu::IntfId, OnL3Config, intfConfig, IntfConfig)
};

struct OnL3Status : Watcher<L3::Intf::Status> {
  ON_ATTRIBUTE(Vrf)
};
struct OnL3StatusDir : Watcher<L3::Intf::StatusDir> {
  ON_MEMBERS(Vantu::IntfId, OnL3Status, intfStatus, IntfStatus)
};

struct OnIpIntfConfig : Watcher<Ip::IpIntfConfig> {
  ON_ATTRIBUTE(AddrWithMask)
  ON_VALUES(Vantu::IpAddrWithMask, SecondaryAddrWithMask)
  ON_ATTRIBUTE(L3Config)
};
struct OnIpConfig : Watcher<Ip::Config> {
  ON_MEMBERS(Vantu::IntfId, OnIpIntfConfig, ipIntfConfig, IpIntfConfig)
};

struct OnIpIntfStatus : Watcher<Ip::IpIntfStatus> {
  ON_ATTRIBUTE(ActiveAddrWithMask)
  ON_VALUES(Vantu::IpAddrWithMask, SecondaryAddrWithMask)
  ON_ATTRIBUTE(UnnumberedIntfId)
  ON_ATTRIBUTE(L3Status)
};
struct OnIpStatus : Watcher<Ip::Status> {
  ON_MEMBERS(Vantu::IntfId, OnIpIntfStatus, ipIntfStatus, IpIntfStatus)
};

struct OnIp6IntfConfig : Watcher<Ip6::IntfConfig> {
  ON_VALUES(Vantu::Ip6AddrWithMask, Addr)
  ON_ATTRIBUTE(L3Config)
};
struct OnIp6Config : Watcher<Ip6::Config> {
  ON_MEMBERS(Vantu::IntfId, OnIp6IntfConfig, intf, Intf)
};

struct OnIp6IntfStatus : Watcher<Ip6::IntfStatus> {
  ON_VALUES(Vantu::Ip6AddrWithMask, Addr)
  ON_ATTRIBUTE(L3Status)
};
struct OnIp6Status : Watcher<Ip6::Status> {
  ON_MEMBERS(Vantu::IntfId, OnIp6IntfStatus, intf, Intf)
};

struct OnIntfStats : Watcher<Ip::IntfStats> {
  ON_ATTRIBUTE(Counters)
  ON_ATTRIBUTE(DiscontinuityTime)
  ON_ATTRIBUTE(UtcOffset)
};
struct OnAllIntfStats : Watcher<Ip::AllIntfStats> {
  ON_MEMBERS(Vantu::IntfId, OnIntfStats, intfStats, IntfStats)
};

struct OnVrfConfig : Watcher<Ip::VrfConfig> {
  ON_ATTRIBUTE(RouteDistinguisher)
};
struct OnAllVrfConfig : Watcher<Ip::AllVrfConfig> {
  ON_MEMBERS(L3::VrfName, OnVrfConfig, vrfConfig, VrfConfig)
};

struct OnVrfGlobal : Watcher<Ip::VrfStatusGlobal> {
  ON_ATTRIBUTE(State)
};
struct OnAllVrfGlobal : Watcher<Ip::AllVrfStatusGlobal> {
  ON_MEMBERS(L3::VrfName, OnVrfGlobal, vrf, Vrf)
};

struct OnVrfLocal : Watcher<Ip::VrfStatusLocal> {
  ON_ATTRIBUTE(State)
  ON_ATTRIBUTE(HasNamespace)
};
struct OnAllVrfLocal : Watcher<Ip::AllVrfStatusLocal> {
  ON_MEMBERS(L3::VrfName, OnVrfLocal, vrf, Vrf)
};

struct OnRouting : Watcher<Routing::Config> {
  ON_ATTRIBUTE(Routing)
  ON_VALUES(Routing::StaticRouteKey, StaticRoute)
};
struct OnRoutingVrfs : Watcher<Routing::VrfConfigDir> {
  ON_MEMBERS(Kel::Name, OnRouting, vrfConfig, VrfConfig)
};

struct OnVrfInfo : Watcher<Routing::VrfInfo> {
  ON_ATTRIBUTE(KernelTable)
};
struct OnVrfInfos : Watcher<Kel::Dir> {
  void handleEntityPtr(const Kel::Name& name) override {
    const auto entry = notifier()->entityPtr(name);
    const auto info = Kel::dynamicPtr<const Routing::VrfInfo>(entry);
    if (info) {
      watch->entityIs<OnVrfInfo>(info);
      return;
    }
    if (entry) {
      QTRACE(treeWatchTrace, 0) << escapeBytes(watch->path(*entry)) << ": not published: its type is "
                                << entry->kelTypeInfo().name() << ", that of entries here Routing::VrfInfo";
    }
    watch->entityDel(watch->path(*notifier()) + "/" + name);
  }
  void begin() override {
    for (const auto& [name, entry] : notifier()->entityPtr()) handleEntityPtr(name);
  }
};

struct OnRouting6 : Watcher<Routing6::Config> {
  ON_ATTRIBUTE(Routing)
  ON_VALUES(Routing6::StaticRouteKey, StaticRoute)
};
struct OnRouting6Vrfs : Watcher<Routing6::VrfConfigDir> {
  ON_MEMBERS(Kel::Name, OnRouting6, vrfConfig, VrfConfig)
};

struct OnVrfIds : Watcher<Vrf::VrfIdMap::Status> {
  ON_VALUES(Vrf::VrfIdMap::VrfId, VrfName)
};
struct OnVrfNames : Watcher<Vrf::VrfIdMap::NameToIdMapWrapper> {
  ON_VALUES(L3::VrfName, VrfId)
};
struct OnL3 : Watcher<L3::Config> {
  ON_ATTRIBUTE(FecMode)
};

#undef ON_ATTRIBUTE
#undef ON_VALUES
#undef ON_MEMBERS

}  // namespace

TreeWatch::TreeWatch(const Tree& tree, std::function<void(const std::string&)> changed)
    : root_(tree.root), changed_(std::move(changed)) {
  entityIs<OnRouting>(tree.routingConfig);
  entityIs<OnRouting6>(tree.routing6Config);
  entityIs<OnRoutingVrfs>(tree.routingVrfConfigDir);
  entityIs<OnRouting6Vrfs>(tree.routing6VrfConfigDir);
  entityIs<OnVrfInfos>(tree.routingVrfInfoDir);
  entityIs<OnVrfInfos>(tree.routing6VrfInfoDir);
  entityIs<OnAllIntfStatus>(tree.intfStatusDir);
  entityIs<OnL3>(tree.l3Config);
  entityIs<OnL3ConfigDir>(tree.l3ConfigDir);
  entityIs<OnL3StatusDir>(tree.l3StatusDir);
  entityIs<OnIpConfig>(tree.ipConfig);
  entityIs<OnIpStatus>(tree.ipStatus);
  entityIs<OnIp6Config>(tree.ip6Config);
  entityIs<OnIp6Status>(tree.ip6Status);
  entityIs<OnAllIntfStats>(tree.ipIntfStats);
  entityIs<OnAllIntfStats>(tree.ip6IntfStats);
  entityIs<OnAllVrfConfig>(tree.allVrfConfig);
  entityIs<OnAllVrfGlobal>(tree.allVrfStatusGlobal);
  entityIs<OnAllVrfLocal>(tree.allVrfStatusLocal);
  entityIs<OnVrfIds>(tree.vrfIdStatus);
  entityIs<OnVrfNames>(tree.vrfNameStatus);
}

template <class WatcherType, class T>
void TreeWatch::entityIs(const Kel::Ptr<T>& entity) {
  auto reactor = Kel::makePtr<WatcherType>();
  reactor->watch = this;
  reactor->notifierIs(entity);
  watched_[path(*entity)] = {entity, reactor};
  if (hasDocumentAttributes(entity->kelTypeInfo())) changed(*entity);
  reactor->begin();
}

void TreeWatch::entityDel(const std::string& path) {
  watched_.erase(path);
  changed_(path);
}

void TreeWatch::changed(const Kel::Entity& entity) const {
  // An entity that was taken out of the tree but is still held somewhere changes nothing in the tree.
  if (const auto path = pathBelow(*root_, entity)) changed_(*path);
}

Kel::Ptr<const Kel::Entity> TreeWatch::entity(const std::string& path) const {
  const auto at = watched_.find(path);
  return at == watched_.end() ? nullptr : at->second.entity;
}

std::string TreeWatch::path(const Kel::Entity& entity) const {
  return pathBelow(*root_, entity).value_or("");
}

}  // namespace Varnix

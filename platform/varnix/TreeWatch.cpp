#include "varnix/TreeWatch.h"

#include <algorithm>
#include <type_traits>

#include "kel/Trace.h"
#include "varnix/ByteText.h"
#include "varnix/Document.h"

namespace Varnix {
namespace {

Kel::TraceHandle treeWatchTrace("VarnixWatch");

// Watches all attributes of one entity of any type.
class EntityWatch : public Kel::NotifieeBase {
 public:
  explicit EntityWatch(std::function<void()> changed) : changed_(std::move(changed)) {}
  void entityIs(const Kel::Ptr<const Kel::Entity>& entity) { kelAttach(entity); }
  void handleAnyChange() override { changed_(); }

 private:
  const std::function<void()> changed_;
};

template <class Owner>
struct MembersWatch : Owner::Notifiee {
  TreeWatch* watch = nullptr;

  template <class Key>
  void memberChanged(const char* attribute, const Key& key, const Kel::Ptr<const Kel::Entity>& member) {
    if (member) {
      watch->watch(member);
    } else {
      watch->forget(watch->path(*this->notifier()) + "." + attribute + "/" + Kel::keyText(key));
    }
  }
};

struct OnVrfInfos : Kel::Dir::Notifiee {
  TreeWatch* watch = nullptr;

  void handleEntityPtr(const Kel::Name& name) override {
    const auto entry = notifier()->entityPtr(name);
    if (Kel::dynamicPtr<const Routing::VrfInfo>(entry)) {
      watch->watch(entry);
      return;
    }
    if (entry) {
      QTRACE(treeWatchTrace, 0) << escapeBytes(watch->path(*entry)) << ": not published: its type is "
                                << entry->kelTypeInfo().name() << ", that of entries here Routing::VrfInfo";
    }
    watch->forget(watch->path(*notifier()) + "/" + name);
  }
  void begin() {
    for (const auto& [name, entry] : notifier()->entityPtr()) handleEntityPtr(name);
  }
};

}  // namespace

// Watches the members of the collection `attr` of `owner`.
#define MEMBERS_WATCH(owner, attr, Attr)                                                               \
  {                                                                                                    \
    using Owner = std::remove_reference_t<decltype(*(owner))>;                                         \
    using Key = std::remove_cvref_t<decltype((owner)->attr())>::Key;                                   \
    struct Watch : MembersWatch<Owner> {                                                               \
      void handle##Attr(const Key& key) override { memberChanged(#attr, key, notifier()->attr(key)); } \
      void begin() {                                                                                   \
        for (const auto& [key, member] : notifier()->attr()) watch->watch(member);                     \
      }                                                                                                \
    };                                                                                                 \
    watchMembers<Watch>(owner);                                                                        \
  }

TreeWatch::TreeWatch(const Tree& tree, std::function<void(const std::string&)> changed)
    : root_(tree.root), changed_(std::move(changed)) {
  watchFixed(*root_, tree.openDirs());
  MEMBERS_WATCH(tree.routingVrfConfigDir, vrfConfig, VrfConfig)
  MEMBERS_WATCH(tree.routing6VrfConfigDir, vrfConfig, VrfConfig)
  watchMembers<OnVrfInfos>(tree.routingVrfInfoDir);
  watchMembers<OnVrfInfos>(tree.routing6VrfInfoDir);
  MEMBERS_WATCH(tree.intfStatusDir, intfStatus, IntfStatus)
  MEMBERS_WATCH(tree.intfCountersDir, intfCounters, IntfCounters)
  MEMBERS_WATCH(tree.l3ConfigDir, intfConfig, IntfConfig)
  MEMBERS_WATCH(tree.l3StatusDir, intfStatus, IntfStatus)
  MEMBERS_WATCH(tree.ipConfig, ipIntfConfig, IpIntfConfig)
  MEMBERS_WATCH(tree.ipStatus, ipIntfStatus, IpIntfStatus)
  MEMBERS_WATCH(tree.ip6Config, intf, Intf)
  MEMBERS_WATCH(tree.ip6Status, intf, Intf)
  MEMBERS_WATCH(tree.ipIntfStats, intfStats, IntfStats)
  MEMBERS_WATCH(tree.ip6IntfStats, intfStats, IntfStats)
  MEMBERS_WATCH(tree.ipIntfProtocol, intfProtocol, IntfProtocol)
  MEMBERS_WATCH(tree.ip6IntfProtocol, intfProtocol, IntfProtocol)
  MEMBERS_WATCH(tree.allVrfConfig, vrfConfig, VrfConfig)
  MEMBERS_WATCH(tree.allVrfStatusGlobal, vrf, Vrf)
  MEMBERS_WATCH(tree.allVrfStatusLocal, vrf, Vrf)
}

#undef MEMBERS_WATCH

void TreeWatch::watchFixed(const Kel::Dir& dir, const std::vector<OpenDir>& openDirs) {
  if (std::ranges::any_of(openDirs, [&dir](const OpenDir& open) { return open.dir.get() == &dir; })) return;
  for (const auto& [name, entity] : dir.entityPtr()) {
    if (const auto below = Kel::dynamicPtr<const Kel::Dir>(entity)) {
      watchFixed(*below, openDirs);
    } else {
      watch(entity);
    }
  }
}

template <class Watch, class Owner>
void TreeWatch::watchMembers(const Kel::Ptr<Owner>& owner) {
  const auto reactor = Kel::makePtr<Watch>();
  reactor->watch = this;
  reactor->notifierIs(owner);
  memberWatches_.push_back(reactor);
  reactor->begin();
}

void TreeWatch::watch(const Kel::Ptr<const Kel::Entity>& entity) {
  if (!hasDocumentAttributes(entity->kelTypeInfo())) return;
  const auto entityPath = path(*entity);
  const auto reactor = Kel::makePtr<EntityWatch>([this, entityPath] { changed_(entityPath); });
  reactor->entityIs(entity);
  watched_[entityPath] = {entity, reactor};
  changed_(entityPath);
}

void TreeWatch::forget(const std::string& path) {
  watched_.erase(path);
  changed_(path);
}

Kel::Ptr<const Kel::Entity> TreeWatch::entity(const std::string& path) const {
  const auto at = watched_.find(path);
  return at == watched_.end() ? nullptr : at->second.entity;
}

std::string TreeWatch::path(const Kel::Entity& entity) const {
  return pathBelow(*root_, entity).value_or("");
}

}  // namespace Varnix

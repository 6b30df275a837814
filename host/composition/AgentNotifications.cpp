#include "host/composition/AgentNotifications.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "host/composition/AgentLog.h"
#include "kel/System.h"

namespace Host {

namespace {

using Name = std::vector<oid>;

// The numbers of the notifications, below enterprises.E.4.0, and of the objects that they carry, below .4.1.
enum Notification : oid { publisherLost = 1, publisherBack = 2, damageMet = 3, vrfCame = 4, vrfWent = 5 };
constexpr oid publisherStateObject = 1;
constexpr oid publisherNameObject = 2;
constexpr oid damageObject = 10;
constexpr oid changedVrfObject = 20;

constexpr Kel::Seconds startPause = 5;
constexpr Kel::Seconds publisherPause = 10;
constexpr Kel::Seconds damagePause = 60;
constexpr Kel::Seconds vrfPause = 1;
constexpr unsigned mostVrfs = 10;  // notifications of VRFs after one pause

Name agentObject(std::initializer_list<oid> below) {
  Name name{1, 3, 6, 1, 4, 1, QUORIN_ENTERPRISE, 4};
  name.insert(name.end(), below);
  return name;
}

// The variables of one notification.
class Variables {
 public:
  explicit Variables(Notification notification) {
    const Name trapOid{1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};  // snmpTrapOID.0
    const auto value = agentObject({0, notification});
    add(trapOid, ASN_OBJECT_ID, value.data(), value.size() * sizeof(oid));
  }
  ~Variables() { snmp_free_varbind(list_); }
  Variables(const Variables&) = delete;
  Variables& operator=(const Variables&) = delete;

  Variables& number(oid object, u_char type, unsigned value) {
    add(agentObject({1, object, 0}), type, &value, sizeof(value));
    return *this;
  }
  Variables& text(oid object, const Kel::String& value) {
    add(agentObject({1, object, 0}), ASN_OCTET_STR, value.data(), value.size());
    return *this;
  }
  void send() { send_v2trap(list_); }

 private:
  void add(const Name& name, u_char type, const void* value, std::size_t size) {
    snmp_varlist_add_variable(&list_, name.data(), name.size(), type, value, size);
  }

  netsnmp_variable_list* list_ = nullptr;
};

}  // namespace

AgentNotifications::AgentNotifications(Kel::Ptr<const AgentSnmp::AgentMib> mib, std::string storeDirectory)
    : mib_(std::move(mib)),
      storeDirectory_(std::move(storeDirectory)),
      begins_(Kel::System::currentTime() + startPause) {
}

void AgentNotifications::announce() {
  const auto now = Kel::System::currentTime();
  if (!areVrfsKnown_ && mib_->isServing()) {
    for (const auto& [vrf, entry] : mib_->vrfTable()) vrfs_.insert(vrf);
    areVrfsKnown_ = true;
  }
  if (now < begins_) return;
  announcePublisher(now);
  announceDamage(now);
  announceVrfs(now);
}

void AgentNotifications::announcePublisher(Kel::Seconds now) {
  const auto state = mib_->publisherState();
  const bool isLost = state == AgentSnmp::publisherGone || state == AgentSnmp::publisherSilent;
  const bool isBack = state == AgentSnmp::publisherAlive;
  const auto before = std::exchange(pid_, isBack ? mib_->publisherPid() : pid_);
  if (isBack && !isLost_ && before != 0 && before != pid_) {
    logInfo("{} (pid {}) publishes the store {} in place of pid {}", mib_->publisherName(), pid_, storeDirectory_,
            before);
  }
  if ((isLost_ ? !isBack : !isLost) || now < nextPublisher_) return;
  nextPublisher_ = now + publisherPause;
  isLost_ = isLost;
  logPublisher(isLost);
  Variables(isLost ? publisherLost : publisherBack)
      .number(publisherStateObject, ASN_INTEGER, static_cast<unsigned>(state))
      .text(publisherNameObject, mib_->publisherName())
      .send();
}

void AgentNotifications::logPublisher(bool isLost) const {
  const auto name = mib_->publisherName().empty() ? "the publisher" : mib_->publisherName();
  const char* const answers = mib_->isStale() ? "too old to be answered (quorinStaleAfter)" : "served as it was";
  if (!isLost) {
    logInfo("{} (pid {}) publishes the store {} again", name, mib_->publisherPid(), storeDirectory_);
  } else if (mib_->publisherState() == AgentSnmp::publisherSilent) {
    logError(
        "{} (pid {}) does not report to the store {}: it hangs, is stopped or cannot write; what it wrote is {}. "
        "Its log says if it cannot write; else restart it",
        name, mib_->publisherPid(), storeDirectory_, answers);
  } else {
    logError(
        "{}, which published the store {}, has ended or its store was removed; what it wrote is {}. Restart it",
        name, storeDirectory_, answers);
  }
}

void AgentNotifications::announceDamage(Kel::Seconds now) {
  if (mib_->damageCount() == damage_ || now < nextDamage_) return;
  damage_ = mib_->damageCount();
  nextDamage_ = now + damagePause;
  Variables(damageMet).number(damageObject, ASN_COUNTER, static_cast<unsigned>(damage_)).send();
}

void AgentNotifications::announceVrfs(Kel::Seconds now) {
  if (!mib_->isServing() || now < nextVrfs_) return;
  nextVrfs_ = now + vrfPause;
  unsigned room = mostVrfs;
  const auto note = [&](Notification what, const Snmp::String& vrf) {
    if (room == 0) return false;
    --room;
    Variables(what).text(changedVrfObject, vrf.raw()).send();
    return true;
  };
  for (auto at = vrfs_.begin(); at != vrfs_.end();) {
    const auto vrf = at++;
    if (!mib_->vrfTable(*vrf) && note(vrfWent, *vrf)) vrfs_.erase(vrf);
  }
  if (vrfs_.size() != mib_->vrfTable().size()) {
    for (const auto& [vrf, entry] : mib_->vrfTable()) {
      if (!vrfs_.contains(vrf) && note(vrfCame, vrf)) vrfs_.insert(vrf);
    }
  }
}

}  // namespace Host

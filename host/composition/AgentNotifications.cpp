#include "host/composition/AgentNotifications.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace Host {

namespace {

using Name = std::vector<oid>;

// The numbers of the notifications, below enterprises.E.4.0, and of the objects that they carry, below .4.1.
enum Notification : oid { publisherLost = 1, publisherBack = 2, damageMet = 3, vrfCame = 4, vrfWent = 5 };
constexpr oid publisherStateObject = 1;
constexpr oid publisherNameObject = 2;
constexpr oid damageObject = 10;
constexpr oid changedVrfObject = 20;

constexpr Kel::Seconds damagePause = 60;

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

AgentNotifications::AgentNotifications(const Kel::Ptr<AgentSnmp::AgentMib>& mib) : before_(mib->publisherState()) {
  notifierIs(mib);
}

void AgentNotifications::handlePublisherState() {
  const auto now = notifier()->publisherState();
  const auto before = std::exchange(before_, now);
  const bool isAlive = now == AgentSnmp::publisherAlive;
  if (isAlive && before == AgentSnmp::publisherNone) return;  // it is the first one
  Variables(isAlive ? publisherBack : publisherLost)
      .number(publisherStateObject, ASN_INTEGER, now)
      .text(publisherNameObject, notifier()->publisherName())
      .send();
}

void AgentNotifications::handleDamageCount() {
  const auto now = Kel::System::currentTime();
  if (notifier()->damageCount() == 0 || now < nextDamage_) return;
  nextDamage_ = now + damagePause;
  Variables(damageMet).number(damageObject, ASN_COUNTER, static_cast<unsigned>(notifier()->damageCount())).send();
}

void AgentNotifications::handleVrfTable(const Snmp::String& vrf) {
  if (!notifier()->isServing()) return;
  Variables(notifier()->vrfTable(vrf) ? vrfCame : vrfWent).text(changedVrfObject, vrf.raw()).send();
}

}  // namespace Host

#include "ipsnmp/agent/neighbour/ArpTableSm.h"

#include <algorithm>

#include "kel/Trace.h"
#include "quillo/StoreException.h"

KEL_TYPE_DEFINE(IpSnmp::ArpTableSm)

namespace IpSnmp {
namespace {

Kel::TraceHandle arpTableSmTrace("ArpTableSm");

// Reads a table whose unreadability leaves the rows as they are: the table notifies when it can be read again.
template <class Read>
void readIfReadable(Read read) {
  try {
    read();
  } catch (const Quillo::StoreException&) {
  }
}

IpNetToPhysicalTableIndex indexOf(std::uint32_t ifIndex, const Vantu::IpGenAddr& addr) {
  return IpNetToPhysicalTableIndex(ifIndex, InetAddress::fromIpGenAddr(addr));
}

}  // namespace

struct ArpTableSm::Intf : Kel::PtrInterface {
  explicit Intf(std::function<void()> changed) : watch(Kel::makePtr<IfIndexWatch>(std::move(changed))) {}
  const Kel::Ptr<IfIndexWatch> watch;
  std::uint32_t ifIndex = 0;  // of the rows; 0: there are none
  absl::btree_set<Vantu::IpGenAddr> addrs;
};

ArpTableSm::ArpTableSm(Kel::Ptr<const Interface::AllIntfStatusDir> intfStatusDir, Kel::Ptr<IpMib> ipMib,
                       Kel::Ptr<const Arp::Table::Status> arpQuillo, Vrf::VrfIdMap::VrfId arpQuilloVrfId)
    : intfStatusDir_(std::move(intfStatusDir)),
      ipMib_(std::move(ipMib)),
      arpQuillo_(std::move(arpQuillo)),
      firstArpQuilloVrfId_(arpQuilloVrfId),
      arpQuilloVrfId_(arpQuilloVrfId) {
}

ArpTableSm::~ArpTableSm() {
  ArpTableSm::kelStop();
}

void ArpTableSm::kelStart() {
  isStarted_ = true;
  initializedIs(arpQuillo()->initialized());
  cleanup();  // removes the rows of an earlier machine
  if (initialized()) return populate();
  readIfReadable([this] { populate(); });
}

void ArpTableSm::kelStop() {
  isStarted_ = false;
  intfs_.clear();
  intfsByIfIndex_.clear();
}

bool ArpTableSm::isServed(const Vrf::VrfIdMap::VrfId& vrfId) const {
  return isStarted_ && vrfId.isKnown() && vrfId == arpQuilloVrfId();
}

std::uint32_t ArpTableSm::currentIfIndex(const Vantu::IntfId& intfId) const {
  return assignedIfIndex(intfStatusDir()->intfStatus(intfId));
}

void ArpTableSm::handleIntfStatus(const Vantu::IntfId& givenId) {
  const Vantu::IntfId intfId = givenId;  // the caller's may live in the record
  const auto at = intfs_.find(intfId);
  if (at == intfs_.end()) return;
  const auto& intf = at->second;
  intf->watch->notifierIs(intfStatusDir()->intfStatus(intfId));
  const auto now = currentIfIndex(intfId);
  if (now == intf->ifIndex) return;
  const auto before = std::exchange(intf->ifIndex, now);
  intfsByIfIndex_.erase({before, intfId});
  if (now != 0) intfsByIfIndex_.emplace(now, intfId);
  QTRACE(arpTableSmTrace, 6) << intfId << " has ifIndex " << now << " after " << before
                             << ": moving its neighbours";
  for (const auto& addr : intf->addrs) {
    if (before != 0) settle(before, addr);
    if (now != 0) settle(now, addr);
  }
}

const Vantu::IntfId* ArpTableSm::ownerOf(std::uint32_t ifIndex, const Vantu::IpGenAddr& addr) const {
  for (auto at = intfsByIfIndex_.lower_bound({ifIndex, Vantu::IntfId()});
       at != intfsByIfIndex_.end() && at->first == ifIndex; ++at) {
    if (intfs_.at(at->second)->addrs.contains(addr)) return &at->second;
  }
  return nullptr;
}

void ArpTableSm::settle(std::uint32_t ifIndex, const Vantu::IpGenAddr& addr) {
  if (!isStarted_) return;
  const auto index = indexOf(ifIndex, addr);
  const auto* owner = ownerOf(ifIndex, addr);
  if (const auto row = ipMib()->ipNetToPhysicalTable(index)) {
    const bool isRight = owner != nullptr && row->intfId() == *owner && row->arpQuilloVrfId() == arpQuilloVrfId() &&
                         row->arpQuillo() == arpQuillo();
    if (isRight) return;
    ipMib()->ipNetToPhysicalTableDel(index);
  }
  if (owner == nullptr) return;
  ipMib()->ipNetToPhysicalTableIs(index, Vantu::IntfId(*owner), addr, arpQuillo(), arpQuilloVrfId());
}

void ArpTableSm::addArpEntry(const Arp::Table::ArpEntry& entry) {
  QTRACE_ENTRY(arpTableSmTrace, this);
  QTRACE(arpTableSmTrace, 6) << "add: " << entry.key;
  const auto ifIndex = currentIfIndex(entry.intfId());
  if (ifIndex == 0) {
    QTRACE(arpTableSmTrace, 6) << "no ifIndex (yet?)";
  } else if (!arpQuilloVrfId().isKnown()) {
    QTRACE(arpTableSmTrace, 6) << "no arp quillo vrf id (yet?)";
  } else {
    KEL_ASSERT_TEXT(entry.vrfId() == arpQuilloVrfId(), "entry.vrfId() == arpQuilloVrfId()");
  }
  if (!isServed(entry.vrfId()) || !entry.addr().isSet()) return;
  if (ifIndex != 0) {
    QTRACE(arpTableSmTrace, 6) << "ipnettophysical index: " << indexOf(ifIndex, entry.addr());
  }
  auto& intf = intfs_[entry.intfId()];
  if (!intf) intf = Kel::makePtr<Intf>([this, intfId = entry.intfId()] { handleIntfStatus(intfId); });
  intf->addrs.insert(entry.addr());
  handleIntfStatus(entry.intfId());
  if (ifIndex != 0) settle(ifIndex, entry.addr());
}

void ArpTableSm::forget(const Arp::Table::ArpKey& key) {
  const auto at = intfs_.find(key.intfId);
  if (at == intfs_.end() || at->second->addrs.erase(key.addr) == 0) return;
  const auto ifIndex = at->second->ifIndex;
  if (at->second->addrs.empty()) {
    intfsByIfIndex_.erase({ifIndex, key.intfId});
    intfs_.erase(at);
  }
  if (ifIndex != 0) settle(ifIndex, key.addr);
}

void ArpTableSm::delArpEntry(const Arp::Table::ArpKey& givenKey) {
  QTRACE_ENTRY(arpTableSmTrace, this);
  const Arp::Table::ArpKey key = givenKey;
  QTRACE(arpTableSmTrace, 6) << "delete: " << key;
  const auto vrfId = arpQuilloVrfId();
  const auto ifIndex = currentIfIndex(key.intfId);
  if (isServed(key.vrfId)) forget(key);
  if (ifIndex == 0) {
    QTRACE(arpTableSmTrace, 6) << "no ifIndex (yet?)";
  } else if (!vrfId.isKnown()) {
    QTRACE(arpTableSmTrace, 6) << "no arp quillo vrf id (yet?)";
  }
}

// Copies the entries: the table must not be read or changed inside a walk.
ArpTableSm::Walked ArpTableSm::walk() const {
  Walked walked;
  const auto visit = [&](const Arp::Table::ArpEntry& entry) {
    if (entry.vrfId() == arpQuilloVrfId()) walked.entries.push_back(entry);
  };
  const auto guarded = [&](const auto& walkOne) {
    try {
      walkOne();
    } catch (const Pesk::CorruptionDetectedException& error) {
      walked.isComplete = false;
      arpQuillo()->corruptionDetected(error);
    }
  };
  guarded([&] { arpQuillo()->forEachArpEntry(arpQuilloVrfId(), visit); });
  guarded([&] { arpQuillo()->forEachNeighborEntry(arpQuilloVrfId(), visit); });
  return walked;
}

void ArpTableSm::add(const Walked& walked) {
  for (const auto& entry : walked.entries) addArpEntry(entry);
}

void ArpTableSm::removeGone(const Walked& walked) {
  using Known = std::pair<Vantu::IntfId, Vantu::IpGenAddr>;
  std::vector<Known> present;
  present.reserve(walked.entries.size());
  for (const auto& entry : walked.entries) present.emplace_back(entry.intfId(), entry.addr());
  std::sort(present.begin(), present.end());
  std::vector<Known> gone;
  for (const auto& [intfId, intf] : intfs_) {
    for (const auto& addr : intf->addrs) {
      Known known(intfId, addr);
      if (!std::binary_search(present.begin(), present.end(), known)) gone.push_back(std::move(known));
    }
  }
  const auto vrfId = arpQuilloVrfId();
  for (const auto& [intfId, addr] : gone) {
    const Arp::Table::ArpKey key{vrfId, addr, intfId};
    if (walked.isComplete || isGone(key)) delArpEntry(key);
  }
}

// Whether the entry is known to be gone; an entry that the walk did not meet may exist behind the damage.
bool ArpTableSm::isGone(const Arp::Table::ArpKey& key) const {
  try {
    const bool isIpv4 = key.addr.af() == Vantu::ipv4_;
    return !(isIpv4 ? arpQuillo()->arpEntry(key) : arpQuillo()->neighborEntry(key)).exists();
  } catch (const Pesk::CorruptionDetectedException&) {
    return false;  // the walk has reported it
  } catch (const Quillo::StoreException&) {
    return false;
  }
}

void ArpTableSm::populate() {
  QTRACE_ENTRY(arpTableSmTrace, this);
  QTRACE(arpTableSmTrace, 6) << "populate: " << fullName();
  QTRACE(arpTableSmTrace, 6) << " arpQuilloVrfId: " << arpQuilloVrfId();
  if (!isServed(arpQuilloVrfId())) return;
  add(walk());
}

void ArpTableSm::cleanup() {
  QTRACE_ENTRY(arpTableSmTrace, this);
  intfs_.clear();
  intfsByIfIndex_.clear();
  ipMib()->ipNetToPhysicalTableDelAll();
}

void ArpTableSm::arpQuilloVrfIdIs(Vrf::VrfIdMap::VrfId vrfId) {
  QTRACE_ENTRY(arpTableSmTrace, this);
  QTRACE(arpTableSmTrace, 6) << "vrf id: " << fullName();
  QTRACE(arpTableSmTrace, 6) << " cur: " << arpQuilloVrfId() << " new: " << vrfId;
  if (vrfId == arpQuilloVrfId()) return;
  cleanup();
  arpQuilloVrfId_ = vrfId;
  KEL_NOTIFY(ArpQuilloVrfId);
  readIfReadable([this] { populate(); });
}

void ArpTableSm::handleInitialized() {
  QTRACE_ENTRY(arpTableSmTrace, this);
  initializedIs(true);
  handleTable();
}

void ArpTableSm::handleTable() {
  QTRACE_ENTRY(arpTableSmTrace, this);
  QTRACE(arpTableSmTrace, 6) << "compare: " << fullName() << " arpQuilloVrfId: " << arpQuilloVrfId();
  if (!isServed(arpQuilloVrfId())) return;
  readIfReadable([this] {
    const auto walked = walk();
    removeGone(walked);
    add(walked);
  });
}

}  // namespace IpSnmp

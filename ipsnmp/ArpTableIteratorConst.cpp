#include "ipsnmp/ArpTableIteratorConst.h"

#include <limits>

#include "kel/Errors.h"
#include "kel/Trace.h"

namespace IpSnmp {

namespace {

Kel::TraceHandle arpTableIteratorConstTrace("ArpTableIteratorConst");

}  // namespace

IpMib::ArpTableIteratorConst::ArpTableIteratorConst(Kel::Ptr<const IpMib> ipMib) : ipMib_(std::move(ipMib)) {
  if (ipMib_) setCurEntry(table().begin());
}

IpMib::ArpTableIteratorConst::ArpTableIteratorConst(Kel::Ptr<const IpMib> ipMib, const ArpTableIndex& index)
    : ipMib_(std::move(ipMib)) {
  fetch(index, false);
}

void IpMib::ArpTableIteratorConst::fetch(const ArpTableIndex& index, bool getNext) {
  QTRACE(arpTableIteratorConstTrace, 7) << "Index: " << index << " getNext " << getNext;
  if (!ipMib_) return;
  const IpNetToPhysicalTableIndex row(index.ifIndex(), InetAddress::fromIpAddr(index.ipAddr()));
  auto it = getNext ? table().upperBound(row) : table().lowerBound(row);
  if (!getNext && it != table().end() && it->first != row) it = table().end();
  setCurEntry(it);
}

// Returns the first IPv4 row at or after `it`. One search skips the IPv6 rows of an interface, which follow its IPv4
// rows; with the trace enabled they are skipped and traced one by one.
IpMib::ArpTableIteratorConst::Place IpMib::ArpTableIteratorConst::ipv4From(Place it) const {
  while (it != table().end() && it->first.addr().version() != Ip::ipVersion4) {
    const auto& index = it->first;
    if (arpTableIteratorConstTrace.enabled(7)) {
      QTRACE(arpTableIteratorConstTrace, 7) << "Skipping ipv6 entry w/ index: " << index;
      ++it;
    } else if (index.addr().version() < Ip::ipVersion4) {
      it = table().lowerBound({index.ifIndex(), Ip::ipVersion4, Snmp::String()});
    } else if (index.ifIndex() < std::numeric_limits<std::uint32_t>::max()) {
      it = table().lowerBound({index.ifIndex() + 1, Ip::ipVersionUnknown, Snmp::String()});
    } else {
      it = table().end();
    }
  }
  return it;
}

void IpMib::ArpTableIteratorConst::setCurEntry(Place from) {
  const auto place = ipv4From(from);
  if (place == table().end()) {
    curEntry_ = nullptr;
    return;
  }
  const auto& it = place->second;
  KEL_ASSERT_TEXT(it->ipGenAddr().af() == Vantu::ipv4_, "it->ipGenAddr().af() == Vantu::ipv4_");
  curEntry_ = Kel::makePtr<ArpTableEntry>(ArpTableIndex(it->ifIndex(), it->ipGenAddr().v4()), it->intfId(),
                                          it->arpQuillo(), it->arpQuilloVrfId());
  QTRACE(arpTableIteratorConstTrace, 7) << "Set new curEntry: " << curEntry_->index();
}

}  // namespace IpSnmp

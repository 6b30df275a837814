// Random changes to the records and the shared neighbour table, against a model of all VRFs' caches.

#include "ipsnmp/agent/route/IfMibSm.h"
#include "ipsnmp/agent/testing/TestVrfWorld.h"
#include "ipsnmp/agent/testing/VrfModel.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

const std::array<std::string, 4> intfs{"eth0", "eth1", "lo", "red/eth0"};
const std::array<std::string, 4> vrfs{"default", "red", "blue", "a b/c.d"};

ModelAddr modelOf(const Vantu::IpAddrWithMask& at) {
  return {InetAddress::fromIpAddr(at.address()), at.length(), at.stringValue()};
}
ModelAddr modelOf(const Vantu::Ip6AddrWithMask& at) {
  return {InetAddress::fromIp6Addr(at.address()), at.length(), at.stringValue()};
}

template <class Record>
constexpr bool isIp4 = requires(Record& record) {
  record.secondaryAddrWithMask();
};

// Does everything twice: to the records that the machines see, and to the model.
class RandomRun {
 public:
  explicit RandomRun(unsigned seed) : random_(seed) {
    for (const auto& vrf : vrfs) model_.vrfs[vrf];
    world_.start();
  }

  // False after the first step whose outcome is wrong.
  bool run(int steps) {
    for (int i = 0; i < steps; ++i) {
      SCOPED_TRACE(i);
      const auto before = neighbourRows();
      world_.now += 1;
      i == 60 ? ready() : step();
      world_.runTasks();
      model_.settle();
      // A row that exists before and after a step must be the same object: no row flaps.
      const auto after = neighbourRows();
      for (const auto& [key, row] : before) EXPECT_TRUE(!after.contains(key) || after.at(key) == row);
      if (!isRight()) return false;
      neighbourCount += after.size();
    }
    ifMibSm_ = nullptr;
    return world_.ifMib->ifIndexByIntfId().empty();
  }
  // Of all steps; too few rows would try nothing.
  std::size_t neighbourCount = 0, addressRows = 0;

 private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  bool chance(unsigned outOf) { return below(outOf) == 0; }
  const auto& oneOf(const auto& all) { return all[below(static_cast<unsigned>(all.size()))]; }

  void step() {
    const auto kind = static_cast<RecordKind>(below(recordKinds));
    const auto& intf = oneOf(intfs);
    const auto& vrf = oneOf(vrfs);
    const std::function<void()> steps[] = {
        [&] { primaryIs(kind, intf); },
        [&] { primaryIs(kind, intf); },
        [&] { otherAddrIs(kind, intf); },
        [&] { otherAddrIs(kind, intf); },
        [&] { otherAddrDel(kind, intf); },
        [&] { borrowedIs(intf); },
        [&] { intfStatus(intf); },
        [&] { l3VrfIs(kind, intf); },
        [&] { l3ReferenceIs(kind, intf); },
        [&] { l3ReferenceIs(kind, intf); },
        [&] { chance(2) ? l3Del(kind, intf) : recordDel(kind, intf); },
        [&] { neighbourChange(); },
        [&] { neighbourChange(); },
        [&] { chance(6) ? wholeTable() : neighbourChange(); },
        [&] { id(vrf); },
        [&] { local(vrf); },
        [&] { routing(vrf); },
        [&] { info(vrf); },
        [&] { otherRecords(vrf); },
    };
    steps[below(std::size(steps))]();
  }

  void ready() {
    model_.agentIsReady();
    world_.agentIsReady();
  }

  // ---- address records; each call makes the record when it does not exist

  ModelRecord& modelRecord(RecordKind kind, const std::string& intf) {
    return model_.addresses.records[{kind, intf}];
  }
  void withRecord(RecordKind kind, const std::string& intf, auto call) {
    const auto id = intfOf(intf);
    if (kind == config4) call(*world_.tree.ipConfig->ipIntfConfigIs(id));
    if (kind == status4) call(*world_.tree.ipStatus->ipIntfStatusIs(id));
    if (kind == config6) call(*world_.tree.ip6Config->intfIs(id));
    if (kind == status6) call(*world_.tree.ip6Status->intfIs(id));
  }
  Vantu::IpAddrWithMask addr4() {
    static const std::array<const char*, 5> addrs{"10.1.1.1", "10.1.1.2", "10.1.2.1", "10.200.0.1", "0.0.0.0"};
    static const std::array<unsigned, 5> lengths{24, 24, 16, 32, 0};
    return {Vantu::IpAddr::fromString(oneOf(addrs)), oneOf(lengths)};
  }
  Vantu::Ip6AddrWithMask addr6() {
    static const std::array<const char*, 4> addrs{"fe80::1", "fe80::2", "2001:db8::1", "::"};
    static const std::array<unsigned, 4> lengths{64, 64, 10, 128};
    return {Vantu::Ip6Addr::fromString(oneOf(addrs)), oneOf(lengths)};
  }

  void primaryIs(RecordKind kind, const std::string& intf) {
    if (kind == config6 || kind == status6) return otherAddrIs(kind, intf);
    const auto addr = chance(4) ? Vantu::IpAddrWithMask() : addr4();
    if (kind == config4) world_.configIs(intf, addr.stringValue());
    if (kind == status4) world_.statusIs(intf, addr.stringValue());
    modelRecord(kind, intf).primary = modelOf(addr);
  }
  void otherAddrIs(RecordKind kind, const std::string& intf) {
    const auto has = [&](const auto& addr) {
      modelRecord(kind, intf).others.insert(modelOf(addr));
      return addr;
    };
    withRecord(kind, intf, [&]<class Record>(Record& record) {
      if constexpr (isIp4<Record>) {
        record.secondaryAddrWithMaskIs(has(addr4()), true);
      } else {
        record.addrIs(has(addr6()), Ip6::AddressInfo(static_cast<Ip6::AddressState>(below(4))));
      }
    });
  }
  void otherAddrDel(RecordKind kind, const std::string& intf) {
    auto& others = modelRecord(kind, intf).others;
    if (others.empty()) return otherAddrIs(kind, intf);
    const auto at = std::next(others.begin(), below(static_cast<unsigned>(others.size())));
    const auto gone = at->text;
    others.erase(at);
    withRecord(kind, intf, [&]<class Record>(Record& record) {
      if constexpr (isIp4<Record>) {
        record.secondaryAddrWithMaskDel(mask4(gone));
      } else {
        record.addrDel(mask6(gone));
      }
    });
  }
  void borrowedIs(const std::string& intf) {
    const bool borrowed = chance(2);
    world_.tree.ipStatus->ipIntfStatusIs(intfOf(intf))->unnumberedIntfIdIs(intfOf(borrowed ? "lo" : ""));
    modelRecord(status4, intf).borrowed = borrowed;
  }
  void recordDel(RecordKind kind, const std::string& intf) {
    const auto id = intfOf(intf);
    auto& tree = world_.tree;
    kind == config4   ? tree.ipConfig->ipIntfConfigDel(id)
    : kind == status4 ? tree.ipStatus->ipIntfStatusDel(id)
    : kind == config6 ? tree.ip6Config->intfDel(id)
                      : tree.ip6Status->intfDel(id);
    model_.addresses.records.erase({kind, intf});
  }

  void intfStatus(const std::string& intf) {
    const unsigned ifIndex = below(8);
    model_.addresses.ifIndex[intf] = ifIndex < 6 ? ifIndex : 0;
    if (ifIndex < 7) return void(world_.intfIs(intf, ifIndex < 6 ? ifIndex : 0x80000000));  // negative
    model_.addresses.ifIndex.erase(intf);
    world_.tree.intfStatusDir->intfStatusDel(intfOf(intf));
  }

  // ---- layer-3 records: one for the two configuration records of an interface, one for its two status records

  // The VRF in the layer-3 record; null when it does not exist. One that was deleted and made again is another one.
  std::shared_ptr<std::string>& l3Vrf(RecordKind kind, const std::string& intf) {
    return l3Vrf_[{isConfig(kind), intf}];
  }
  static bool isConfig(RecordKind kind) { return kind == config4 || kind == config6; }

  void l3VrfIs(RecordKind kind, const std::string& intf) {
    const auto& vrf = oneOf(vrfs);
    const auto id = intfOf(intf);
    if (isConfig(kind)) world_.tree.l3ConfigDir->intfConfigIs(id)->vrfIs(L3::VrfName(vrf));
    if (!isConfig(kind)) world_.tree.l3StatusDir->intfStatusIs(id)->vrfIs(L3::VrfName(vrf));
    auto& present = l3Vrf(kind, intf);
    if (!present) present = std::make_shared<std::string>();
    *present = vrf;
  }
  void l3ReferenceIs(RecordKind kind, const std::string& intf) {
    const bool refers = !chance(5);
    const auto id = intfOf(intf);
    const auto config = refers ? world_.tree.l3ConfigDir->intfConfig(id) : nullptr;
    const auto status = refers ? world_.tree.l3StatusDir->intfStatus(id) : nullptr;
    withRecord(kind, intf, [&](auto& record) {
      if constexpr (requires { record.l3Config(); }) {
        record.l3ConfigIs(config);
      } else {
        record.l3StatusIs(status);
      }
    });
    modelRecord(kind, intf).vrf = refers ? l3Vrf(kind, intf) : nullptr;
  }
  void l3Del(RecordKind kind, const std::string& intf) {
    if (isConfig(kind)) world_.tree.l3ConfigDir->intfConfigDel(intfOf(intf));
    if (!isConfig(kind)) world_.tree.l3StatusDir->intfStatusDel(intfOf(intf));
    l3Vrf(kind, intf) = nullptr;
  }

  Arp::Table::ArpEntry anyNeighbour() {
    static const std::array<const char*, 5> addrs{"10.0.0.1", "10.0.0.2", "10.0.1.1", "fe80::1", "2001:db8::1"};
    auto entry = neighbour(below(4), oneOf(addrs), oneOf(intfs));
    entry.status.isStatic = chance(2);
    return entry;
  }
  static auto modelKey(const Arp::Table::ArpEntry& entry) {
    return std::tuple(entry.vrfId().value(), InetAddress::fromIpGenAddr(entry.addr()), entry.intfId().text());
  }
  void neighbourChange() {
    const auto entry = anyNeighbour();
    if (chance(3)) {
      model_.entries.erase(modelKey(entry));
      world_.arp->entryDel(entry.key);
    } else {
      model_.entries.insert(modelKey(entry));
      world_.arp->entryIs(entry);
    }
  }
  void wholeTable() {
    std::vector<Arp::Table::ArpEntry> entries;
    model_.entries.clear();
    for (unsigned i = below(60); i > 0; --i) entries.push_back(anyNeighbour());
    for (const auto& entry : entries) model_.entries.insert(modelKey(entry));
    world_.arp->tableIs(entries);
  }

  void id(const std::string& vrf) {
    auto& present = model_.vrfs[vrf].id;
    const auto id = chance(5) ? std::nullopt : std::optional(below(4));
    const bool isOther = std::exchange(present, id) != id;
    if (id) {
      if (isOther) model_.examine(vrf);
      world_.idIs(vrf, *id);
    } else {
      model_.somethingWent(vrf);
      world_.tree.vrfNameStatus->vrfIdDel(L3::VrfName(vrf));
    }
  }
  // Adds or deletes one record of a VRF, in the model as well. Returns whether that is a change.
  bool change(bool& present, auto add, auto del) {
    const bool isThere = !chance(4);
    isThere ? void(add()) : void(del());
    return std::exchange(present, isThere) != isThere;
  }
  void local(const std::string& vrf) {
    auto& model = model_.vrfs[vrf];
    const bool isChanged = change(
        model.local, [&] { world_.localIs(vrf); }, [&] { world_.localDel(vrf); });
    if (!isChanged) return;
    if (!model.local) return model_.localWent(vrf);
    model_.examine(vrf);
    model_.rowCame(vrf);
  }
  void routing(const std::string& vrf) {
    auto& model = model_.vrfs[vrf];
    auto& dir = *world_.tree.routingVrfConfigDir;
    const bool isChanged = change(
        model.routing, [&] { dir.vrfConfigIs(vrf)->routingIs(model.routes = chance(2)); },
        [&] { dir.vrfConfigDel(vrf); });
    if (isChanged) model.routing ? model_.examine(vrf) : model_.somethingWent(vrf);
  }
  void info(const std::string& vrf) {
    auto& model = model_.vrfs[vrf];
    const bool isChanged = change(
        model.info, [&] { world_.infoIs(vrf); }, [&] { world_.tree.routingVrfInfoDir->entityDel(vrf); });
    if (isChanged) model.info ? model_.examine(vrf) : model_.somethingWent(vrf);
  }
  // Those that only the rows of the VRF table depend on.
  void otherRecords(const std::string& vrf) {
    auto& model = model_.vrfs[vrf];
    auto& tree = world_.tree;
    const L3::VrfName name(vrf);
    change(
        model.routing6, [&] { tree.routing6VrfConfigDir->vrfConfigIs(vrf)->routingIs(true); },
        [&] { tree.routing6VrfConfigDir->vrfConfigDel(vrf); });
    const bool isChanged = chance(2) ? change(
                                           model.config, [&] { tree.allVrfConfig->vrfConfigIs(name); },
                                           [&] { tree.allVrfConfig->vrfConfigDel(name); })
                                     : change(
                                           model.global, [&] { tree.allVrfStatusGlobal->vrfIs(name); },
                                           [&] { tree.allVrfStatusGlobal->vrfDel(name); });
    if (isChanged && model.local) model_.rowCame(vrf);
  }

  Ptr<IpMib> cacheOf(const std::string& vrf) const {
    if (vrf == "default") return world_.ipMib;
    const auto mibs = world_.vrfMibsDir->mibs(vrf);
    return mibs ? mibs->ipmib() : nullptr;
  }
  using RowKey = std::tuple<const IpMib*, IpNetToPhysicalTableIndex, std::string, unsigned>;
  std::map<RowKey, Ptr<IpNetToPhysicalTableEntry>> neighbourRows() const {
    std::map<RowKey, Ptr<IpNetToPhysicalTableEntry>> rows;
    for (const auto& vrf : vrfs) {
      const auto cache = cacheOf(vrf);
      if (!cache) continue;
      for (const auto& [index, row] : cache->ipNetToPhysicalTable()) {
        rows[{cache.get(), index, row->intfId().text(), row->arpQuilloVrfId().value()}] = row;
      }
    }
    return rows;
  }
  bool isRight() {
    for (const auto& vrf : vrfs) {
      const auto cache = cacheOf(vrf);
      EXPECT_EQ(cache ? neighbours(*cache) : "no cache", model_.neighboursOf(vrf)) << vrf;
      EXPECT_EQ(vrf != "default" && world_.isServed(vrf), model_.isMade(vrf)) << vrf;
      const auto found = cache ? tables(*cache) : TableLines();
      EXPECT_EQ(found, cache ? model_.addresses.tables(vrf) : TableLines()) << vrf;
      addressRows += found.size();
    }
    EXPECT_EQ(vrfIfs(*world_.ipVrfMib), model_.vrfIfs());
    EXPECT_EQ(vrfRows(), model_.vrfRows());
    std::map<std::string, std::uint32_t> ifIndexes = model_.addresses.ifIndex;
    std::erase_if(ifIndexes, [](const auto& at) { return at.second == 0; });
    for (const auto& [intfId, ifIndex] : world_.ifMib->ifIndexByIntfId()) {
      EXPECT_EQ(ifIndexes[intfId.text()], static_cast<unsigned>(ifIndex));
    }
    EXPECT_EQ(world_.ifMib->ifIndexByIntfId().size(), ifIndexes.size());
    return !testing::Test::HasFailure();
  }
  std::set<std::string> vrfRows() const {
    std::set<std::string> rows;
    for (const auto& [name, row] : world_.ipVrfMib->vrfTable()) {
      rows.insert(fmt::format("{} {:d}{:d}{}{};", name.raw(), row->vrfRoutingStatus()->ipv4(),
                              row->vrfRoutingStatus()->ipv6(), row->vrfConfig() ? " config" : "",
                              row->vrfStatusGlobal() ? " global" : ""));
    }
    return rows;
  }

  std::mt19937 random_;
  VrfWorld world_;
  VrfModel model_;
  Ptr<IfMibSm> ifMibSm_ = Kel::makePtr<IfMibSm>(world_.tree.intfStatusDir, world_.ifMib);
  std::map<std::pair<bool, std::string>, std::shared_ptr<std::string>> l3Vrf_;
};

TEST(VrfRootSmRandom, cachesAreWhatTheRecordsSay) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    RandomRun run(seed);
    SCOPED_TRACE(seed);
    ASSERT_TRUE(run.run(600));
    EXPECT_GT(run.neighbourCount, 1200U);
    EXPECT_GT(run.addressRows, 3000U);
  }
}

}  // namespace
}  // namespace IpSnmpTest

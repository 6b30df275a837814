// Random changes to the records and the shared neighbour table, against a model of all VRFs' caches.

#include <random>

#include "ipsnmp/agent/route/IfMibSm.h"
#include "ipsnmp/agent/testing/TestVrfWorld.h"
#include "ipsnmp/agent/testing/VrfModel.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

const std::array<std::string, 4> intfs{"eth0", "eth1", "lo", "red/eth0"};
const std::array<std::string, 4> vrfs{"default", "red", "blue", "a b/c.d"};

class RandomRun {
 public:
  explicit RandomRun(unsigned seed) : random_(seed) {
    for (const auto& intf : intfs) model_.intfs[intf];
    for (const auto& vrf : vrfs) model_.vrfs[vrf];
    world_.start();
  }

  // False after the first step whose outcome is wrong.
  bool run(int steps) {
    for (int i = 0; i < steps; ++i) {
      rememberRows();
      world_.now += 1;
      step(i);
      world_.runTasks();
      model_.addresses.settle();
      if (!isRight()) return false;
      rows_ += held_.size();
    }
    return true;
  }
  // How many rows there were on average; too few would try nothing.
  double rowsPerStep() const { return static_cast<double>(rows_) / static_cast<double>(log_.size()); }

 private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  bool chance(unsigned outOf) { return below(outOf) == 0; }
  const auto& oneOf(const auto& all) { return all[below(static_cast<unsigned>(all.size()))]; }

  void step(int i) {
    log_.emplace_back();
    if (i == 60) return ready();
    switch (below(11)) {
      case 0:
        return intfStatus(oneOf(intfs));
      case 1:
        return intfConfig(oneOf(intfs));
      case 2:
        return intfConfig6(oneOf(intfs));
      case 3:
      case 4:
        return neighbourChange();
      case 5:
        return chance(6) ? wholeTable() : neighbourChange();
      case 6:
        return id(oneOf(vrfs));
      case 7:
        return local(oneOf(vrfs));
      case 8:
        return routing(oneOf(vrfs));
      case 9:
        return info(oneOf(vrfs));
      default:
        return otherRecords(oneOf(vrfs));
    }
  }
  void note(std::string what) { log_.back() += what; }

  void ready() {
    note("ready");
    model_.isReady = true;
    model_.agentIsReady();
    world_.agentIsReady();
  }

  void intfStatus(const std::string& intf) {
    auto& model = model_.intfs[intf];
    if (chance(5)) {
      note(intf + " has no status");
      model.ifIndex.reset();
      model_.addresses.ifIndex.erase(intf);
      world_.tree.intfStatusDir->intfStatusDel(intfOf(intf));
    } else {
      const unsigned ifIndex = below(6);
      note(fmt::format("{} has ifIndex {}", intf, ifIndex));
      model.ifIndex = ifIndex;
      model_.addresses.ifIndex[intf] = ifIndex;
      world_.intfIs(intf, ifIndex);
    }
    model_.intfChanged(intf);
  }

  void intfConfig(const std::string& intf) {
    auto& model = model_.intfs[intf];
    auto& tree = world_.tree;
    if (chance(5)) {
      note(intf + " has no IPv4 configuration");
      model.vrf4.reset();
      model_.addresses.records.erase({config4, intf});
      tree.ipConfig->ipIntfConfigDel(intfOf(intf));
      return model_.intfChanged(intf);
    }
    const std::string vrf = oneOf(vrfs);
    const auto addr = mask4(chance(2) ? "10.1.1.1/24" : "10.1.1.2/24");
    note(fmt::format("{} {} is in {}", intf, addr.stringValue(), vrf));
    model.vrf4 = vrf;
    auto& record = model_.addresses.records[{config4, intf}];
    record.primary = {InetAddress::fromIpAddr(addr.address()), addr.length(), addr.stringValue()};
    record.vrf = std::make_shared<const std::string>(vrf);
    world_.intfVrfIs(intf, vrf);
    tree.ipConfig->ipIntfConfig(intfOf(intf))->addrWithMaskIs(addr);
    model_.intfChanged(intf);
  }

  void intfConfig6(const std::string& intf) {
    auto& model = model_.intfs[intf];
    if (chance(3)) {
      note(intf + " has no IPv6 configuration");
      model.vrf6.reset();
      world_.tree.ip6Config->intfDel(intfOf(intf));
    } else {
      model.vrf6 = oneOf(vrfs);
      note(intf + " is in IPv6 " + *model.vrf6);
      const auto l3 = l3ConfigDir6_->intfConfigIs(intfOf(intf));
      l3->vrfIs(L3::VrfName(*model.vrf6));
      world_.tree.ip6Config->intfIs(intfOf(intf))->l3ConfigIs(l3);
    }
    model_.intfChanged(intf);
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
    std::ostringstream key;
    key << entry.key;
    if (chance(3)) {
      note("neighbour " + key.str() + " goes");
      model_.entries.erase(modelKey(entry));
      world_.arp->entryDel(entry.key);
    } else {
      note("neighbour " + key.str());
      model_.entries.insert(modelKey(entry));
      world_.arp->entryIs(entry);
    }
  }
  void wholeTable() {
    note("the table is made anew");
    std::vector<Arp::Table::ArpEntry> entries;
    model_.entries.clear();
    for (unsigned i = below(60); i > 0; --i) entries.push_back(anyNeighbour());
    for (const auto& entry : entries) model_.entries.insert(modelKey(entry));
    world_.arp->tableIs(entries);
  }

  void id(const std::string& vrf) {
    auto& model = model_.vrfs[vrf];
    if (chance(5)) {
      note(vrf + " has no id");
      model.id.reset();
      model_.somethingWent(vrf);
      world_.tree.vrfNameStatus->vrfIdDel(L3::VrfName(vrf));
      return;
    }
    const unsigned id = below(4);
    note(fmt::format("{} has id {}", vrf, id));
    if (model.id != id) {
      model.id = id;
      model_.examine(vrf);
    }
    world_.idIs(vrf, id);
  }

  void local(const std::string& vrf) {
    auto& model = model_.vrfs[vrf];
    const bool isThere = !chance(4);
    note(fmt::format("{} is {}there", vrf, isThere ? "" : "not "));
    if (isThere && !model.local) {
      model.local = true;
      model_.examine(vrf);
      model_.rowCame(vrf);
    } else if (!isThere && model.local) {
      model.local = false;
      model_.localWent(vrf);
    }
    isThere ? world_.localIs(vrf) : world_.localDel(vrf);
  }

  void routing(const std::string& vrf) {
    auto& model = model_.vrfs[vrf];
    const bool isThere = !chance(4);
    const bool routes = chance(2);
    note(fmt::format("{} routing {} {}", vrf, isThere, routes));
    auto& tree = world_.tree;
    const bool was = model.routing.has_value();
    model.routing = isThere ? std::optional(routes) : std::nullopt;
    if (isThere) {
      if (!was) model_.examine(vrf);
      tree.routingVrfConfigDir->vrfConfigIs(vrf)->routingIs(routes);
    } else {
      if (was) model_.somethingWent(vrf);
      tree.routingVrfConfigDir->vrfConfigDel(vrf);
    }
  }

  void info(const std::string& vrf) {
    auto& model = model_.vrfs[vrf];
    const bool isThere = !chance(4);
    note(fmt::format("{} info {}", vrf, isThere));
    if (isThere && !model.info) {
      model.info = true;
      model_.examine(vrf);
    } else if (!isThere && model.info) {
      model.info = false;
      model_.somethingWent(vrf);
    }
    if (isThere) {
      world_.infoIs(vrf);
    } else {
      world_.tree.routingVrfInfoDir->entityDel(vrf);
    }
  }

  // Those that only the rows of the VRF table depend on.
  void otherRecords(const std::string& vrf) {
    auto& model = model_.vrfs[vrf];
    auto& tree = world_.tree;
    const L3::VrfName name(vrf);
    const unsigned what = below(3);
    const bool isThere = !chance(3);
    note(fmt::format("{} record {} {}", vrf, what, isThere));
    if (what == 0) {
      model.routing6 = isThere ? std::optional(true) : std::nullopt;
      if (isThere) tree.routing6VrfConfigDir->vrfConfigIs(vrf)->routingIs(true);
      if (!isThere) tree.routing6VrfConfigDir->vrfConfigDel(vrf);
      return;
    }
    bool& present = what == 1 ? model.config : model.global;
    if (present != isThere && model.local) model_.rowCame(vrf);
    present = isThere;
    if (what == 1) {
      isThere ? void(tree.allVrfConfig->vrfConfigIs(name)) : void(tree.allVrfConfig->vrfConfigDel(name));
    } else {
      isThere ? void(tree.allVrfStatusGlobal->vrfIs(name)) : void(tree.allVrfStatusGlobal->vrfDel(name));
    }
  }

  Ptr<IpMib> cacheOf(const std::string& vrf) const {
    if (vrf == "default") return world_.ipMib;
    const auto mibs = world_.vrfMibsDir->mibs(vrf);
    return mibs ? mibs->ipmib() : nullptr;
  }

  // A row that is there before and after a step must be the same object: no row flaps.
  using RowKey = std::tuple<const IpMib*, IpNetToPhysicalTableIndex, std::string, unsigned>;
  void rememberRows() {
    held_.clear();
    for (const auto& vrf : vrfs) {
      const auto cache = cacheOf(vrf);
      if (!cache) continue;
      for (const auto& [index, row] : cache->ipNetToPhysicalTable()) {
        held_[{cache.get(), index, row->intfId().text(), row->arpQuilloVrfId().value()}] = row;
      }
    }
  }
  bool noRowFlapped() {
    const auto before = held_;
    rememberRows();
    return std::all_of(before.begin(), before.end(), [&](const auto& at) {
      const auto now = held_.find(at.first);
      return now == held_.end() || now->second == at.second;
    });
  }

  bool isRight() {
    for (const auto& vrf : vrfs) {
      const auto cache = cacheOf(vrf);
      EXPECT_EQ(cache ? neighbours(*cache) : "no cache", model_.neighboursOf(vrf)) << vrf;
      EXPECT_EQ(vrf != "default" && world_.isServed(vrf), model_.isMade(vrf)) << vrf;
      EXPECT_EQ(cache ? tables(*cache) : "", cache ? model_.addresses.tables(vrf) : "") << vrf;
    }
    EXPECT_EQ(vrfIfs(*world_.ipVrfMib), model_.vrfIfs());
    EXPECT_EQ(vrfRows(), model_.vrfRows());
    EXPECT_TRUE(noRowFlapped());
    std::map<std::string, unsigned> ifIndexes;
    for (const auto& [name, intf] : model_.intfs) {
      if (intf.ifIndex.value_or(0) != 0) ifIndexes[name] = *intf.ifIndex;
    }
    for (const auto& [intfId, ifIndex] : world_.ifMib->ifIndexByIntfId()) {
      EXPECT_EQ(ifIndexes[intfId.text()], static_cast<unsigned>(ifIndex));
    }
    EXPECT_EQ(world_.ifMib->ifIndexByIntfId().size(), ifIndexes.size());
    if (!testing::Test::HasFailure()) return true;
    std::string steps;
    for (std::size_t i = log_.size() < 40 ? 0 : log_.size() - 40; i < log_.size(); ++i) steps += log_[i] + "\n";
    ADD_FAILURE() << "after " << log_.size() << " steps, the last ones being\n" << steps;
    return false;
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
  Ptr<L3::Intf::ConfigDir> l3ConfigDir6_ = Kel::makePtr<L3::Intf::ConfigDir>("config6");
  Ptr<IfMibSm> ifMibSm_ = Kel::makePtr<IfMibSm>(world_.tree.intfStatusDir, world_.ifMib);
  std::map<RowKey, Ptr<IpNetToPhysicalTableEntry>> held_;
  std::vector<std::string> log_;
  std::size_t rows_ = 0;
};

TEST(VrfRootSmRandom, cachesAreWhatTheRecordsSay) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    RandomRun run(seed);
    ASSERT_TRUE(run.run(400)) << "seed " << seed;
    EXPECT_GT(run.rowsPerStep(), 3) << "seed " << seed;
  }
}

}  // namespace
}  // namespace IpSnmpTest

// Random changes to the records and caches, against a model that works the tables out from scratch.

#include <random>

#include "ipsnmp/agent/testing/AddressModel.h"

namespace IpSnmpTest {
namespace {

using namespace IpSnmp;

const std::array<std::string, 4> intfs{"eth0", "eth1", "lo", "red/eth0"};
const std::array<std::string, 3> vrfs{"default", "red", "blue"};
const std::array<std::string, 2> namedVrfs{"red", "blue"};

ModelAddr modelOf(const Vantu::IpAddrWithMask& at) {
  return {InetAddress::fromIpAddr(at.address()), at.length(), at.stringValue()};
}
ModelAddr modelOf(const Vantu::Ip6AddrWithMask& at) {
  return {InetAddress::fromIp6Addr(at.address()), at.length(), at.stringValue()};
}

// Does everything twice: to the records and caches that the machine sees, and to the model.
class RandomRun {
 public:
  explicit RandomRun(unsigned seed) : random_(seed) {
    world_.intfIs("eth0", 1);
    model_.ifIndex["eth0"] = 1;
    caches_["default"] = world_.ipMib;
    model_.caches["default"] = ++cacheCount_;
  }

  // False after the first step whose outcome is wrong.
  bool run(int steps) {
    for (int i = 0; i < steps; ++i) {
      step();
      model_.settle();
      if (!isRight()) return false;
    }
    return true;
  }

  // How many rows the tables held on average; too few would try nothing.
  double rowsPerStep() const { return static_cast<double>(rows_) / static_cast<double>(log_.size()); }

 private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  bool chance(unsigned outOf) { return below(outOf) == 0; }
  const auto& oneOf(const auto& all) { return all[below(static_cast<unsigned>(all.size()))]; }
  void note(std::string what) { log_.push_back(std::move(what)); }

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

  void step() {
    const auto kind = static_cast<RecordKind>(below(recordKinds));
    const auto& intf = oneOf(intfs);
    switch (below(16)) {
      case 0:
      case 1:
      case 2:
        return primaryIs(kind, intf);
      case 3:
      case 4:
      case 5:
      case 6:
        return otherAddrIs(kind, intf);
      case 7:
      case 8:
        return otherAddrDel(kind, intf);
      case 9:
        return borrowedIs(intf);
      case 10:
        return intfStatusChange(intf);
      case 11:
        return l3VrfIs(kind, intf);
      case 12:
        return l3ReferenceIs(kind, intf);
      case 13:
        return chance(2) ? l3Del(kind, intf) : recordDel(kind, intf);
      case 14:
        return cacheChange();
      default:
        if (chance(5)) machineIsMadeAnew();
    }
  }

  ModelRecord& modelRecord(RecordKind kind, const std::string& intf) { return model_.records[{kind, intf}]; }

  // ---- the records of one kind; each call makes the record when it is not there

  void withRecord(RecordKind kind, const std::string& intf, auto call) {
    const auto id = intfOf(intf);
    if (kind == config4) call(*world_.tree.ipConfig->ipIntfConfigIs(id));
    if (kind == status4) call(*world_.tree.ipStatus->ipIntfStatusIs(id));
    if (kind == config6) call(*world_.tree.ip6Config->intfIs(id));
    if (kind == status6) call(*world_.tree.ip6Status->intfIs(id));
  }

  void primaryIs(RecordKind kind, const std::string& intf) {
    if (kind == config6 || kind == status6) return otherAddrIs(kind, intf);
    const auto addr = chance(4) ? Vantu::IpAddrWithMask() : addr4();
    note(fmt::format("primary of {} {} is {}", static_cast<int>(kind), intf, addr.stringValue()));
    if (kind == config4) world_.configIs(intf, addr.stringValue());
    if (kind == status4) world_.statusIs(intf, addr.stringValue());
    modelRecord(kind, intf).primary = modelOf(addr);
  }

  template <class Record>
  static constexpr bool isIp4 = requires(Record& record) {
    record.secondaryAddrWithMask();
  };

  void otherAddrIs(RecordKind kind, const std::string& intf) {
    withRecord(kind, intf, [&]<class Record>(Record& record) {
      if constexpr (isIp4<Record>) {
        const auto addr = addr4();
        note(fmt::format("{} {} has {}", static_cast<int>(kind), intf, addr.stringValue()));
        record.secondaryAddrWithMaskIs(addr, true);
        modelRecord(kind, intf).others.insert(modelOf(addr));
      } else {
        const auto addr = addr6();
        note(fmt::format("{} {} has {}", static_cast<int>(kind), intf, addr.stringValue()));
        record.addrIs(addr, Ip6::AddressInfo(static_cast<Ip6::AddressState>(below(4))));
        modelRecord(kind, intf).others.insert(modelOf(addr));
      }
    });
  }

  void otherAddrDel(RecordKind kind, const std::string& intf) {
    auto& others = modelRecord(kind, intf).others;
    std::string gone;
    if (!others.empty()) {
      const auto at = std::next(others.begin(), below(static_cast<unsigned>(others.size())));
      gone = at->text;
      others.erase(at);
    }
    note(fmt::format("{} {} loses {}", static_cast<int>(kind), intf, gone));
    withRecord(kind, intf, [&]<class Record>(Record& record) {
      if (gone.empty()) return;
      if constexpr (isIp4<Record>) {
        record.secondaryAddrWithMaskDel(mask4(gone));
      } else {
        record.addrDel(mask6(gone));
      }
    });
  }

  void borrowedIs(const std::string& intf) {
    const bool borrowed = chance(2);
    note(fmt::format("{} borrows: {}", intf, borrowed));
    world_.tree.ipStatus->ipIntfStatusIs(intfOf(intf))->unnumberedIntfIdIs(intfOf(borrowed ? "lo" : ""));
    modelRecord(status4, intf).borrowed = borrowed;
  }

  void recordDel(RecordKind kind, const std::string& intf) {
    note(fmt::format("{} {} goes", static_cast<int>(kind), intf));
    const auto id = intfOf(intf);
    if (kind == config4) world_.tree.ipConfig->ipIntfConfigDel(id);
    if (kind == status4) world_.tree.ipStatus->ipIntfStatusDel(id);
    if (kind == config6) world_.tree.ip6Config->intfDel(id);
    if (kind == status6) world_.tree.ip6Status->intfDel(id);
    model_.records.erase({kind, intf});
  }

  // ---- interfaces

  void intfStatusChange(const std::string& intf) {
    if (chance(3)) {
      note(intf + " loses its status record");
      world_.tree.intfStatusDir->intfStatusDel(intfOf(intf));
      model_.ifIndex.erase(intf);
      return;
    }
    const auto index = chance(4) ? 0 : 1 + below(6);
    note(fmt::format("ifIndex of {} is {}", intf, index));
    world_.intfIs(intf, index);
    model_.ifIndex[intf] = index;
  }

  // ---- layer-3 records: one for the two configuration records of an interface, one for its two status records

  // What the layer-3 record says; null when it does not exist. One that was deleted and made again is another one.
  std::shared_ptr<std::string>& l3Vrf(RecordKind kind, const std::string& intf) {
    return l3Vrf_[{isConfig(kind), intf}];
  }
  static bool isConfig(RecordKind kind) { return kind == config4 || kind == config6; }

  void l3VrfIs(RecordKind kind, const std::string& intf) {
    const auto& vrf = oneOf(vrfs);
    note(fmt::format("layer 3 of {} {} says {}", static_cast<int>(kind), intf, vrf));
    const auto id = intfOf(intf);
    if (isConfig(kind)) world_.tree.l3ConfigDir->intfConfigIs(id)->vrfIs(L3::VrfName(vrf));
    if (!isConfig(kind)) world_.tree.l3StatusDir->intfStatusIs(id)->vrfIs(L3::VrfName(vrf));
    auto& said = l3Vrf(kind, intf);
    if (!said) said = std::make_shared<std::string>();
    *said = vrf;
  }

  void l3ReferenceIs(RecordKind kind, const std::string& intf) {
    const bool refers = !chance(4);
    note(fmt::format("{} {} refers to layer 3: {}", static_cast<int>(kind), intf, refers));
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
    note(fmt::format("layer 3 of {} {} goes", static_cast<int>(kind), intf));
    if (isConfig(kind)) world_.tree.l3ConfigDir->intfConfigDel(intfOf(intf));
    if (!isConfig(kind)) world_.tree.l3StatusDir->intfStatusDel(intfOf(intf));
    l3Vrf(kind, intf) = nullptr;
  }

  // ---- caches and the machine

  void cacheChange() {
    const auto& vrf = oneOf(namedVrfs);
    if (chance(3)) {
      note("cache of " + vrf + " goes");
      world_.sm->vrfIpMibDel(vrf);
      model_.caches.erase(vrf);
      return;
    }
    const bool isNew = chance(2) || !caches_.contains(vrf);
    const bool isOther = isNew || !model_.caches.contains(vrf);
    note(fmt::format("cache of {} comes, {}", vrf, isNew ? "a new one" : "the last one"));
    if (isNew) caches_[vrf] = Kel::makePtr<IpMib>(vrf);
    world_.sm->vrfIpMibIs(caches_[vrf]);
    world_.sm->handleIntfInVrf(vrf);
    if (isOther) model_.caches[vrf] = ++cacheCount_;
  }

  void machineIsMadeAnew() {
    note("the machine is made anew");
    world_.sm = nullptr;
    for (const auto& [vrf, cache] : caches_) EXPECT_EQ(tables(*cache), "");
    world_.smIs();
    for (const auto& [vrf, number] : model_.caches) {
      if (vrf == "default") continue;
      world_.sm->vrfIpMibIs(caches_[vrf]);
      world_.sm->handleIntfInVrf(vrf);
    }
    model_.everythingIsToldAgain();
  }

  bool isRight() {
    for (const auto& vrf : vrfs) {
      const auto at = caches_.find(vrf);
      if (at == caches_.end()) continue;
      const auto found = tables(*at->second);
      const auto expected = model_.caches.contains(vrf) ? model_.tables(vrf) : "";
      rows_ += std::count(found.begin(), found.end(), '\n');
      EXPECT_EQ(found, expected) << "in vrf " << vrf << " after step " << log_.size() << ": " << log_.back();
      if (found == expected) continue;
      for (const auto& line : log_) ADD_FAILURE_AT("step", 0) << line;
      return false;
    }
    return true;
  }

  std::mt19937 random_;
  World world_;
  AddressModel model_;
  std::map<std::string, Ptr<IpMib>> caches_;  // the last one that each VRF had
  int cacheCount_ = 0;
  std::map<std::pair<bool, std::string>, std::shared_ptr<std::string>> l3Vrf_;
  std::vector<std::string> log_;
  long rows_ = 0;
};

TEST(IpAddressTableSmRandom, tablesAreWhatTheRecordsSay) {
  for (unsigned seed = 1; seed <= 8; ++seed) {
    RandomRun run(seed);
    ASSERT_TRUE(run.run(1500)) << "seed " << seed;
    EXPECT_GT(run.rowsPerStep(), 5) << "seed " << seed;
  }
}

}  // namespace
}  // namespace IpSnmpTest

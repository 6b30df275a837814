#pragma once
// For tests: tables of routes and FECs in memory, whose reads can be made to fail.

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "quillo/tables/FibTables.h"

namespace Quillo {

// The common part of both tables. `Base` is the table's interface, `key` the member of Entry with the key, `handler`
// the handler of Base::Notifiee that a change of one entry calls.
template <class Base, class Key, class Entry, Key Entry::*key, void (Base::Notifiee::*handler)(const Key&)>
class TestTable : public Base {
 public:
  using typename Base::Notifiee;

  bool initialized() const override { return isInitialized; }
  void corruptionDetected(const std::string& message) const override { reports.push_back(message); }
  std::uint64_t generation() const override { return currentGeneration; }
  bool isNotified() const override { return areChangesNotified; }

  void initializedIs() {
    isInitialized = true;
    this->template kelNotify<Notifiee>([](Notifiee& reactor) { reactor.handleInitialized(); });
  }
  // Replaces all entries, with one notification.
  void tableIs(std::map<Key, Entry> entries) {
    map = std::move(entries);
    changed();
    this->template kelNotify<Notifiee>([](Notifiee& reactor) { reactor.onTable(); });
  }

  bool isInitialized = true;
  bool areChangesNotified = true;
  std::optional<std::string> damage;          // every read throws CorruptionDetectedException with this text
  bool isUnreadable = false;                  // every read throws StoreException
  std::map<Key, std::string> damagedEntries;  // reads of these keys throw the same, with this text
  std::map<Key, Entry> map;
  mutable std::vector<std::string> reports;
  std::uint64_t currentGeneration = 0;  // unless it is 0, each change increments it
  mutable unsigned lookups = 0;

 protected:
  void entryIs(const Entry& entry) {
    map[entry.*key] = entry;
    notify(entry.*key);
  }
  void entryDel(const Key& erased) {
    if (map.erase(erased) > 0) notify(erased);
  }
  Entry find(const Key& sought) const {
    ++lookups;
    check();
    if (const auto at = damagedEntries.find(sought); at != damagedEntries.end()) throwDamage(at->second);
    const auto at = map.find(sought);
    return at == map.end() ? Entry() : at->second;
  }
  template <class Visit>
  void forEach(const Key& from, const Visit& visit) const {
    ++lookups;
    check();
    for (auto at = map.lower_bound(from); at != map.end(); ++at) {
      if (!damagedEntries.contains(at->first) && !visit(at->second)) return;
    }
    if (!damagedEntries.empty()) throwDamage(damagedEntries.begin()->second);
  }

 private:
  void changed() {
    if (currentGeneration != 0) ++currentGeneration;
  }
  void notify(const Key& changedKey) {
    changed();
    this->template kelNotify<Notifiee>([&](Notifiee& reactor) { (reactor.*handler)(changedKey); });
  }
  void check() const {
    if (isUnreadable) throw StoreException(StoreException::Kind::gone, "the table cannot be read");
    if (damage) throwDamage(*damage);
  }
  [[noreturn]] static void throwDamage(const std::string& what) {
    throw Pesk::CorruptionDetectedException("test", "table", "key", what);
  }
};

template <class P>
class TestRouteStatus final : public TestTable<BasicRouteStatus<P>, P, BasicRoute<P>, &BasicRoute<P>::prefix,
                                               &BasicRouteStatus<P>::Notifiee::onRoute> {
 public:
  using Route = BasicRoute<P>;
  using Visit = typename BasicRouteStatus<P>::Visit;

  Route route(const P& prefix) const override { return this->find(prefix); }
  void forEachRoute(const P& from, const Visit& visit) const override { this->forEach(from, visit); }

  void routeIs(const Route& route) { this->entryIs(route); }
  void routeDel(const P& prefix) { this->entryDel(prefix); }
};

class TestForwardingStatus final : public TestTable<Fib::ForwardingStatus, Fib::FecId, Fib::Fec, &Fib::Fec::fecId,
                                                    &Fib::ForwardingStatus::Notifiee::onFec> {
 public:
  Fib::Fec fec(const Fib::FecId& fecId) const override { return find(fecId); }
  void forEachFec(const Fib::FecId& from, const Visit& visit) const override { forEach(from, visit); }

  void fecIs(const Fib::Fec& fec) { entryIs(fec); }
  void fecDel(const Fib::FecId& fecId) { entryDel(fecId); }
};

}  // namespace Quillo

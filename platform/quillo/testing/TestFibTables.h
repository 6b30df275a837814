#pragma once
// For tests: tables of routes and FECs in memory, which can be told to be damaged.

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "quillo/tables/FibTables.h"

namespace Quillo {

// What both tables do alike. `Base` is the table's interface, `Key` its key, `Entry` what is found under it.
template <class Base, class Key, class Entry>
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
  // In the place of everything that is there; told as one change.
  void tableIs(std::map<Key, Entry> entries) {
    map = std::move(entries);
    changed();
    this->template kelNotify<Notifiee>([](Notifiee& reactor) { reactor.onTable(); });
  }

  bool isInitialized = true;
  bool areChangesNotified = true;
  std::optional<std::string> damage;          // what every read then throws
  bool isUnreadable = false;                  // every read then throws StoreException
  std::map<Key, std::string> damagedEntries;  // what reads of these keys throw
  std::map<Key, Entry> map;
  mutable std::vector<std::string> reports;
  std::uint64_t currentGeneration = 0;  // when it is not 0, the operations of this class count it on
  mutable unsigned lookups = 0;

 protected:
  void changed() {
    if (currentGeneration != 0) ++currentGeneration;
  }
  Entry find(const Key& key) const {
    ++lookups;
    if (isUnreadable) throw StoreException(StoreException::Kind::gone, "the table cannot be read");
    if (damage) throwDamage(*damage);
    if (const auto at = damagedEntries.find(key); at != damagedEntries.end()) throwDamage(at->second);
    const auto at = map.find(key);
    return at == map.end() ? Entry() : at->second;
  }
  template <class Visit>
  void forEach(const Key& from, const Visit& visit) const {
    if (isUnreadable) throw StoreException(StoreException::Kind::gone, "the table cannot be read");
    if (damage) throwDamage(*damage);
    for (auto at = map.lower_bound(from); at != map.end(); ++at) {
      if (!damagedEntries.contains(at->first) && !visit(at->second)) return;
    }
    if (!damagedEntries.empty()) throwDamage(damagedEntries.begin()->second);
  }

 private:
  [[noreturn]] static void throwDamage(const std::string& what) {
    throw Pesk::CorruptionDetectedException("test", "table", "key", what);
  }
};

template <class PrefixType>
class TestRouteStatus final : public TestTable<BasicRouteStatus<PrefixType>, PrefixType, BasicRoute<PrefixType>> {
  using Base = TestTable<BasicRouteStatus<PrefixType>, PrefixType, BasicRoute<PrefixType>>;

 public:
  using typename Base::Notifiee;
  using typename Base::Route;
  using typename Base::Visit;

  Route route(const PrefixType& prefix) const override { return this->find(prefix); }
  void forEachRoute(const PrefixType& from, const Visit& visit) const override { this->forEach(from, visit); }

  // Each tells the reactors.
  void routeIs(const Route& route) {
    this->map[route.prefix] = route;
    notify(route.prefix);
  }
  void routeDel(const PrefixType& prefix) {
    if (this->map.erase(prefix) > 0) notify(prefix);
  }

 private:
  void notify(const PrefixType& prefix) {
    this->changed();
    this->template kelNotify<Notifiee>([&](Notifiee& reactor) { reactor.onRoute(prefix); });
  }
};

class TestForwardingStatus final : public TestTable<Fib::ForwardingStatus, Fib::FecId, Fib::Fec> {
 public:
  Fib::Fec fec(const Fib::FecId& fecId) const override { return find(fecId); }
  void forEachFec(const Fib::FecId& from, const Visit& visit) const override { forEach(from, visit); }

  void fecIs(const Fib::Fec& fec) {
    map[fec.fecId] = fec;
    notify(fec.fecId);
  }
  void fecDel(const Fib::FecId& fecId) {
    if (map.erase(fecId) > 0) notify(fecId);
  }

 private:
  void notify(const Fib::FecId& fecId) {
    changed();
    kelNotify<Notifiee>([&](Notifiee& reactor) { reactor.onFec(fecId); });
  }
};

}  // namespace Quillo

#include "quillo/Writer.h"

#include <lmdb.h>

#include <vector>

namespace Quillo {
namespace {

// Layout of the records of the journal and of tombstones.
constexpr std::uint16_t journalLayout = 1;

[[noreturn]] void fail(Environment& env, Place place, Bytes key, int status) {
  // The publisher knows what to do about these and about errors of the system, which are positive.
  if (status > 0 || status == MDB_MAP_FULL || status == MDB_TXN_FULL || status == MDB_PANIC) {
    throw WriteFailure{status};
  }
  damageDetected(env, place, key, status);
}

}  // namespace

Writer::Writer(Environment& env, const Head& head, const TableStates& states, std::uint64_t tombstoneLimit)
    : env_(env), head_(head), states_(states), tombstoneLimit_(tombstoneLimit) {
  int status = guarded([this] { return mdb_txn_begin(env_.handle(), nullptr, 0, &txn_); });
  if (status != 0) fail(env_, Place::records, {}, status);
}

Writer::~Writer() {
  if (txn_ != nullptr) {
    guarded([this] {
      mdb_txn_abort(txn_);
      return 0;
    });
  }
}

void Writer::store(Place place, const std::string& key, std::uint64_t seq, std::uint16_t layout, Bytes value,
                   unsigned flags) {
  recordEncode(record_, place, key, seq, layout, value);
  MDB_dbi index = env_.index(place);
  int status = guarded([&] {
    MDB_val keyVal{key.size(), const_cast<char*>(key.data())};
    MDB_val bytes{record_.size(), record_.data()};
    return mdb_put(txn_, index, &keyVal, &bytes, flags);
  });
  if (status == MDB_KEYEXIST) damageDetected(env_, place, key, "a later entry is there already");
  if (status != 0) fail(env_, place, key, status);
}

void Writer::erase(Place place, const std::string& key) {
  MDB_dbi index = env_.index(place);
  int status = guarded([&] {
    MDB_val keyVal{key.size(), const_cast<char*>(key.data())};
    return mdb_del(txn_, index, &keyVal, nullptr);
  });
  if (status == MDB_NOTFOUND) damageDetected(env_, place, key, "entry is missing");
  if (status != 0) fail(env_, place, key, status);
}

TableState& Writer::stateOf(TableId table) {
  auto it = states_.find(table);
  if (it == states_.end()) it = states_.emplace(table, readTableState(env_, txn_, table)).first;
  return it->second;
}

void Writer::appendJournal(std::uint64_t seq, Change::Kind kind, const std::string& key) {
  std::string value(1, static_cast<char>(kind));
  value += key;
  store(Place::journal, seqKey(seq), seq, journalLayout, value, MDB_APPEND);
}

void Writer::eraseTombstone(const std::string& key) {
  std::string buffer;
  std::optional<RecordView> grave = readRecord(env_, txn_, Place::graves, key, buffer);
  if (!grave) return;
  std::string seq = seqKey(grave->seq);
  erase(Place::graves, key);
  erase(Place::graveOrder, seq);
  erase(Place::journal, seq);
  --head_.tombstones;
}

bool Writer::put(TableId table, Bytes key, Bytes value) {
  std::string name = recordKey(table, key);
  std::uint16_t layout = tableInfo(table).layout;
  std::optional<RecordView> old = readRecord(env_, txn_, Place::records, name, old_);
  if (old && old->layout == layout && old->value == value) return false;
  TableState& state = stateOf(table);
  if (old) {
    erase(Place::journal, seqKey(old->seq));
    state.digest -= old->checksum;
  } else {
    if (head_.tombstones > 0) eraseTombstone(name);
    ++state.count;
  }
  std::uint64_t seq = ++head_.seq;
  store(Place::records, name, seq, layout, value, 0);
  state.digest += recordChecksum(record_);
  state.version = seq;
  appendJournal(seq, Change::Kind::put, name);
  return true;
}

bool Writer::del(TableId table, Bytes key) {
  std::string name = recordKey(table, key);
  std::optional<RecordView> old = readRecord(env_, txn_, Place::records, name, old_);
  if (!old) return false;
  TableState& state = stateOf(table);
  erase(Place::journal, seqKey(old->seq));
  erase(Place::records, name);
  --state.count;
  state.digest -= old->checksum;
  std::uint64_t seq = ++head_.seq;
  state.version = seq;
  store(Place::graves, name, seq, journalLayout, {}, 0);
  store(Place::graveOrder, seqKey(seq), seq, journalLayout, {}, MDB_APPEND);
  appendJournal(seq, Change::Kind::deletion, name);
  ++head_.tombstones;
  return true;
}

void Writer::recordPass(CompletePass pass) {
  pass.seq = head_.seq;
  store(Place::records, passKey(), head_.seq, metaLayout, encodePass(pass), 0);
}

void Writer::dropTombstones() {
  if (head_.tombstones <= tombstoneLimit_) return;
  std::vector<std::uint64_t> oldest;
  {
    RecordCursor cursor(env_, txn_, Place::graveOrder);
    std::uint64_t surplus = head_.tombstones - tombstoneLimit_;
    for (bool found = cursor.seek({}); found && oldest.size() < surplus; found = cursor.next()) {
      oldest.push_back(seqOfKey(cursor.key()));
    }
  }
  std::string buffer;
  for (std::uint64_t seq : oldest) {
    std::string place = seqKey(seq);
    std::optional<RecordView> entry = readRecord(env_, txn_, Place::journal, place, buffer);
    if (!entry || entry->value.size() < 2) {
      damageDetected(env_, Place::journal, place, "entry of a deletion is missing");
    }
    erase(Place::graves, std::string(entry->value.substr(1)));
    erase(Place::graveOrder, place);
    erase(Place::journal, place);
    --head_.tombstones;
    head_.floor = seq;
  }
}

void Writer::commit() {
  dropTombstones();
  for (const auto& [table, state] : states_) {
    store(Place::records, tableStateKey(table), head_.seq, metaLayout, encodeTableState(state), 0);
  }
  store(Place::records, headKey(), head_.seq, metaLayout, encodeHead(head_), 0);
  int status = guarded([this] { return mdb_txn_commit(txn_); });
  // The storage engine ends the transaction even if the commit fails; only a fault of the mapping leaves it open.
  if (status != mappingFault) txn_ = nullptr;
  if (status != 0) fail(env_, Place::records, {}, status);
}

}  // namespace Quillo

#include "quillo/Snapshot.h"

#include <fmt/format.h>

#include "quillo/RecordReader.h"

namespace Quillo {
namespace {

void checkLayout(Environment& env, TableId table, Bytes key, const RecordView& record) {
  std::uint16_t known = tableInfo(table).layout;
  if (record.layout != known) {
    damageDetected(env, Place::records, key,
                   fmt::format("record has layout {}, this program knows {}", record.layout, known));
  }
}

}  // namespace

Scan::Scan(std::shared_ptr<View> view, TableId table, Bytes lowerBound)
    : view_(std::move(view)),
      cursor_(std::make_unique<RecordCursor>(*view_->env, view_->txn, Place::records, recordKey(table, {}))),
      table_(table) {
  settle(cursor_->seek(recordKey(table, lowerBound)));
}

Scan::Scan(Scan&&) noexcept = default;
Scan::~Scan() = default;

void Scan::settle(bool found) {
  valid_ = found;
  if (valid_) checkLayout(*view_->env, table_, cursor_->key(), cursor_->record());
}

void Scan::next() {
  settle(cursor_->next());
}

Bytes Scan::key() const {
  return cursor_->key().substr(1);
}

Bytes Scan::value() const {
  return cursor_->record().value;
}

std::uint64_t Scan::checksum() const {
  return cursor_->record().checksum;
}

Snapshot::Snapshot(std::shared_ptr<View> view) : view_(std::move(view)) {
}
Snapshot::Snapshot(Snapshot&&) noexcept = default;
Snapshot::~Snapshot() = default;

std::uint64_t Snapshot::generation() const {
  return view_->env->generation();
}

std::uint64_t Snapshot::seq() const {
  return view_->head.seq;
}

Bookmark Snapshot::bookmark() const {
  return {generation(), view_->epoch, seq()};
}

std::optional<Bytes> Snapshot::get(TableId table, Bytes key) {
  if (key.size() > maxKeyBytes) {
    return std::nullopt;  // no publisher can have written it
  }
  char name[maxKeyBytes + 1];
  name[0] = static_cast<char>(table);
  key.copy(name + 1, key.size());
  Bytes whole(name, key.size() + 1);
  Environment& env = *view_->env;
  std::optional<RecordView> record = readRecord(env, view_->txn, Place::records, whole, buffer_);
  if (!record) return std::nullopt;
  checkLayout(env, table, whole, *record);
  return record->value;
}

void Snapshot::checkLayouts() const {
  Environment& env = *view_->env;
  for (const auto& info : knownTables) {
    const auto table = recordKey(info.id, {});
    try {
      RecordCursor first(env, view_->txn, Place::records, table);
      if (!first.seek(table) || first.record().layout == info.layout) continue;
      throw StoreException(
          StoreException::Kind::version,
          fmt::format("store {} has records of table {} in layout {}, this program knows layout {}; "
                      "run publisher and readers of the same version",
                      env.directory(), info.name, first.record().layout, info.layout));
    } catch (const Pesk::CorruptionDetectedException&) {
      continue;  // later reads of the table report it
    }
  }
}

Scan Snapshot::scan(TableId table, Bytes lowerBound) const {
  return Scan(view_, table, lowerBound);
}

Changes Snapshot::changesSince(const Bookmark& bookmark, std::size_t limit) const {
  Changes result;
  result.next = this->bookmark();
  bool sameStore = bookmark.generation == result.next.generation && bookmark.epoch == result.next.epoch;
  if (!sameStore || bookmark.seq < view_->head.floor || bookmark.seq > result.next.seq) {
    result.tooOld = true;
    return result;
  }
  if (bookmark.seq == result.next.seq) return result;
  Environment& env = *view_->env;
  RecordCursor cursor(env, view_->txn, Place::journal);
  for (bool found = cursor.seek(seqKey(bookmark.seq + 1)); found; found = cursor.next()) {
    if (result.changes.size() >= limit) {
      result.more = true;
      result.next.seq = result.changes.back().seq;
      break;
    }
    Bytes entry = cursor.record().value;
    if (entry.size() < 2) damageDetected(env, Place::journal, cursor.key(), "entry too short");
    const auto kind = static_cast<Change::Kind>(entry[0]);
    // A damaged page can lead a search to another page, where a key is just not found.
    if (kind == Change::Kind::put && !isFound(env, view_->txn, Place::records, entry.substr(1))) {
      damageDetected(env, Place::records, entry.substr(1), "the journal has it, but no search finds it");
    }
    result.changes.push_back(
        {seqOfKey(cursor.key()), static_cast<TableId>(entry[1]), kind, std::string(entry.substr(2))});
  }
  return result;
}

std::optional<CompletePass> Snapshot::completePass() const {
  return readPass(*view_->env, view_->txn);
}

TableState Snapshot::tableState(TableId table) const {
  return readTableState(*view_->env, view_->txn, table);
}

StoreSizes Snapshot::sizes() const {
  const auto bytes = view_->env->indexBytes(view_->txn);
  const auto of = [&](Place place) { return bytes[static_cast<std::size_t>(place)]; };
  return {view_->head, of(Place::records), of(Place::journal), of(Place::graves) + of(Place::graveOrder)};
}

}  // namespace Quillo

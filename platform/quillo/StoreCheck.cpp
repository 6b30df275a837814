#include "quillo/StoreCheck.h"

#include <fmt/format.h>
#include <lmdb.h>

#include <cstring>
#include <map>

#include "quillo/Meta.h"

namespace Quillo {

namespace {

std::map<TableId, TableState> countTables(Environment& env, MDB_txn* txn) {
  std::map<TableId, TableState> found;
  RecordCursor cursor(env, txn, Place::records);
  for (bool more = cursor.seek(recordKey(TableId{1}, {})); more; more = cursor.next()) {
    TableState& state = found[static_cast<TableId>(cursor.key()[0])];
    ++state.count;
    state.digest += cursor.record().checksum;
  }
  return found;
}

std::uint64_t countIndex(Environment& env, MDB_txn* txn, Place place, std::uint64_t headSeq) {
  std::uint64_t count = 0;
  RecordCursor cursor(env, txn, place);
  for (bool more = cursor.seek({}); more; more = cursor.next()) {
    if (cursor.record().seq > headSeq) {
      damageDetected(env, place, cursor.key(), fmt::format("sequence number beyond the head {}", headSeq));
    }
    ++count;
  }
  return count;
}

void expectCount(Environment& env, Place place, std::uint64_t found, std::uint64_t expected) {
  if (found != expected) {
    damageDetected(env, place, {}, fmt::format("{} entries, expected {}", found, expected));
  }
}

// The list of free pages is the storage engine's own: lists of page numbers, in falling order, by transaction. A
// wrong one would have the next writer overwrite pages in use.
void checkFreePages(Environment& env, MDB_txn* txn) {
  MDB_envinfo info{};
  MDB_cursor* cursor = nullptr;
  int status = guarded([&] {
    mdb_env_info(env.handle(), &info);
    return mdb_cursor_open(txn, 0, &cursor);
  });
  std::size_t lastPage = info.me_last_pgno;
  while (status == 0) {
    status = guarded([&] {
      MDB_val key;
      MDB_val list;
      int got = mdb_cursor_get(cursor, &key, &list, MDB_NEXT);
      if (got != 0) {
        return got;
      }
      std::size_t count = 0;
      if (list.mv_size >= sizeof count) {
        std::memcpy(&count, list.mv_data, sizeof count);
      }
      if (list.mv_size < sizeof count || list.mv_size / sizeof count - 1 < count) {
        return MDB_CORRUPTED;
      }
      std::size_t above = lastPage + 1;
      for (std::size_t i = 1; i <= count; ++i) {
        std::size_t page;
        std::memcpy(&page, static_cast<const char*>(list.mv_data) + i * sizeof page, sizeof page);
        if (page >= above || page < 2) {
          return MDB_CORRUPTED;
        }
        above = page;
      }
      return 0;
    });
  }
  mdb_cursor_close(cursor);
  if (status != MDB_NOTFOUND) {
    damageDetected(env, Place::records, {}, "list of free pages: " + statusText(status));
  }
}

}  // namespace

void checkStore(Environment& env, MDB_txn* txn) {
  Head head = readHead(env, txn);
  readPass(env, txn);
  std::uint64_t records = 0;
  std::map<TableId, TableState> tables = countTables(env, txn);
  for (const TableInfo& info : knownTables) {
    tables.try_emplace(info.id);
  }
  for (const auto& [table, found] : tables) {
    TableState expected = readTableState(env, txn, table);
    if (found.count != expected.count || found.digest != expected.digest) {
      damageDetected(env, Place::records, recordKey(table, {}),
                     fmt::format("{} records with digest {:016x}, expected {} with {:016x}", found.count,
                                 found.digest, expected.count, expected.digest));
    }
    records += found.count;
  }
  expectCount(env, Place::journal, countIndex(env, txn, Place::journal, head.seq), records + head.tombstones);
  expectCount(env, Place::graves, countIndex(env, txn, Place::graves, head.seq), head.tombstones);
  expectCount(env, Place::graveOrder, countIndex(env, txn, Place::graveOrder, head.seq), head.tombstones);
  checkFreePages(env, txn);
}

}  // namespace Quillo

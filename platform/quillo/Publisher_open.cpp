// How a publisher takes possession of a store and keeps it: directory, lock, files, and checks of the contents.

#include <fmt/format.h>
#include <lmdb.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>

#include "kel/System.h"
#include "kel/Trace.h"
#include "quillo/Doorbell.h"
#include "quillo/PublisherLock.h"
#include "quillo/RecordReader.h"
#include "quillo/StoreFiles.h"

namespace Quillo {

namespace {

Kel::TraceHandle openTrace("QuilloPublisher");

using Kind = StoreException::Kind;

constexpr mode_t dataMode = 0640;
constexpr mode_t sharedMode = 0660;

constexpr Kel::Seconds checkPeriod = 60;
// After a report of damage that was wrong, the next one waits for as long: a faulty reader must not keep the publisher busy.
constexpr Kel::Seconds reportPause = 30;

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

// Reads a store through and compares everything that can be compared: every record's checksum, each table's count and
// digest, the journal against the tables, the list of free pages. Throws Pesk::CorruptionDetectedException for the first
// thing that is wrong.
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

}  // namespace

void Publisher::open() {
  prepareStoreDirectory(config_.directory, config_.group);
  lock_ = std::make_unique<PublisherLock>(config_.directory, config_.name);
  try {
    if (config_.recreate) removeStore();
    openOrMakeAnew();
  } catch (...) {
    lock_->undo();
    throw;
  }
  prepareStoreDirectory(config_.directory, config_.group, true);
  if (compact()) openChecked();
  ringAll();
}

void Publisher::openOrMakeAnew() {
  try {
    openChecked();
  } catch (const StoreException& found) {
    if (found.kind() != Kind::damaged && found.kind() != Kind::version) throw;
    if (!isStoreOfOurs(config_.directory)) {
      throw StoreException(
          Kind::foreign, fmt::format("{} is not a store of ours, and cannot be read as a database; choose another "
                                     "directory with --store, or set the file aside with quorin-mirrord --recreate",
                                     dataFile(config_.directory)));
    }
    QTRACE(openTrace, 0) << found.what();
    removeStore();
    openChecked();
  }
}

void Publisher::openChecked() {
  openStore();
  broken_.clear();
  states_.clear();
  lastStoreCheck_ = Kel::System::currentTime();
  try {
    const View view(env_, 0);
    checkStore(*env_, view.txn);
    head_ = view.head;
  } catch (const Pesk::CorruptionDetectedException& damage) {
    env_ = nullptr;
    throw StoreException(Kind::damaged, damage.what());
  }
}

// The files by which readers and the publisher reach each other.
void Publisher::ringAll() {
  claimStoreFile(config_.directory, dataFile(config_.directory), dataMode);
  claimStoreFile(config_.directory, lockFile(config_.directory), sharedMode);
  ::close(openStoreFile(config_.directory, damageFile(config_.directory), sharedMode));
  isDamageReported();  // what was reported before is over
  if (!doorbell_) doorbell_ = std::make_unique<Doorbell>(config_.directory, config_.name);
  doorbell_->ring(head_.seq);
}

// A reader reports by writing into the file, so by the file's time.
bool Publisher::isDamageReported() {
  struct stat status {};
  if (::lstat(damageFile(config_.directory).c_str(), &status) != 0) {
    ::close(openStoreFile(config_.directory, damageFile(config_.directory), sharedMode));
    return false;
  }
  const bool isNew =
      status.st_mtim.tv_sec != damageReported_.tv_sec || status.st_mtim.tv_nsec != damageReported_.tv_nsec;
  damageReported_ = status.st_mtim;
  return isNew;
}

void Publisher::check(bool isUpToDate) {
  // First, since damage can make a write fail for any reason.
  if (env_ && broken_.empty() && !env_->replaced()) checkForDamage();
  apply(Batch(*this), false);  // of nothing: throws where the store is gone
  if (isUpToDate) lock_->beat();
  if (doorbell_->check()) {
    QTRACE(openTrace, 0) << doorbellFile(config_.directory) << " was removed or replaced; made it again";
  }
}

void Publisher::checkForDamage() {
  const Kel::Seconds now = Kel::System::currentTime();
  const bool isReported = now >= nextReportedCheck_ && isDamageReported();
  if (!isReported && now < lastStoreCheck_ + checkPeriod) return;
  lastStoreCheck_ = now;
  try {
    // Of the file's first pages, an open environment does not read everything again.
    try {
      Environment(config_.directory, Environment::Access::probe, 0);
    } catch (const StoreException& found) {
      const bool isDamage =
          found.kind() == Kind::damaged || found.kind() == Kind::version || found.kind() == Kind::foreign;
      if (isDamage) damageDetected(*env_, Place::records, {}, found.what());
    }
    const View view(env_, 0);
    checkStore(*env_, view.txn);
  } catch (const Pesk::CorruptionDetectedException& damage) {
    broken_ = damage.what();
    throw;
  }
  if (isReported) nextReportedCheck_ = now + reportPause;
}

// A data file never shrinks, so a burst of routes would keep its memory for ever.
bool Publisher::compact() {
  constexpr std::size_t worthwhileBytes = std::size_t{32} << 20;
  constexpr std::size_t worthwhileRatio = 4;
  const std::string data = dataFile(config_.directory);
  const std::string copy = data + ".compact";
  ::unlink(copy.c_str());  // of a publisher that was killed in the midst of it
  const std::size_t used = env_->usedBytes();
  struct stat file {};
  if (::stat(data.c_str(), &file) != 0) return false;
  const auto before = static_cast<std::size_t>(file.st_size);
  if (before < worthwhileBytes || before / worthwhileRatio < used) return false;
  const int fd = openStoreFile(config_.directory, copy, dataMode);
  const int status = guarded([&] { return mdb_env_copyfd2(env_->handle(), fd, MDB_CP_COMPACT); });
  ::close(fd);
  if (status != 0) {
    ::unlink(copy.c_str());
    QTRACE(openTrace, 0) << "store " << config_.directory << " keeps " << before << " bytes, of which it uses "
                         << used << ": " << statusText(status);
    return false;
  }
  env_ = nullptr;
  // A lock file belongs to the data file that it was made with. Readers open the new pair when they look again.
  ::unlink(lockFile(config_.directory).c_str());
  if (::rename(copy.c_str(), data.c_str()) != 0) {
    throw StoreException(Kind::directory, fmt::format("cannot rename {} to {}: {}; look at the file system", copy,
                                                      data, std::strerror(errno)));
  }
  QTRACE(openTrace, 1) << "store " << config_.directory << " shrunk from " << before << " bytes to about " << used;
  return true;
}

// Readers that have the old files mapped keep them until they look again; under the names come new files.
void Publisher::removeStore() {
  std::string data = dataFile(config_.directory);
  bool foreign = false;
  try {
    Environment probe(config_.directory, Environment::Access::read, 0);
  } catch (const StoreException& found) {
    if (found.kind() == Kind::permission) {
      throw;
    }
    foreign = found.kind() == Kind::foreign || (std::filesystem::exists(data) && !isStoreOfOurs(config_.directory));
  }
  if (foreign) {
    std::string aside = foreignFile(config_.directory);
    for (int n = 2; std::filesystem::exists(aside); ++n) {
      aside = fmt::format("{}.{}", foreignFile(config_.directory), n);
    }
    if (::rename(data.c_str(), aside.c_str()) != 0) {
      throw StoreException(Kind::directory, fmt::format("cannot set {} aside as {}: {}; move it away by hand", data,
                                                        aside, std::strerror(errno)));
    }
    QTRACE(openTrace, 0) << data << " was not a store of ours; it is kept as " << aside;
  }
  // The data go first: a reader that opens now finds either the old pair or sees that its data file lost its name.
  for (const std::string& file : {data, lockFile(config_.directory)}) {
    if (::unlink(file.c_str()) != 0 && errno != ENOENT) {
      throw StoreException(Kind::directory,
                           fmt::format("cannot remove {}: {}; remove it by hand", file, std::strerror(errno)));
    }
  }
}

void Publisher::openStore() {
  env_ = nullptr;
  // Before the storage engine follows a link.
  checkStoreFile(dataFile(config_.directory));
  checkStoreFile(lockFile(config_.directory));
  env_ = std::make_shared<Environment>(config_.directory, Environment::Access::publish, config_.mapBytes);
  claimStoreFile(config_.directory, dataFile(config_.directory), dataMode);
  claimStoreFile(config_.directory, lockFile(config_.directory), sharedMode);
  clearStaleReaders();
}

void Publisher::clearStaleReaders() {
  int dead = 0;
  guarded([&] { return mdb_reader_check(env_->handle(), &dead); });
  lastReaderCheck_ = Kel::System::currentTime();
  if (dead > 0) {
    QTRACE(openTrace, 1) << "cleared " << dead << " readers of " << config_.directory << " that had died";
  }
}

}  // namespace Quillo

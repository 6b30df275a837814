#include "quillo/PublisherImpl.h"

#include <fmt/format.h>
#include <lmdb.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <xxhash.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "kel/System.h"
#include "kel/Trace.h"
#include "quillo/StoreCheck.h"
#include "quillo/StoreFiles.h"

namespace Quillo {

namespace {

Kel::TraceHandle publisherImplTrace("QuilloPublisher");

using Kind = StoreException::Kind;

void modeIs(const std::string& path, mode_t mode) {
  if (::chmod(path.c_str(), mode) != 0) {
    QTRACE(publisherImplTrace, 1) << path << ": mode not set: " << std::strerror(errno);
  }
}

bool spaceIsOut(const std::string& directory) {
  constexpr std::uint64_t nextToNothingBytes = 65536;
  struct statvfs space {};
  return ::statvfs(directory.c_str(), &space) == 0 && space.f_bavail * space.f_frsize < nextToNothingBytes;
}

}  // namespace

PublisherImpl::PublisherImpl(const PublisherConfig& config) : config_(config) {
  makeDirectory();
  lock_.emplace(config_.directory, config_.name);
  if (config_.recreate) {
    removeStore();
  }
  openStore();
  try {
    checkAndLoad();
  } catch (const Pesk::CorruptionDetectedException& damage) {
    throw StoreException(Kind::damaged, damage.what());
  }
  doorbell_.emplace(config_.directory);
  doorbell_->ring(head_.seq);
}

void PublisherImpl::makeDirectory() {
  std::error_code error;
  bool made = std::filesystem::create_directories(config_.directory, error);
  if (!error && !std::filesystem::is_directory(config_.directory)) {
    error = std::make_error_code(std::errc::not_a_directory);
  }
  if (error) {
    throw StoreException(Kind::directory,
                         fmt::format("cannot make the store directory {}: {}; make it for user {}, or "
                                     "choose another one with --store",
                                     config_.directory, error.message(), ::geteuid()));
  }
  if (made) {
    modeIs(config_.directory, 0755);
  }
}

// Readers that have the old files mapped keep them until they look again; under the names come new files.
void PublisherImpl::removeStore() {
  std::string data = dataFile(config_.directory);
  bool foreign = false;
  try {
    Environment probe(config_.directory, Environment::Access::read, 0);
  } catch (const StoreException& found) {
    if (found.kind() == Kind::permission) {
      throw;
    }
    foreign = found.kind() == Kind::foreign;
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
    QTRACE(publisherImplTrace, 0) << data << " was not a store of ours; it is kept as " << aside;
  }
  // The data go first: a reader that opens now finds either the old pair or sees that its data file lost its name.
  for (const std::string& file : {data, lockFile(config_.directory)}) {
    if (::unlink(file.c_str()) != 0 && errno != ENOENT) {
      throw StoreException(Kind::directory,
                           fmt::format("cannot remove {}: {}; remove it by hand", file, std::strerror(errno)));
    }
  }
}

void PublisherImpl::openStore() {
  env_.reset();
  env_.emplace(config_.directory, Environment::Access::publish, config_.mapBytes);
  modeIs(dataFile(config_.directory), 0644);
  // Readers note there what they still read.
  modeIs(lockFile(config_.directory), 0664);
  clearStaleReaders();
}

void PublisherImpl::openAgain() {
  if (!env_) {
    openStore();  // it could not be the last time
  }
}

void PublisherImpl::clearStaleReaders() {
  int dead = 0;
  mdb_reader_check(env_->handle(), &dead);
  lastReaderCheck_ = Kel::System::currentTime();
  if (dead > 0) {
    QTRACE(publisherImplTrace, 1) << "cleared " << dead << " readers of " << config_.directory << " that had died";
  }
}

// Calls `use(txn)` with a read transaction of its own.
template <class F>
void PublisherImpl::reading(const F& use) {
  openAgain();
  MDB_txn* txn = nullptr;
  int status = guarded([&] { return mdb_txn_begin(env_->handle(), nullptr, MDB_RDONLY, &txn); });
  if (status != 0) {
    damageDetected(*env_, Place::records, {}, status);
  }
  auto end = [&txn] {
    guarded([&txn] {
      mdb_txn_abort(txn);
      return 0;
    });
  };
  try {
    use(txn);
  } catch (...) {
    end();
    throw;
  }
  end();
}

void PublisherImpl::checkAndLoad() {
  reading([this](MDB_txn* txn) {
    checkStore(*env_, txn);
    head_ = readHead(*env_, txn);
  });
}

std::optional<std::string> PublisherImpl::get(TableId table, Bytes key) {
  std::optional<std::string> value;
  reading([&](MDB_txn* txn) {
    std::string buffer;
    if (std::optional<RecordView> record = readRecord(*env_, txn, Place::records, recordKey(table, key), buffer)) {
      value = std::string(record->value);
    }
  });
  return value;
}

CommitResult PublisherImpl::apply(const BatchOps& ops, bool completesPass) {
  if (!broken_.empty()) {
    throw StoreException(Kind::damaged, broken_);
  }
  if (env_ ? env_->replaced() : !std::filesystem::exists(dataFile(config_.directory))) {
    throw StoreException(Kind::gone,
                         fmt::format("store {} was removed or replaced while it was published; start the "
                                     "publisher again",
                                     config_.directory));
  }
  openAgain();
  constexpr Kel::Seconds readerCheckSeconds = 1;
  if (Kel::System::currentTime() - lastReaderCheck_ > readerCheckSeconds) {
    clearStaleReaders();
  }
  CommitResult result;
  bool reopened = false;
  try {
    while (int status = attempt(ops, completesPass, result)) {
      if (status == MDB_MAP_FULL && grow()) {
        continue;
      }
      // A failed write of the head page makes the storage engine refuse everything until the file is opened again.
      if (status == MDB_PANIC && !reopened) {
        reopened = true;
        openStore();
        continue;
      }
      fail(status);
    }
  } catch (const Pesk::CorruptionDetectedException& damage) {
    broken_ = damage.what();
    throw;
  }
  markSeen(ops);
  return result;
}

// One transaction; 0, or the status that stopped it.
int PublisherImpl::attempt(const BatchOps& ops, bool completesPass, CommitResult& result) {
  result = {};
  try {
    Writer writer(*env_, head_, states_, config_.tombstoneLimit);
    for (const BatchOps::Op& op : ops.list) {
      bool changed =
          op.deletion ? writer.del(op.table, ops.key(op)) : writer.put(op.table, ops.key(op), ops.value(op));
      result.changes += changed ? 1 : 0;
    }
    result.seq = writer.head().seq;
    if (completesPass) {
      writer.passIs({0, Kel::System::currentTime(), config_.name});
    }
    if (result.changes == 0 && !completesPass) {
      return 0;
    }
    writer.commit();
    head_ = writer.head();
    states_ = writer.states();
  } catch (const WriteFailure& failure) {
    return failure.status;
  }
  doorbell_->ring(head_.seq);
  return 0;
}

bool PublisherImpl::grow() {
  clearStaleReaders();  // what dead readers held may have been all that was missing the next time
  std::size_t now = env_->mapBytes();
  std::size_t wanted = std::min(now * 2, config_.maxMapBytes);
  if (wanted <= now) {
    return false;
  }
  if (mdb_env_set_mapsize(env_->handle(), wanted) != 0) {
    openStore();  // the storage engine gives up the old mapping before it asks for the new one
    return false;
  }
  QTRACE(publisherImplTrace, 1) << "mapping of " << config_.directory << " grown to " << wanted << " bytes";
  return true;
}

void PublisherImpl::fail(int status) {
  // The storage engine calls a write that was cut short for want of space an input/output error.
  if (status == EIO && spaceIsOut(config_.directory)) {
    status = ENOSPC;
  }
  switch (status) {
    case ENOSPC:
    case EDQUOT:
    case ENOMEM:
      throw StoreException(Kind::full,
                           fmt::format("cannot write store {}: {}; make room on its file system (what was "
                                       "committed before is kept)",
                                       config_.directory, std::strerror(status)));
    case MDB_MAP_FULL:
      throw StoreException(Kind::full,
                           fmt::format("store {} has reached its limit of {} bytes; raise maxMapBytes, or "
                                       "the limit of address space (ulimit -v)",
                                       config_.directory, config_.maxMapBytes));
    case MDB_TXN_FULL:
      throw StoreException(Kind::full,
                           fmt::format("a batch for store {} has more changes than one transaction takes; "
                                       "commit in smaller batches",
                                       config_.directory));
    default:
      break;
  }
  if (status > 0) {
    throw StoreException(Kind::directory, fmt::format("cannot write store {}: {}; look at its file system",
                                                      config_.directory, std::strerror(status)));
  }
  damageDetected(*env_, Place::records, {}, status);
}

PublisherImpl::Digest PublisherImpl::digestOf(TableId table, Bytes key) {
  XXH128_hash_t hash = XXH3_128bits_withSeed(key.data(), key.size(), static_cast<std::uint64_t>(table));
  return {hash.low64, hash.high64};
}

void PublisherImpl::beginFullPass(const std::vector<TableId>& tables) {
  passActive_ = true;
  passTables_ = {tables.begin(), tables.end()};
  seen_.clear();
}

void PublisherImpl::markSeen(const BatchOps& ops) {
  if (!passActive_) {
    return;
  }
  for (const BatchOps::Op& op : ops.list) {
    if (!passTables_.contains(op.table)) {
      continue;
    }
    if (op.deletion) {
      seen_.erase(digestOf(op.table, ops.key(op)));
    } else {
      seen_.insert(digestOf(op.table, ops.key(op)));
    }
  }
}

CommitResult PublisherImpl::endFullPass() {
  KEL_ASSERT(passActive_);
  BatchOps sweep;
  reading([&](MDB_txn* txn) {
    for (TableId table : passTables_) {
      std::string begin = recordKey(table, {});
      RecordCursor cursor(*env_, txn, Place::records);
      for (bool more = cursor.seek(begin); more && cursor.key()[0] == begin[0]; more = cursor.next()) {
        Bytes key = cursor.key().substr(1);
        if (!seen_.contains(digestOf(table, key))) {
          sweep.list.push_back({table, true, sweep.bytes.size(), key.size(), 0, 0});
          sweep.bytes.append(key);
        }
      }
    }
  });
  CommitResult result = apply(sweep, true);
  passActive_ = false;
  seen_ = {};
  QTRACE(publisherImplTrace, 2) << "full pass of " << config_.directory << " complete, " << result.changes
                                << " keys swept";
  return result;
}

}  // namespace Quillo

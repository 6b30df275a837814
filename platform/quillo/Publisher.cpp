#include "quillo/Publisher.h"

#include <fmt/format.h>
#include <lmdb.h>
#include <xxhash.h>

#include <boost/unordered/unordered_flat_set.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

#include "kel/System.h"
#include "kel/Trace.h"
#include "quillo/Doorbell.h"
#include "quillo/PublisherLock.h"
#include "quillo/StoreFiles.h"
#include "quillo/Writer.h"

namespace Quillo {

namespace {

Kel::TraceHandle publisherTrace("QuilloPublisher");

using Kind = StoreException::Kind;

}  // namespace

struct Publisher::FullPass {
  // The full 128 bits of a key's hash stand for the key: of a billion keys, two meet once in 10^20 stores.
  struct Digest {
    std::uint64_t low, high;
    bool operator==(const Digest&) const = default;
  };
  struct DigestHash {
    using is_avalanching = void;
    std::size_t operator()(const Digest& digest) const { return digest.low; }
  };
  static Digest digestOf(TableId table, Bytes key) {
    XXH128_hash_t hash = XXH3_128bits_withSeed(key.data(), key.size(), static_cast<std::uint64_t>(table));
    return {hash.low64, hash.high64};
  }

  std::set<TableId> tables;
  boost::unordered_flat_set<Digest, DigestHash> seen;
};

void Batch::add(TableId table, bool isDeletion, Bytes key, Bytes value) {
  if (key.empty() || key.size() > maxKeyBytes) {
    throw Kel::RangeException(
        fmt::format("store {}, table {}: key of {} bytes (\"{}\") not allowed; 1 to {} bytes are",
                    publisher_->directory(), tableInfo(table).name, key.size(), printableKey(key), maxKeyBytes));
  }
  if (value.size() > maxValueBytes) {
    throw Kel::RangeException(fmt::format(
        "store {}, table {}, key \"{}\": value of {} bytes not allowed; up to {} are", publisher_->directory(),
        tableInfo(table).name, printableKey(key), value.size(), maxValueBytes));
  }
  const std::size_t at = bytes_.size();
  bytes_.append(key);
  bytes_.append(value);
  operations_.push_back({table, isDeletion, at, key.size(), at + key.size(), value.size()});
}

void Batch::put(TableId table, Bytes key, Bytes value) {
  add(table, false, key, value);
}

void Batch::del(TableId table, Bytes key) {
  add(table, true, key, {});
}

CommitResult Batch::commit() {
  CommitResult result = publisher_->apply(*this, false);
  operations_ = {};
  bytes_ = {};
  return result;
}

Publisher::Publisher(const PublisherConfig& config) : config_(config) {
  open();
}

Publisher::~Publisher() = default;

std::uint64_t Publisher::generation() const {
  return env_->generation();
}

std::optional<std::string> Publisher::get(TableId table, Bytes key) const {
  // Null after a commit for which the store could not be opened again.
  const View view(env_ ? env_ : std::make_shared<Environment>(directory(), Environment::Access::read, 0), 0);
  std::string buffer;
  const auto record = readRecord(*view.env, view.txn, Place::records, recordKey(table, key), buffer);
  return record ? std::optional(std::string(record->value)) : std::nullopt;
}

CommitResult Publisher::apply(const Batch& batch, bool completesPass) {
  if (!broken_.empty()) {
    throw StoreException(Kind::damaged, broken_);
  }
  if (env_ ? env_->replaced() : !std::filesystem::exists(dataFile(config_.directory))) {
    throw StoreException(Kind::gone, fmt::format("store {} was removed or replaced; its publisher makes it anew",
                                                 config_.directory));
  }
  if (lock_->retake()) {
    QTRACE(publisherTrace, 0) << publisherLockFile(config_.directory) << " was removed or replaced; made it again";
  }
  if (!env_) openStore();  // it could not be opened the last time
  constexpr Kel::Seconds readerCheckSeconds = 1;
  if (Kel::System::currentTime() - lastReaderCheck_ > readerCheckSeconds) {
    clearStaleReaders();
  }
  CommitResult result;
  bool reopened = false;
  try {
    while (int status = attempt(batch, completesPass, result)) {
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
    damaged(damage.what());
    throw;
  }
  markSeen(batch);
  return result;
}

// One transaction; 0, or the status that stopped it.
int Publisher::attempt(const Batch& batch, bool completesPass, CommitResult& result) {
  result = {};
  try {
    Writer writer(*env_, head_, states_, config_.tombstoneLimit);
    // Damage is handled before the writer's destructor has the storage engine free what it may have overwritten.
    try {
      write(writer, batch, completesPass, result);
    } catch (const Pesk::CorruptionDetectedException& damage) {
      damaged(damage.what());
      throw;
    }
    if (result.changes == 0 && !completesPass) {
      return 0;
    }
    head_ = writer.head();
    states_ = writer.states();
  } catch (const WriteFailure& failure) {
    return failure.status;
  }
  doorbell_->ring(head_.seq);
  return 0;
}

void Publisher::write(Writer& writer, const Batch& batch, bool completesPass, CommitResult& result) {
  for (const auto& operation : batch.operations_) {
    const auto key = batch.key(operation);
    bool changed = operation.isDeletion ? writer.del(operation.table, key)
                                        : writer.put(operation.table, key, batch.value(operation));
    result.changes += changed ? 1 : 0;
  }
  result.seq = writer.head().seq;
  if (completesPass) writer.recordPass({0, Kel::System::currentTime(), config_.name});
  if (result.changes > 0 || completesPass) writer.commit();
}

void Publisher::damaged(const char* why) {
  if (!broken_.empty()) return;
  if (config_.onDamage != nullptr) config_.onDamage(why);
  broken_ = why;
}

bool Publisher::grow() {
  clearStaleReaders();  // what dead readers held may have been all that was missing the next time
  std::size_t now = env_->mapBytes();
  std::size_t wanted = std::min(now * 2, config_.maxMapBytes);
  if (wanted <= now) {
    return false;
  }
  if (guarded([&] { return mdb_env_set_mapsize(env_->handle(), wanted); }) != 0) {
    openStore();  // the storage engine gives up the old mapping before it asks for the new one
    return false;
  }
  QTRACE(publisherTrace, 1) << "mapping of " << config_.directory << " grown to " << wanted << " bytes";
  return true;
}

void Publisher::fail(int status) {
  // The storage engine calls a write that was cut short for want of space an input/output error.
  if (status == EIO && isSpaceOut(config_.directory)) {
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
  // EINVAL: the storage engine was to do what only damaged pages ask for.
  if (status > 0 && status != EINVAL) {
    throw StoreException(Kind::directory, fmt::format("cannot write store {}: {}; look at its file system",
                                                      config_.directory, std::strerror(status)));
  }
  damageDetected(*env_, Place::records, {}, status);
}

void Publisher::makeAnew() {
  pass_ = nullptr;
  env_ = nullptr;
  prepareStoreDirectory(config_.directory, config_.group);
  lock_->retake();
  removeStore();
  openChecked();
  ringAll();
}

void Publisher::beginFullPass(const std::vector<TableId>& tables) {
  pass_ = std::make_unique<FullPass>();
  pass_->tables = {tables.begin(), tables.end()};
}

// A key that is deleted during the pass needs no mark: the sweep does not find it.
void Publisher::markSeen(const Batch& batch) {
  if (!pass_) return;
  for (const auto& operation : batch.operations_) {
    if (operation.isDeletion || !pass_->tables.contains(operation.table)) continue;
    pass_->seen.insert(FullPass::digestOf(operation.table, batch.key(operation)));
  }
}

CommitResult Publisher::endFullPass() {
  KEL_ASSERT(pass_);
  Batch sweep(*this);
  {
    if (!env_) openStore();
    const View view(env_, 0);
    for (TableId table : pass_->tables) {
      const std::string begin = recordKey(table, {});
      RecordCursor cursor(*env_, view.txn, Place::records);
      for (bool more = cursor.seek(begin); more && cursor.key()[0] == begin[0]; more = cursor.next()) {
        Bytes key = cursor.key().substr(1);
        if (!pass_->seen.contains(FullPass::digestOf(table, key))) sweep.del(table, key);
      }
    }
  }
  CommitResult result = apply(sweep, true);
  pass_ = nullptr;
  QTRACE(publisherTrace, 2) << "full pass of " << config_.directory << " complete, " << result.changes
                            << " keys swept";
  return result;
}

}  // namespace Quillo

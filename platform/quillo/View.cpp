#include "quillo/View.h"

#include <fmt/format.h>
#include <lmdb.h>

namespace Quillo {

namespace {

int endTransaction(MDB_txn* txn) {
  return guarded([txn] {
    mdb_txn_abort(txn);
    return 0;
  });
}

}  // namespace

// 0: the size that the publisher chose.
MountedStore::MountedStore(const std::string& directory) : env(directory, Environment::Access::read, 0) {
  int status = guarded([this] { return mdb_txn_begin(env.handle(), nullptr, MDB_RDONLY, &txn); });
  if (status != 0) {
    damageDetected(env, Place::records, {}, status);
  }
  reset();
}

MountedStore::~MountedStore() {
  if (txn != nullptr) {
    endTransaction(txn);
  }
}

void MountedStore::reset() {
  guarded([this] {
    mdb_txn_reset(txn);
    return 0;
  });
}

bool MountedStore::renew() {
  // The publisher may enlarge the map again while we follow; a few rounds always catch up with it.
  constexpr int rounds = 8;
  int status = 0;
  for (int i = 0; i < rounds; ++i) {
    status = guarded([this] { return mdb_txn_renew(txn); });
    if (status != MDB_MAP_RESIZED) {
      break;
    }
    int resized = guarded([this] { return mdb_env_set_mapsize(env.handle(), 0); });
    if (resized != 0) {
      status = resized;
      break;
    }
  }
  if (status == MDB_BAD_RSLOT) {
    // Ending the transaction would clear a slot that may be another reader's by now: better to lose its few bytes.
    txn = nullptr;
    return false;
  }
  if (status != 0) {
    damageDetected(env, Place::records, {}, status);
  }
  return true;
}

View::View(std::shared_ptr<MountedStore> mounted, std::uint64_t mountEpoch)
    : store(std::move(mounted)), epoch(mountEpoch) {
  try {
    head = readHead(store->env, store->txn);
  } catch (...) {
    store->reset();
    throw;
  }
}

View::~View() {
  store->reset();
}

}  // namespace Quillo

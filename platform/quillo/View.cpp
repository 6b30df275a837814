#include "quillo/View.h"

#include <fmt/format.h>
#include <lmdb.h>

namespace Quillo {

View::View(std::shared_ptr<Environment> opened, std::uint64_t mountEpoch, std::optional<KnownHead>& known)
    : env(std::move(opened)), epoch(mountEpoch) {
  begin();
  try {
    const auto version = mdb_txn_id(txn);
    if (!known || known->version != version) known = KnownHead{version, readHead(*env, txn)};
    head = known->head;
  } catch (...) {
    end();
    throw;
  }
}

View::~View() {
  end();
}

void View::begin() {
  // The publisher may enlarge the map again while we follow; a few rounds always catch up with it.
  constexpr int rounds = 8;
  int status = guarded([this] { return mdb_txn_begin(env->handle(), nullptr, MDB_RDONLY, &txn); });
  for (int i = 0; i < rounds && status == MDB_MAP_RESIZED; ++i) {
    status = guarded([this] {
      int resized = mdb_env_set_mapsize(env->handle(), 0);
      return resized != 0 ? resized : mdb_txn_begin(env->handle(), nullptr, MDB_RDONLY, &txn);
    });
  }
  if (status == MDB_READERS_FULL) {
    throw StoreException(
        StoreException::Kind::full,
        fmt::format("store {} has as many readers as it takes; stop one of them", env->directory()));
  }
  if (status != 0) {
    damageDetected(*env, Place::records, {}, status);
  }
}

void View::end() {
  guarded([this] {
    mdb_txn_abort(txn);
    return 0;
  });
}

}  // namespace Quillo

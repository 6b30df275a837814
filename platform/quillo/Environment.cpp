#include "quillo/Environment.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <lmdb.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xxhash.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <numeric>
#include <random>
#include <string_view>

#include "kel/System.h"

namespace Quillo {

namespace {

using Kind = StoreException::Kind;

constexpr Bytes magic = "QUORINST";
constexpr std::size_t identityBytes = 40;
constexpr unsigned maxReaders = 512;
constexpr const char* indexNames[] = {"quorin.records", "quorin.journal", "quorin.graves", "quorin.grave-order"};

std::string makeIdentity(std::uint64_t generation) {
  std::string bytes(magic);
  appendU64(bytes, formatVersion);  // four bytes of version, four that are zero
  appendU64(bytes, generation);
  double now = Kel::System::currentTime();
  std::uint64_t nowBits;
  std::memcpy(&nowBits, &now, sizeof nowBits);
  appendU64(bytes, nowBits);
  appendU64(bytes, XXH3_64bits(bytes.data(), bytes.size()));
  return bytes;
}

std::uint64_t newGeneration() {
  std::random_device random;
  std::uint64_t generation = (static_cast<std::uint64_t>(random()) << 32) | random();
  return generation != 0 ? generation : 1;
}

MDB_val toVal(Bytes bytes) {
  return {bytes.size(), const_cast<char*>(bytes.data())};
}

// Whether a data file that cannot be opened was a store: the name of an index, or the identity, is in its pages.
bool holdsOurNames(const std::string& file) {
  const std::string_view names[] = {indexNames[0], magic};
  constexpr std::size_t longestName = 32;
  std::ifstream in(file, std::ios::binary);
  std::string piece;
  std::string buffer(std::size_t{1} << 20, '\0');
  while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() > 0) {
    piece.erase(0, piece.size() - std::min(piece.size(), longestName));  // a name may lie across two pieces
    piece.append(buffer, 0, static_cast<std::size_t>(in.gcount()));
    for (const std::string_view name : names) {
      if (piece.find(name) != std::string::npos) return true;
    }
  }
  return false;
}

// How many names a database without our indexes has, as far as it can be read.
std::size_t countNames(MDB_txn* txn) {
  std::size_t count = 0;
  guarded([&] {
    MDB_dbi names;
    MDB_cursor* cursor = nullptr;
    int status = mdb_dbi_open(txn, nullptr, 0, &names);
    if (status == 0) status = mdb_cursor_open(txn, names, &cursor);
    MDB_val key;
    MDB_val value;
    while (status == 0 && (status = mdb_cursor_get(cursor, &key, &value, MDB_NEXT)) == 0) ++count;
    if (cursor != nullptr) mdb_cursor_close(cursor);
    return status;
  });
  return count;
}

// Whether a program keeps the lock file's first byte to itself. The storage engine does so for microseconds while it opens
// a store, and waits for ever for a program that does not let go.
bool isLockFileHeld(const std::string& directory) {
  constexpr int attempts = 50;
  constexpr useconds_t pauseMicroseconds = 2'000;
  const int fd = ::open(lockFile(directory).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) return false;
  bool isHeld = true;
  for (int i = 0; isHeld && i < attempts; ++i) {
    if (i > 0) ::usleep(pauseMicroseconds);
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    lock.l_len = 1;
    isHeld = ::fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
  }
  ::close(fd);
  return isHeld;
}

// The storage engine would follow a link, and make a lock file of what it leads to.
void refuseIrregularLockFile(const std::string& directory) {
  const std::string file = lockFile(directory);
  struct stat status {};
  if (::lstat(file.c_str(), &status) != 0 || S_ISREG(status.st_mode)) return;
  throw StoreException(Kind::unsafe,
                       fmt::format("{} is not a regular file; remove it, or start its publisher anew", file));
}

bool isAddressSpaceLimited() {
  struct rlimit limit {};
  return ::getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
}

}  // namespace

bool isStoreOfOurs(const std::string& directory) {
  return hasBeenPublished(directory) || holdsOurNames(dataFile(directory));
}

std::string statusText(int status) {
  return status == mappingFault ? "fault in the mapping of data.mdb (the file was cut short, or a page is damaged)"
                                : mdb_strerror(status);
}

std::string identityKey() {
  return std::string("\0store", 6);
}

Environment::Environment(const std::string& directory, Access access, std::size_t mapBytes)
    : directory_(directory) {
  struct stat before {};
  bool isThere = ::stat(dataFile(directory).c_str(), &before) == 0;
  bool fresh = !isThere || before.st_size == 0;
  bool hadLockFile = ::stat(lockFile(directory).c_str(), &before) == 0;
  try {
    if (access != Access::publish && isThere && fresh) {
      fail(ENOENT, access);  // its publisher died before it could write anything
    }
    open(access, mapBytes);
    readIdentity(access);
  } catch (...) {
    close();
    // Half of a new store, or a lock file beside a file that is not ours, would only puzzle whoever looks next.
    if (access == Access::publish && fresh) {
      ::unlink(dataFile(directory).c_str());
    }
    if (access == Access::publish && !hadLockFile) {
      ::unlink(lockFile(directory).c_str());
    }
    throw;
  }
}

Environment::~Environment() {
  close();
}

void Environment::close() {
  if (env_ != nullptr) {
    // A lock file that was cut short would fault in the engine's last step, which then could not free the rest.
    struct stat named {};
    const std::string lock = lockFile(directory_);
    const bool isShort =
        ::stat(lock.c_str(), &named) == 0 && named.st_ino == lock_.inode && named.st_size < lock_.bytes;
    if (isShort) {
      [[maybe_unused]] const int unchanged = ::truncate(lock.c_str(), lock_.bytes);
    }
    MDB_env* env = env_;
    env_ = nullptr;
    guarded([env] {
      mdb_env_close(env);
      return 0;
    });
    // Short again, so that the publisher notices: with zeroes for its locks it must not go on.
    if (isShort) {
      [[maybe_unused]] const int unchanged = ::truncate(lock.c_str(), named.st_size);
    }
  }
}

void Environment::open(Access access, std::size_t mapBytes) {
  int status = mdb_env_create(&env_);
  if (status != 0) {
    fail(status, access);
  }
  if (access != Access::probe) {
    refuseIrregularLockFile(directory_);
    if (isLockFileHeld(directory_)) fail(EAGAIN, access);
  }
  mdb_env_set_maxdbs(env_, std::size(indexNames));
  mdb_env_set_maxreaders(env_, maxReaders);
  mdb_env_set_assert(env_, faultGuardAssertion);
  if (access == Access::publish) {
    mdb_env_set_mapsize(env_, mapBytes);
  }
  // NOTLS: a reader's slot belongs to its transaction object, which is kept and renewed. NOSYNC: tmpfs does not
  // outlive the machine, so there is nothing to flush for. The publisher then opens the files to the group.
  unsigned flags = MDB_NOTLS | (access == Access::publish ? MDB_NOSYNC : MDB_RDONLY);
  if (access == Access::probe) flags |= MDB_NOLOCK;
  status = guarded([&] { return mdb_env_open(env_, directory_.c_str(), flags, 0600); });
  if (status != 0) {
    fail(status, access);
  }
  int fd = -1;
  mdb_env_get_fd(env_, &fd);
  struct stat opened {};
  if (::fstat(fd, &opened) != 0) {
    fail(errno, access);
  }
  // A reader meets a data file that was cut short as damage.
  data_ = {opened.st_dev, opened.st_ino, access == Access::publish ? opened.st_size : 0};
  if (access == Access::probe) return;
  // The storage engine does not give its descriptor of the lock file away.
  if (::stat(lockFile(directory_).c_str(), &opened) == 0) lock_ = {opened.st_dev, opened.st_ino, opened.st_size};
  // Between the opening of the two files the store may have been replaced: then the lock file is not this one's.
  if (access == Access::read && replaced()) {
    throw StoreException(Kind::notReady, fmt::format("store {} is being replaced", directory_));
  }
}

bool Environment::replaced() const {
  const auto isReplaced = [](const OpenFile& opened, const std::string& file) {
    struct stat named {};
    return ::stat(file.c_str(), &named) != 0 || named.st_dev != opened.device || named.st_ino != opened.inode ||
           named.st_size < opened.bytes;
  };
  return isReplaced(data_, dataFile(directory_)) || isReplaced(lock_, lockFile(directory_));
}

std::size_t Environment::mapBytes() const {
  MDB_envinfo info{};
  guarded([&] { return mdb_env_info(env_, &info); });
  return info.me_mapsize;
}

// Of all indexes; what the storage engine keeps about free pages does not matter.
std::array<std::size_t, 4> Environment::indexBytes(MDB_txn* txn) const {
  std::array<std::size_t, 4> bytes{};
  guarded([&] {
    MDB_stat stat{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      if (mdb_stat(txn, indexes_[i], &stat) != 0) continue;
      bytes[i] = (stat.ms_branch_pages + stat.ms_leaf_pages + stat.ms_overflow_pages) * stat.ms_psize;
    }
    return 0;
  });
  return bytes;
}

std::size_t Environment::usedBytes() const {
  MDB_txn* txn = nullptr;
  if (beginRead(txn) != 0) return 0;
  const auto bytes = indexBytes(txn);
  endRead(txn);
  return std::accumulate(bytes.begin(), bytes.end(), std::size_t{0});
}

int Environment::beginRead(MDB_txn*& txn) const {
  // The publisher may enlarge the map again while we follow; a few rounds always catch up with it.
  constexpr int rounds = 8;
  int status = guarded([&] { return mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn); });
  for (int i = 0; i < rounds && status == MDB_MAP_RESIZED; ++i) {
    status = guarded([&] {
      int resized = mdb_env_set_mapsize(env_, 0);
      return resized != 0 ? resized : mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn);
    });
  }
  return status;
}

void Environment::endRead(MDB_txn* txn) {
  guarded([txn] {
    mdb_txn_abort(txn);
    return 0;
  });
}

// An index is missing in a store that is being made, and in a file that is not ours.
bool Environment::openIndexes(MDB_txn* txn) {
  for (std::size_t i = 0; i < std::size(indexNames); ++i) {
    int status = guarded([&] { return mdb_dbi_open(txn, indexNames[i], 0, &indexes_[i]); });
    if (status == MDB_NOTFOUND || status == MDB_INCOMPATIBLE) {
      return false;
    }
    if (status != 0) {
      throw StoreException(
          Kind::damaged,
          fmt::format("store {} is damaged: its index {} cannot be opened ({}); its publisher makes it anew",
                      directory_, indexNames[i], statusText(status)));
    }
  }
  return true;
}

void Environment::readIdentity(Access access) {
  MDB_txn* txn = nullptr;
  int status = beginRead(txn);
  if (status != 0) {
    fail(status, access);
  }
  bool complete = false;
  bool isSound = true;  // a database, whoever's
  MDB_stat stat{};
  try {
    complete = openIndexes(txn);
    if (complete) {
      checkIdentity(txn);
    } else {
      guarded([&] { return mdb_env_stat(env_, &stat); });
      isSound = countNames(txn) == stat.ms_entries;
    }
  } catch (...) {
    endRead(txn);
    throw;
  }
  // Committing a read transaction keeps the index handles.
  status = guarded([txn] { return mdb_txn_commit(txn); });
  if (status != 0) {
    fail(status, access);
  }
  if (complete) {
    return;
  }
  if (stat.ms_entries != 0 && (holdsOurNames(dataFile(directory_)) || (!isSound && hasBeenPublished(directory_)))) {
    throw StoreException(
        Kind::damaged,
        fmt::format("store {} is damaged: its indexes cannot be found; its publisher makes it anew", directory_));
  }
  if (stat.ms_entries != 0) {
    throw StoreException(
        Kind::foreign,
        fmt::format("{} is a database of another program, not a store; choose another directory with "
                    "--store, or set the file aside with quorin-mirrord --recreate",
                    dataFile(directory_)));
  }
  if (access != Access::publish) {
    throw StoreException(Kind::notReady, fmt::format("store {} is being made", directory_));
  }
  create();
}

void Environment::checkIdentity(MDB_txn* txn) {
  std::string key = identityKey();
  MDB_val keyVal = toVal(key);
  char bytes[identityBytes];
  std::size_t size = 0;
  int status = guarded([&] {
    MDB_val value;
    int got = mdb_get(txn, index(Place::records), &keyVal, &value);
    if (got == 0) {
      size = value.mv_size;
      std::memcpy(bytes, value.mv_data, size < sizeof bytes ? size : sizeof bytes);
    }
    return got;
  });
  Bytes identity(bytes, size < sizeof bytes ? size : sizeof bytes);
  bool ours = status == 0 && identity.size() >= 16 && identity.substr(0, magic.size()) == magic;
  std::uint32_t version = ours ? static_cast<std::uint32_t>(readU64(identity, 8)) : 0;
  if (ours && version != formatVersion) {
    throw StoreException(
        Kind::version,
        fmt::format(
            "store {} has format version {}, this program knows version {}; run publisher and readers of one "
            "release, and the publisher makes it anew",
            directory_, version, formatVersion));
  }
  if (!ours || size != identityBytes || readU64(identity, 32) != XXH3_64bits(bytes, 32)) {
    throw StoreException(Kind::damaged,
                         fmt::format("store {} is damaged: its identity record does not pass the check ({}); its "
                                     "publisher makes it anew",
                                     directory_, status == 0 ? "wrong bytes" : statusText(status)));
  }
  generation_ = readU64(identity, 16);
}

void Environment::create() {
  generation_ = newGeneration();
  std::string key = identityKey();
  std::string identity = makeIdentity(generation_);
  const int status = guarded([&] {
    MDB_txn* txn = nullptr;
    int got = mdb_txn_begin(env_, nullptr, 0, &txn);
    for (std::size_t i = 0; got == 0 && i < std::size(indexNames); ++i) {
      got = mdb_dbi_open(txn, indexNames[i], MDB_CREATE, &indexes_[i]);
    }
    MDB_val keyVal = toVal(key);
    MDB_val value = toVal(identity);
    if (got == 0) got = mdb_put(txn, index(Place::records), &keyVal, &value, 0);
    if (got == 0) return mdb_txn_commit(txn);
    if (txn != nullptr) mdb_txn_abort(txn);
    return got;
  });
  if (status != 0) {
    fail(status, Access::publish);
  }
}

void Environment::fail(int status, Access access) const {
  std::string file = dataFile(directory_);
  if (access == Access::publish && (status == EIO || status == mappingFault) && isSpaceOut(directory_)) {
    status = ENOSPC;
  }
  // The size of the mapping comes from the file.
  if (status == EINVAL || (status == ENOMEM && !isAddressSpaceLimited())) status = MDB_CORRUPTED;
  switch (status) {
    case MDB_INVALID:
      if (isStoreOfOurs(directory_)) {
        throw StoreException(
            Kind::damaged,
            fmt::format("store {} is damaged: its first pages cannot be read; its publisher makes it "
                        "anew",
                        directory_));
      }
      throw StoreException(Kind::foreign,
                           fmt::format("{} is not a store; choose another directory "
                                       "with --store, or set the file aside with quorin-mirrord --recreate",
                                       file));
    case MDB_VERSION_MISMATCH:
      throw StoreException(
          Kind::version,
          fmt::format("{} was written by another version of the storage engine (this is {}); run publisher and "
                      "readers of one release, and the publisher makes it anew",
                      file, mdb_version(nullptr, nullptr, nullptr)));
    case ENOENT:
      throw StoreException(
          access == Access::read ? Kind::notReady : Kind::directory,
          fmt::format("waiting for a store in {}: start a publisher (quorin-mirrord)", directory_));
    case EACCES:
    case EPERM:
    case EROFS:
      if (access == Access::read) {
        struct stat owner {};
        ::stat(directory_.c_str(), &owner);
        throw StoreException(
            Kind::permission,
            fmt::format("cannot open store {} as user {}: {}; make this user a member of the store's "
                        "group (gid {}), which reads it and registers in {}",
                        directory_, ::geteuid(), std::strerror(status), owner.st_gid, lockFile(directory_)));
      }
      throw StoreException(Kind::permission,
                           fmt::format("cannot write {} as user {}: {}; give this user access to the directory, or "
                                       "choose another one with --store",
                                       file, ::geteuid(), std::strerror(status)));
    case EAGAIN:
      throw StoreException(
          access == Access::read ? Kind::notReady : Kind::damaged,
          fmt::format("{} is locked by another program; the store's publisher makes it anew when it "
                      "starts",
                      lockFile(directory_)));
    case ENOSPC:
    case EDQUOT:
      throw StoreException(Kind::full,
                           fmt::format("no space for a store in {}: {}; make room there, or choose another "
                                       "directory with --store",
                                       directory_, std::strerror(status)));
    case MDB_READERS_FULL:
      throw StoreException(
          Kind::full, fmt::format("store {} has {} readers already; stop one of them", directory_, maxReaders));
    case mappingFault:
    case MDB_CORRUPTED:
    case MDB_PAGE_NOTFOUND:
    case MDB_PANIC:
      throw StoreException(Kind::damaged, fmt::format("store {} is damaged: {}; its publisher makes it anew",
                                                      directory_, statusText(status)));
    default:
      throw StoreException(Kind::directory,
                           fmt::format("cannot open store {}: {}; check the directory, or choose another one with "
                                       "--store",
                                       directory_, statusText(status)));
  }
}

}  // namespace Quillo

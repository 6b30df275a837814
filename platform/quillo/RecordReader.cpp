#include "quillo/RecordReader.h"

#include <fmt/format.h>
#include <lmdb.h>

#include <cstring>

namespace Quillo {
namespace {

constexpr std::size_t maxRecordBytes = maxValueBytes + recordHeaderBytes;
constexpr std::size_t usualRecordBytes = 512;

std::string placeName(Place place, Bytes key) {
  switch (place) {
    case Place::journal:
      return "journal";
    case Place::graves:
      return "graves";
    case Place::graveOrder:
      return "grave order";
    case Place::records:
      break;
  }
  if (key.empty() || key[0] == '\0') return "of the store itself";
  auto number = static_cast<unsigned char>(key[0]);
  for (const TableInfo& info : knownTables) {
    if (static_cast<unsigned char>(info.id) == number) return std::string(info.name);
  }
  return fmt::format("number {}", number);
}

std::string keyName(Place place, Bytes key) {
  if (place == Place::journal || place == Place::graveOrder) return fmt::format("{}", seqOfKey(key));
  return printableKey(key.empty() ? key : key.substr(1));
}

void growTo(std::string& buffer, std::size_t size) {
  buffer.resize(size > usualRecordBytes ? size : usualRecordBytes);
}

}  // namespace

void damageDetected(Environment& env, Place place, Bytes key, const std::string& what) {
  const bool isOfTable = place == Place::records && !key.empty();
  throw Pesk::CorruptionDetectedException(env.directory(), placeName(place, key), keyName(place, key), what,
                                          isOfTable ? std::string(key.substr(1)) : std::string());
}

void damageDetected(Environment& env, Place place, Bytes key, int status) {
  if (status == mappingFault) env.setFaulted();
  // Leaves the found key empty, since `key` is the searched one.
  throw Pesk::CorruptionDetectedException(env.directory(), placeName(place, key), keyName(place, key),
                                          statusText(status));
}

std::optional<RecordView> readRecord(Environment& env, MDB_txn* txn, Place place, Bytes key, std::string& buffer) {
  if (env.faulted()) damageDetected(env, place, key, mappingFault);
  MDB_dbi index = env.index(place);
  std::size_t size = 0;
  auto fetch = [&] {
    char* to = buffer.data();
    std::size_t capacity = buffer.size();
    return guarded([&, to, capacity] {
      MDB_val keyVal{key.size(), const_cast<char*>(key.data())};
      MDB_val value{};
      int got = mdb_get(txn, index, &keyVal, &value);
      if (got == 0 && value.mv_data == nullptr) return MDB_CORRUPTED;
      if (got == 0) {
        size = value.mv_size;
        if (size <= capacity) std::memcpy(to, value.mv_data, size);
      }
      return got;
    });
  };
  int status = fetch();
  if (status == 0 && size > buffer.size()) {
    if (size > maxRecordBytes) damageDetected(env, place, key, fmt::format("record of {} bytes", size));
    growTo(buffer, size);
    status = fetch();
  }
  if (status == MDB_NOTFOUND) return std::nullopt;
  if (status != 0) damageDetected(env, place, key, status);
  RecordView view;
  if (const char* what = recordDecode(view, place, key, Bytes(buffer.data(), size))) {
    damageDetected(env, place, key, what);
  }
  return view;
}

bool isFound(Environment& env, MDB_txn* txn, Place place, Bytes key) {
  if (env.faulted()) damageDetected(env, place, key, mappingFault);
  const MDB_dbi index = env.index(place);
  const int status = guarded([&] {
    MDB_val keyVal{key.size(), const_cast<char*>(key.data())};
    MDB_val value{};
    return mdb_get(txn, index, &keyVal, &value);
  });
  if (status != 0 && status != MDB_NOTFOUND) damageDetected(env, place, key, status);
  return status == 0;
}

namespace {

// Reads and decodes one of the store's own records.
template <class Decode>
auto readMeta(Environment& env, MDB_txn* txn, const std::string& key, const Decode& decode) {
  std::string buffer;
  const auto record = readRecord(env, txn, Place::records, key, buffer);
  using Decoded = decltype(decode(Bytes()));
  if (!record) return Decoded();
  auto decoded = record->layout == metaLayout ? decode(record->value) : std::nullopt;
  if (!decoded) damageDetected(env, Place::records, key, "unknown layout");
  return decoded;
}

}  // namespace

Head readHead(Environment& env, MDB_txn* txn) {
  return readMeta(env, txn, headKey(), decodeHead).value_or(Head{});
}

std::optional<CompletePass> readPass(Environment& env, MDB_txn* txn) {
  return readMeta(env, txn, passKey(), decodePass);
}

TableState readTableState(Environment& env, MDB_txn* txn, TableId table) {
  return readMeta(env, txn, tableStateKey(table), decodeTableState).value_or(TableState{});
}

View::View(std::shared_ptr<Environment> opened, std::uint64_t mountEpoch)
    : env(std::move(opened)), epoch(mountEpoch) {
  const int status = env->beginRead(txn);
  if (status == MDB_READERS_FULL) {
    throw StoreException(
        StoreException::Kind::full,
        fmt::format("store {} has as many readers as it takes; stop one of them", env->directory()));
  }
  if (status != 0) damageDetected(*env, Place::records, {}, status);
  try {
    auto& known = env->knownHead();
    const auto version = mdb_txn_id(txn);
    if (!known || known->version != version) known = {version, readHead(*env, txn)};
    head = known->head;
  } catch (...) {
    Environment::endRead(txn);
    throw;
  }
}

View::~View() {
  Environment::endRead(txn);
}

RecordCursor::RecordCursor(Environment& env, MDB_txn* txn, Place place, Bytes prefix)
    : env_(env), place_(place), prefix_(prefix) {
  if (env.faulted()) damageDetected(env, place, {}, mappingFault);
  MDB_dbi index = env.index(place);
  // mdb_stat reads the root of the index, so that a fault there occurs before the cursor exists and could leak.
  int status = guarded([&] {
    MDB_stat stat;
    int looked = mdb_stat(txn, index, &stat);
    return looked != 0 ? looked : mdb_cursor_open(txn, index, &cursor_);
  });
  if (status != 0) damageDetected(env, place, {}, status);
}

RecordCursor::~RecordCursor() {
  mdb_cursor_close(cursor_);
}

bool RecordCursor::seek(Bytes lowerBound) {
  previous_.clear();
  keySize_ = 0;
  return move(lowerBound.empty() ? MDB_FIRST : MDB_SET_RANGE, lowerBound);
}

bool RecordCursor::next() {
  previous_.assign(key_, keySize_);
  return move(MDB_NEXT, {});
}

int RecordCursor::fetch(int operation, Bytes lowerBound) {
  char* to = buffer_.data();
  std::size_t capacity = buffer_.size();
  return guarded([&, to, capacity] {
    MDB_val keyVal{lowerBound.size(), const_cast<char*>(lowerBound.data())};
    MDB_val value{};
    int got = mdb_cursor_get(cursor_, &keyVal, &value, static_cast<MDB_cursor_op>(operation));
    if (got != 0) return got;
    // A damaged node can leave either unset.
    if (keyVal.mv_size > engineKeyBytes || keyVal.mv_data == nullptr || value.mv_data == nullptr) {
      return MDB_CORRUPTED;
    }
    keySize_ = keyVal.mv_size;
    std::memcpy(key_, keyVal.mv_data, keySize_);
    size_ = value.mv_size;
    if (size_ <= capacity) std::memcpy(to, value.mv_data, size_);
    return 0;
  });
}

// Called at the first record after the prefix, whose contents are not checked. It may also be a record of the walk
// whose key is damaged; then the keys after it are out of order.
void RecordCursor::checkEnd() {
  previous_.assign(key_, keySize_);
  int status = fetch(MDB_NEXT, {});
  if (status == mappingFault) damageDetected(env_, place_, previous_, status);
  if (status == 0 && key() <= previous_) damageDetected(env_, place_, key(), "key out of order");
}

bool RecordCursor::move(int operation, Bytes lowerBound) {
  Bytes asked = operation == MDB_NEXT ? Bytes(previous_) : lowerBound;
  if (env_.faulted()) damageDetected(env_, place_, asked, mappingFault);
  int status = fetch(operation, lowerBound);
  if (status == MDB_NOTFOUND) return false;
  if (status != 0) damageDetected(env_, place_, asked, status);
  // A damaged tree can lead a walk in circles.
  bool ascends = operation == MDB_NEXT ? key() > asked : key() >= asked;
  if (!ascends) damageDetected(env_, place_, key(), "key out of order");
  if (!key().starts_with(prefix_)) {
    checkEnd();
    return false;
  }
  if (size_ > buffer_.size()) {
    if (size_ > maxRecordBytes) damageDetected(env_, place_, key(), fmt::format("record of {} bytes", size_));
    growTo(buffer_, size_);
    status = fetch(MDB_GET_CURRENT, {});
    if (status != 0) damageDetected(env_, place_, asked, status);
  }
  // The store's identity is not a record: it has the same form in all versions, and its own check.
  if (place_ == Place::records && key() == identityKey()) return next();
  if (const char* what = recordDecode(record_, place_, key(), Bytes(buffer_.data(), size_))) {
    damageDetected(env_, place_, key(), what);
  }
  return true;
}

}  // namespace Quillo

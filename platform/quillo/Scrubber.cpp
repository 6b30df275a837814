#include "quillo/Scrubber.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Quillo {

Scrubber::Outcome Scrubber::step(std::size_t budget) {
  if (mount_->state() != Mount::State::ready) {
    begun_ = false;
    return Outcome::notReady;
  }
  try {
    return walk(std::max<std::size_t>(budget, 1));
  } catch (const Pesk::CorruptionDetectedException& damage) {
    beginRound();
    const Damage met{generation_, damage.what()};
    if (met != std::exchange(known_, met)) mount_->corruptionDetected(damage);
    return Outcome::damaged;
  } catch (const StoreException&) {  // no snapshot now; the next step continues at the same place
    return Outcome::notReady;
  }
}

void Scrubber::beginRound() {
  table_ = 0;
  restarts_ = 0;
  begun_ = false;
  gaveUp_ = false;
}

Scrubber::Outcome Scrubber::walk(std::size_t budget) {
  Snapshot snapshot = mount_->snapshot();
  TableId table = knownTables[table_].id;
  TableState now = snapshot.tableState(table);
  bool changed = begun_ && (now != expected_ || snapshot.generation() != generation_);
  if (changed && ++restarts_ > maxRestarts) {
    gaveUp_ = true;
    return nextTable();
  }
  if (changed || !begun_) {
    begun_ = true;
    expected_ = now;
    generation_ = snapshot.generation();
    found_ = {};
    position_.clear();
  }
  Scan scan = snapshot.scan(table, position_);
  for (; scan.valid() && budget > 0; scan.next(), --budget) {
    ++found_.count;
    found_.digest += scan.checksum();
  }
  if (scan.valid()) {
    position_ = scan.key();
    return Outcome::more;
  }
  if (found_.count != expected_.count || found_.digest != expected_.digest) {
    throw Pesk::CorruptionDetectedException(
        mount_->directory(), tableInfo(table).name, "",
        fmt::format("a walk found {} records with digest {:016x}, expected {} with {:016x}", found_.count,
                    found_.digest, expected_.count, expected_.digest));
  }
  return nextTable();
}

Scrubber::Outcome Scrubber::nextTable() {
  begun_ = false;
  restarts_ = 0;
  if (++table_ < knownTables.size()) return Outcome::more;
  bool complete = !gaveUp_;
  beginRound();
  return complete ? Outcome::clean : Outcome::inconclusive;
}

}  // namespace Quillo

#include "ctl/StoreReader.h"

#include <algorithm>
#include <tuple>

#include "ctl/ReadableRecords.h"
#include "varnix/Document.h"
#include "varnix/TreeLoader.h"

namespace Ctl {
namespace {

constexpr std::size_t pieceSize = 1000;
constexpr std::size_t mostNamed = 3;  // damaged records in a message

}  // namespace

StoreReader::StoreReader(const std::string& directory)
    : mount_(Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{directory})) {
  using State = Quillo::Mount::State;
  mount_->refresh();
  if (mount_->state() == State::ready) return;
  throw Failure(mount_->state() == State::refused ? Exit::unknown : Exit::critical, mount_->stateText());
}

void StoreReader::scan(Quillo::TableId table, const std::string& prefix, std::string from, const Visit& visit,
                       const std::function<void()>& pieceEnds) {
  from = std::max(from, prefix);
  for (bool isOver = false; !isOver;) {
    std::size_t seen = 0;
    bool isFull = false;
    const auto mayTake = [&](Quillo::Bytes key) {
      if (!key.starts_with(prefix)) return false;
      if (seen++ < pieceSize) return true;
      from = key;
      isFull = true;
      return false;
    };
    {
      Quillo::Snapshot snapshot = mount_->snapshot();
      bool goesOn = true;
      Quillo::scanAround(
          snapshot, table, from,
          [&](const Quillo::Scan& record) {
            goesOn = mayTake(record.key()) && visit(snapshot, record);
            return goesOn;
          },
          [&](const std::string& key, const Pesk::CorruptionDetectedException& damage) {
            goesOn = mayTake(key);
            if (goesOn) noteDamage(table, key, damage.what());
            return goesOn;
          });
    }
    pieceEnds();
    isOver = !isFull;
  }
}

void StoreReader::noteDamage(Quillo::TableId table, Quillo::Bytes key, const std::string& what) {
  const auto isSame = [&](const Damage& known) { return known.table == table && known.key == key; };
  if (std::none_of(damage_.begin(), damage_.end(), isSame)) damage_.push_back({table, std::string(key), what});
}

Exit StoreReader::finish() {
  const auto publisher = mount_->publisher();
  if (!publisher.alive) {
    const auto current = std::max(publisher.lastSeen, publisher.lastCommit);
    fmt::print(stderr, "quorinctl: no publisher runs: this is the state of {}. See quorinctl status\n",
               current > 0 ? timeText(current, false) : "an unknown time");
  } else if (!mount_->snapshot().firstPassComplete()) {
    fmt::print(stderr, "quorinctl: the store is not complete yet: {} is writing it\n", publisher.text());
  }
  if (damage_.empty()) return Exit::ok;
  std::string names;
  for (std::size_t i = 0; i < std::min(damage_.size(), mostNamed); ++i) {
    names += (i > 0 ? ", " : "") + keyText(*this, damage_[i].table, damage_[i].key);
  }
  if (damage_.size() > mostNamed) names += ", ...";
  fmt::print(stderr, "quorinctl: the store in {} is damaged; left out: {}. See quorinctl store check\n",
             mount_->directory(), names);
  return Exit::warning;
}

const Varnix::Tree& StoreReader::tree() {
  if (tree_) return *tree_;
  tree_ = std::make_unique<Varnix::Tree>(Kel::makePtr<Kel::Dir>(""));
  Varnix::TreeLoader loader(tree_->root, tree_->openDirs());
  loader.beginPass();
  const auto known = damage_.size();
  scan(Varnix::documentTable, "", "", [&](const auto&, const Quillo::Scan& record) {
    loader.loadDocument(std::string(record.key()), record.value());
    return true;
  });
  for (std::size_t i = known; i < damage_.size(); ++i) loader.keepDocument(damage_[i].key);
  while (loader.settle(pieceSize)) continue;
  return *tree_;
}

const std::vector<NamedVrf>& StoreReader::vrfs() {
  if (!vrfs_.empty()) return vrfs_;
  for (const auto& [name, id] : tree().vrfNameStatus->vrfId()) vrfs_.push_back({name, id});
  const auto order = [](const NamedVrf& vrf) {
    const auto& text = vrf.name.stringValue();
    return std::tuple(!vrf.name.isDefault(), text.size(), std::string_view(text));
  };
  std::sort(vrfs_.begin(), vrfs_.end(), [&](const NamedVrf& a, const NamedVrf& b) { return order(a) < order(b); });
  return vrfs_;
}

// Finds it by its bytes, or as nameText() writes them.
const NamedVrf* StoreReader::find(const std::string& name) {
  for (const auto& vrf : vrfs()) {
    if (vrf.name.stringValue() == name || vrf.text() == name) return &vrf;
  }
  return nullptr;
}

bool StoreReader::isVrf(const std::string& name) {
  return find(name) != nullptr;
}

std::vector<NamedVrf> StoreReader::select(const std::string& name) {
  if (name.empty()) return vrfs();
  if (const NamedVrf* vrf = find(name)) return {*vrf};
  std::string known;
  for (const auto& vrf : vrfs()) known += (known.empty() ? "" : ", ") + vrf.text();
  throw Failure(Exit::unknown, fmt::format("there is no VRF '{}' in the store; there are: {}", nameText(name),
                                           known.empty() ? "none (no publisher has written any)" : known));
}

std::string StoreReader::vrfText(VrfId id) {
  for (const auto& vrf : vrfs()) {
    if (vrf.id == id) return vrf.text();
  }
  const auto* former = tree().vrfIdStatus->vrfName(id);
  return former ? nameText(former->stringValue()) : fmt::format("number {}", id.value());
}

const L3::VrfName* StoreReader::vrfOf(const Vantu::IntfId& intfId) {
  const auto status = tree().l3StatusDir->intfStatus(intfId);
  return status ? &status->vrf() : nullptr;
}

StoreReader::VrfId StoreReader::fecVrf(VrfId id) {
  return tree().l3Config->fecMode() == Quillo::Fib::fecModeUnified ? VrfId(0) : id;
}

std::string devOf(const Vantu::IntfId& intfId, const L3::VrfName& vrf) {
  std::string_view text = intfId.text();
  const auto& name = vrf.stringValue();
  const bool hasPrefix = text.size() > name.size() && text.starts_with(name) && text[name.size()] == '/';
  if (hasPrefix) text.remove_prefix(name.size() + 1);
  return nameText(text);
}

}  // namespace Ctl

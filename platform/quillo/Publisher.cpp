#include "quillo/Publisher.h"

#include <fmt/format.h>

#include "quillo/PublisherImpl.h"

namespace Quillo {

Batch::Batch(PublisherImpl& publisher) : publisher_(&publisher), ops_(std::make_unique<BatchOps>()) {
}
Batch::Batch(Batch&&) noexcept = default;
Batch& Batch::operator=(Batch&&) noexcept = default;
Batch::~Batch() = default;

void Batch::add(TableId table, bool deletion, Bytes key, Bytes value) {
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
  std::size_t at = ops_->bytes.size();
  ops_->bytes.append(key);
  ops_->bytes.append(value);
  ops_->list.push_back({table, deletion, at, key.size(), at + key.size(), value.size()});
}

void Batch::put(TableId table, Bytes key, Bytes value) {
  add(table, false, key, value);
}

void Batch::del(TableId table, Bytes key) {
  add(table, true, key, {});
}

bool Batch::empty() const {
  return ops_->list.empty();
}

CommitResult Batch::commit() {
  CommitResult result = publisher_->apply(*ops_, false);
  *ops_ = {};
  return result;
}

Publisher::Publisher(const PublisherConfig& config) : impl_(std::make_unique<PublisherImpl>(config)) {
}
Publisher::~Publisher() = default;

Batch Publisher::begin() {
  return Batch(*impl_);
}

void Publisher::beginFullPass(const std::vector<TableId>& tables) {
  impl_->beginFullPass(tables);
}

bool Publisher::fullPassActive() const {
  return impl_->fullPassActive();
}

CommitResult Publisher::endFullPass() {
  return impl_->endFullPass();
}

std::optional<std::string> Publisher::get(TableId table, Bytes key) const {
  return impl_->get(table, key);
}

std::uint64_t Publisher::seq() const {
  return impl_->seq();
}

std::uint64_t Publisher::generation() const {
  return impl_->generation();
}

const std::string& Publisher::directory() const {
  return impl_->directory();
}

}  // namespace Quillo

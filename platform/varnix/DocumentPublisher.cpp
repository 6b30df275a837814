#include "varnix/DocumentPublisher.h"

#include "kel/Trace.h"
#include "varnix/ByteText.h"
#include "varnix/Document.h"
#include "varnix/TreeWatch.h"

namespace Varnix {
namespace {

Kel::TraceHandle documentPublisherTrace("VarnixPublisher");

std::set<std::string> targetsOf(const Document& document, const Kel::TypeInfo& type) {
  std::set<std::string> targets;
  for (const auto& [name, value] : document.attributes) {
    const auto* path = value.getIf<std::string>();
    if (path && type.find(name)->kind == Kel::AttributeKind::reference) targets.insert(*path);
  }
  return targets;
}

}  // namespace

DocumentPublisher::DocumentPublisher(const Tree& tree, Quillo::Publisher& store)
    : tree_(tree),
      store_(store),
      watch_(std::make_unique<TreeWatch>(tree, [this](const std::string& path) { changed_.insert(path); })) {
}

DocumentPublisher::~DocumentPublisher() = default;

Quillo::CommitResult DocumentPublisher::publish() {
  QTRACE_ENTRY(documentPublisherTrace, this);
  if (changed_.empty()) return {0, store_.seq()};
  auto batch = store_.begin();
  addTo(batch);
  const auto result = batch.commit();
  QTRACE(documentPublisherTrace, 2) << "published " << changed_.size() << " documents, " << result.changes
                                    << " changes";
  published();
  return result;
}

void DocumentPublisher::addTo(Quillo::Batch& batch) {
  auto paths = changed_;
  for (const auto& path : changed_) {
    if (const auto at = referrers_.find(path); at != referrers_.end())
      paths.insert(at->second.begin(), at->second.end());
  }
  // write() deletes the referrers of deleted entities from referrers_, so they must be pending in case the commit
  // fails.
  changed_ = std::move(paths);
  for (const auto& path : changed_) write(batch, path);
}

void DocumentPublisher::published() {
  changed_.clear();
}

Quillo::CommitResult DocumentPublisher::rewriteAll() {
  changed_.insert(all_.begin(), all_.end());
  return publish();
}

Quillo::CommitResult DocumentPublisher::publishAll() {
  store_.beginFullPass({documentTable});
  const auto written = rewriteAll();
  const auto swept = store_.endFullPass();
  return {written.changes + swept.changes, swept.seq};
}

void DocumentPublisher::write(Quillo::Batch& batch, const std::string& path) {
  const auto entity = watch_->entity(path);
  try {
    if (entity) {
      const auto document = documentOf(*entity, *tree_.root);
      batch.put(documentTable, path, documentText(document));
      setReferences(path, targetsOf(document, entity->kelTypeInfo()));
      all_.insert(path);
      return;
    }
  } catch (const Kel::RangeException& error) {
    QTRACE(documentPublisherTrace, 0) << escapeBytes(path) << ": not published: " << error.what();
  }
  setReferences(path, {});
  all_.erase(path);
  if (path.size() <= Quillo::maxKeyBytes) batch.del(documentTable, path);
}

void DocumentPublisher::setReferences(const std::string& path, std::set<std::string> targets) {
  auto& known = targets_[path];
  for (const auto& target : known) {
    const auto at = referrers_.find(target);
    at->second.erase(path);
    if (at->second.empty()) referrers_.erase(at);
  }
  for (const auto& target : targets) referrers_[target].insert(path);
  known = std::move(targets);
  if (known.empty()) targets_.erase(path);
}

}  // namespace Varnix

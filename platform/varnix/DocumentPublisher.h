#pragma once
// Writes a publisher's tree of entities to the store, one document for each entity.
//
//   Varnix::Tree tree(Kel::makePtr<Kel::Dir>(""));
//   Quillo::Publisher store({.name = "quorin-mirrord"});
//   Varnix::DocumentPublisher documents(tree, store);
//   ... fill the tree: tree.ipStatus->ipIntfStatusIs(id)->activeAddrWithMaskIs(addr) ...
//   documents.publishAll();                  // at start: also deletes the documents of entities that the tree lacks
//   ... change the tree: set attributes, create and delete members ...
//   documents.publish();                     // writes the changes since the last call, in one transaction
//
// The publisher watches the tree, so callers need not report changes. A value that is set and set back, or an entity
// that is deleted and created again, causes no write: a put of the present value is a no-op.
//
// Every entity with attributes has a document (Document.h); directories of members have none.

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "quillo/Publisher.h"
#include "varnix/Tree.h"

namespace Varnix {

class TreeWatch;

class DocumentPublisher {
 public:
  // The contents of `tree` at this time count as changed. Lifetime: `store` must outlive this object.
  DocumentPublisher(const Tree& tree, Quillo::Publisher& store);
  ~DocumentPublisher();
  DocumentPublisher(const DocumentPublisher&) = delete;
  DocumentPublisher& operator=(const DocumentPublisher&) = delete;

  // Whether publish() has changes to write.
  bool pending() const { return !changed_.empty(); }

  // Writes and deletes the documents of all changes since the last success, in one commit; no-op without changes.
  // An entity whose document does not fit into the store is traced at level 0 and left out, and its older document
  // deleted; the rest is written.
  // Throws like Quillo::Batch::commit: then nothing was written, all changes stay pending, and the caller retries.
  Quillo::CommitResult publish();

  // The two halves of publish(), for a commit that holds more than documents: addTo() adds the changes to `batch`, and
  // after the commit published() marks them as published. Requires: the tree does not change in between.
  void addTo(Quillo::Batch& batch);
  void published();

  // Writes the documents of the whole tree and deletes all others, as a full pass over the table of documents, which
  // marks the store as complete for readers. Use it at start, and whenever the store may hold documents that the tree
  // lacks. Throws like publish(); retry.
  Quillo::CommitResult publishAll();

  // Writes every document. Requires: the caller has begun a full pass over the table of documents, and ends it. Throws
  // like publish(); retry.
  Quillo::CommitResult rewriteAll();

 private:
  void write(Quillo::Batch& batch, const std::string& path);
  void setReferences(const std::string& path, std::set<std::string> targets);

  Tree tree_;
  Quillo::Publisher& store_;
  std::set<std::string> changed_;  // paths
  std::set<std::string> all_;      // paths of all documents
  // Referrers by target and targets by referrer, as last written: when a target is deleted, its referrers' documents
  // change.
  std::map<std::string, std::set<std::string>> referrers_;
  std::map<std::string, std::set<std::string>> targets_;
  std::unique_ptr<TreeWatch> watch_;
};

}  // namespace Varnix

#pragma once
// Writes a publisher's tree of entities to the store, one document an entity.
//
//   Varnix::Tree tree(Kel::makePtr<Kel::Dir>(""));
//   Quillo::Publisher store({.name = "quorin-mirrord"});
//   Varnix::DocumentPublisher documents(tree, store);
//   ... fill the tree: tree.ipStatus->ipIntfStatusIs(id)->activeAddrWithMaskIs(addr) ...
//   documents.publishAll();                  // at start: what the tree does not hold goes from the store
//   ... change the tree: set attributes, create and delete members ...
//   documents.publish();                     // writes what changed since the last call, in one transaction
//
// The tree is watched: whoever changes it need not say what changed. An entity that was deleted and created again,
// or set to another value and back, costs a serialisation and no write: the store ignores what it holds already.
//
// Every entity that has attributes has a document; the fixed directories of members have none. A reference is
// written as the path of its target; as null when the target is not (or no longer) in the tree.

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
  // `store` must outlive this object. What `tree` holds already counts as changed.
  DocumentPublisher(const Tree& tree, Quillo::Publisher& store);
  ~DocumentPublisher();
  DocumentPublisher(const DocumentPublisher&) = delete;
  DocumentPublisher& operator=(const DocumentPublisher&) = delete;

  // True when publish() would write or delete something.
  bool pending() const { return !changed_.empty(); }

  // Writes and deletes the documents of what changed since the last success, all in one commit; nothing when
  // nothing changed. Throws what Quillo::Batch::commit throws; then nothing is in the store and everything stays
  // pending, so call again. An entity whose document does not fit into the store is traced at level 0 and left out
  // (or, if an older document of it is there, that one is deleted); the rest is written.
  Quillo::CommitResult publish();

  // For a commit of documents and of more: adds what publish() would write to `batch`, and counts it as published
  // when published() tells that the commit succeeded. The tree must not change in between.
  void addTo(Quillo::Batch& batch);
  void published();

  // Writes the documents of the whole tree and deletes all others: at start, and whenever the store may hold what
  // the tree does not. A full pass of the store over the table of documents, which also tells the readers that a
  // complete pass is in. Throws like publish(); call again.
  Quillo::CommitResult publishAll();

  // For a full pass over this table and others, which the caller begins and ends: writes every document, so that
  // all of them count as seen. Throws like publish(); call again.
  Quillo::CommitResult rewriteAll();

 private:
  void write(Quillo::Batch& batch, const std::string& path);
  void referencesAre(const std::string& path, std::set<std::string> targets);

  Tree tree_;
  Quillo::Publisher& store_;
  std::set<std::string> changed_;  // paths
  std::set<std::string> all_;      // paths of everything that has a document
  // Who refers to a path, as last written: when a target goes, its referrers' documents change.
  std::map<std::string, std::set<std::string>> referrers_;
  std::map<std::string, std::set<std::string>> targets_;
  std::unique_ptr<TreeWatch> watch_;
};

}  // namespace Varnix

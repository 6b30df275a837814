#pragma once
// Documents that wait for the entities to which they refer. Internal to TreeLoader.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "varnix/Document.h"

namespace Varnix {

class WaitingDocuments {
 public:
  // Replaces an older document of the path. Requires that `missing`, the paths of the absent targets, is not empty.
  void add(const std::string& path, Document document, std::set<std::string> missing) {
    remove(path);
    for (const auto& target : missing) awaited_[target].insert(path);
    waiting_[path] = {std::move(document), std::move(missing)};
  }
  void remove(const std::string& path) { take(path); }
  std::optional<Document> take(const std::string& path) {
    const auto at = waiting_.find(path);
    if (at == waiting_.end()) return std::nullopt;
    for (const auto& target : at->second.missing) {
      const auto waiters = awaited_.find(target);
      waiters->second.erase(path);
      if (waiters->second.empty()) awaited_.erase(waiters);
    }
    std::optional<Document> document(std::move(at->second.document));
    waiting_.erase(at);
    return document;
  }

  // The paths of the documents that wait for `target`.
  std::vector<std::string> waitingFor(const std::string& target) const {
    const auto at = awaited_.find(target);
    if (at == awaited_.end()) return {};
    return {at->second.begin(), at->second.end()};
  }
  bool empty() const { return waiting_.empty(); }
  const std::string& first() const { return waiting_.begin()->first; }

 private:
  struct Waiting {
    Document document;
    std::set<std::string> missing;
  };
  std::map<std::string, Waiting> waiting_;                // by path
  std::map<std::string, std::set<std::string>> awaited_;  // by target
};

}  // namespace Varnix

#pragma once
// Documents whose attributes wait for the entities that they refer to. Internal to the entity manager.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "varnix/Document.h"

namespace Varnix {

class WaitingDocuments {
 public:
  // In the place of an older document of that path. `missing` is not empty.
  void documentIs(const std::string& path, Document document, std::set<std::string> missing) {
    documentDel(path);
    for (const auto& target : missing) awaited_[target].insert(path);
    waiting_[path] = {std::move(document), std::move(missing)};
  }
  void documentDel(const std::string& path) { take(path); }
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

  // The paths of those that wait for `target`.
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

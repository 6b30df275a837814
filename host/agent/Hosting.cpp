#include "host/agent/Hosting.h"

#include <memory>

#include "host/composition/Composition.h"

namespace Host {

namespace {

class Hosted {
 public:
  void start(AgentLoop& loop, const AgentOptions& options) {
    loop_ = &loop;
    options_ = options;
    Composition::netnsDirectoryIs(options_.netnsDirectory);
    make();
  }
  void reconfigure() {
    Composition::netnsDirectoryIs(options_.netnsDirectory);
    // There is none when the last attempt failed.
    if (composition_ && composition_->storeDirectory() == storeDirectory()) {
      composition_->reconfigure();
      return;
    }
    composition_.reset();
    make();
  }
  void stop() { composition_.reset(); }

 private:
  std::string storeDirectory() const {
    return options_.storeDirectory.empty() ? Composition::configuredStoreDirectory() : options_.storeDirectory;
  }
  void make() {
    composition_ = std::make_unique<Composition>(
        *loop_, storeDirectory(), options_.isSubagent ? SharedGroups::ofSubagent() : SharedGroups::ofMaster());
  }

  AgentLoop* loop_ = nullptr;
  AgentOptions options_;
  std::unique_ptr<Composition> composition_;
};

}  // namespace

AgentHooks compositionHooks() {
  const auto hosted = std::make_shared<Hosted>();
  return {
      .started = [hosted](AgentLoop& loop, const AgentOptions& options) { hosted->start(loop, options); },
      .reconfigured = [hosted] { hosted->reconfigure(); },
      .stopping = [hosted] { hosted->stop(); },
  };
}

}  // namespace Host

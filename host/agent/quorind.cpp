// The program quorind: a Composition in its own process, standalone or as subagent of a running snmpd.

#include <memory>

#include "host/agent/AgentMain.h"
#include "host/composition/Composition.h"

namespace Host {

namespace {

// Owns the Composition of the process, and replaces it when the configuration changes the store directory.
class Hosted {
 public:
  void start(AgentLoop& loop, const AgentOptions& options) {
    loop_ = &loop;
    options_ = options;
    Composition::setNetnsDirectory(options_.netnsDirectory);
    make();
  }
  void reconfigure() {
    Composition::setNetnsDirectory(options_.netnsDirectory);
    // Null if the last attempt failed.
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

}  // namespace Host

int main(int argc, char* argv[]) {
  Host::Hosted hosted;
  return Host::agentMain(
      argc, argv,
      {.started = [&](Host::AgentLoop& loop, const Host::AgentOptions& options) { hosted.start(loop, options); },
       .reconfigured = [&] { hosted.reconfigure(); },
       .stopping = [&] { hosted.stop(); }});
}

// The program quorind: a Composition in its own process, standalone or as subagent of a running snmpd.

#include <memory>

#include "host/agent/AgentMain.h"
#include "host/composition/Composition.h"

// jemalloc's own settings. net-snmp allocates 64 KiB for each packet, which by default is too large for the cache of
// the thread; this is the logarithm of 128 KiB. Another allocator ignores it.
extern "C" {
__attribute__((visibility("default"))) const char* malloc_conf = "lg_tcache_max:17";
}

namespace Host {

namespace {

// Owns the Composition of the process.
class Hosted {
 public:
  void start(AgentLoop& loop, const AgentOptions& options) {
    loop_ = &loop;
    options_ = options;
    update();
  }
  void update() {
    Composition::setNetnsDirectory(options_.netnsDirectory);
    const auto directory =
        options_.storeDirectory.empty() ? Composition::configuredStoreDirectory() : options_.storeDirectory;
    Composition::update(composition_, *loop_, directory,
                        options_.isSubagent ? SharedGroups::ofSubagent() : SharedGroups::ofMaster());
  }
  void stop() { composition_.reset(); }

 private:
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
       .reconfigured = [&] { hosted.update(); },
       .stopping = [&] { hosted.stop(); }});
}

// quorinctl dump: the store as a switch file.

#include <memory>

#include "ctl/Commands.h"
#include "ctl/Output.h"
#include "ctl/StoreReader.h"
#include "ctl/SwitchFile.h"
#include "ctl/SwitchStore.h"
#include "varnix/ByteText.h"

namespace Ctl {

namespace {

void note(const std::string& line) {
  fmt::print(stderr, "quorinctl: {}\n", line);
}

std::string existingVrfs(const Varnix::Tree& tree) {
  std::vector<std::string> names;
  for (const auto& [name, id] : tree.vrfNameStatus->vrfId())
    names.push_back(Varnix::escapeBytes(name.stringValue()));
  return fmt::format("{}", fmt::join(names, ", "));
}

Exit dump(const std::string& directory, const std::string& vrf) {
  const StoreReader store(directory);
  bool isWhole = true;
  const auto leftOut = [&](const std::string& line) {
    isWhole = false;
    note(line);
  };
  const SwitchState state = switchFromStore(*store.mount(), leftOut);
  SwitchWriting writing{.vrf = std::nullopt, .leftOut = leftOut};
  if (!vrf.empty()) {
    writing.vrf = L3::VrfName(Varnix::unescapeBytes(vrf));
    if (!state.tree.vrfNameStatus->vrfIdHas(*writing.vrf)) {
      throw Failure(Exit::unknown,
                    fmt::format("--vrf: the store has no VRF '{}'; it has {}", vrf, existingVrfs(state.tree)));
    }
  }
  writeSwitch(state, writing, writeOut);
  return isWhole ? Exit::ok : Exit::warning;
}

}  // namespace

Action addDump(CLI::App& app, const Options& options) {
  const auto vrf = std::make_shared<std::string>();
  app.add_option("-V,--vrf", *vrf, "Only this VRF")->type_name("VRF");
  return [&options, vrf] { return dump(options.store, *vrf); };
}

}  // namespace Ctl

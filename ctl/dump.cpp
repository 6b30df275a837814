// quorinctl dump: the store as a switch file.

#include <cerrno>
#include <cstring>
#include <memory>

#include "ctl/Commands.h"
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

void writePart(std::string_view part) {
  if (std::fwrite(part.data(), 1, part.size(), stdout) == part.size()) return;
  throw Failure(Exit::unknown, fmt::format("cannot write standard output: {}; check the space on its file system",
                                           std::strerror(errno)));
}

Exit dump(const std::string& directory, const std::string& vrf) {
  const auto mount = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{directory});
  mount->refresh();
  if (mount->state() != Quillo::Mount::State::ready) {
    const bool isMissing = mount->state() == Quillo::Mount::State::waiting;
    throw Failure(isMissing ? Exit::critical : Exit::unknown, mount->stateText());
  }
  bool isWhole = true;
  const auto leftOut = [&](const std::string& line) {
    isWhole = false;
    note(line);
  };
  const SwitchState state = switchFromStore(*mount, leftOut);
  SwitchWriting writing{.vrf = std::nullopt, .leftOut = leftOut};
  if (!vrf.empty()) {
    writing.vrf = L3::VrfName(Varnix::unescapeBytes(vrf));
    if (!state.tree.vrfNameStatus->vrfIdHas(*writing.vrf)) {
      throw Failure(Exit::unknown,
                    fmt::format("--vrf: the store has no VRF '{}'; it has {}", vrf, existingVrfs(state.tree)));
    }
  }
  writeSwitch(state, writing, writePart);
  return isWhole ? Exit::ok : Exit::warning;
}

}  // namespace

Action addDump(CLI::App& app, const Options& options) {
  const auto vrf = std::make_shared<std::string>();
  app.add_option("-V,--vrf", *vrf, "Only this VRF")->type_name("VRF");
  return [&options, vrf] { return dump(options.store, *vrf); };
}

}  // namespace Ctl

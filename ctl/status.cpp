#include "ctl/Commands.h"
#include "quillo/Mount.h"

namespace Ctl {

Action addStatus(CLI::App&, const Options& options) {
  return [&options] {
    auto mount = Kel::makePtr<Quillo::Mount>(Quillo::MountConfig{options.store});
    mount->refresh();
    if (mount->state() != Quillo::Mount::State::ready) throw Failure(Exit::critical, mount->stateText());
    fmt::print("OK - the store in {} can be read\n", options.store);
    return Exit::ok;
  };
}

}  // namespace Ctl

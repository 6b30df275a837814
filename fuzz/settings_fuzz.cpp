// The mirror's configuration file.

#include <cstdlib>
#include <string>

#include "mirror/vrf/VrfSettings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    Mirror::vrfSettingsFromText(std::string(data, data + size), "mirror.yaml");
  } catch (const Kel::Exception& error) {
    const std::string_view text = error.what();
    if (!text.starts_with("mirror.yaml:") || text.find('\n') != text.npos) std::abort();
  }
  return 0;
}

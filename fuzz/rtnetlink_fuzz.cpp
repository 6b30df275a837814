// One netlink message, as the kernel's socket delivers it.

#include <algorithm>
#include <cstring>
#include <memory>

#include "mirror/rtnetlink/RtMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < sizeof(nlmsghdr)) return 0;
  // In a block of just the size, so that a sanitizer sees a read beyond it. The socket guarantees the length.
  const auto bytes = std::make_unique<std::uint8_t[]>(size);
  std::copy(data, data + size, bytes.get());
  const auto length = static_cast<std::uint32_t>(size);
  std::memcpy(bytes.get(), &length, sizeof length);
  try {
    Mirror::decode(*reinterpret_cast<const nlmsghdr*>(bytes.get()));
  } catch (const Kel::Exception&) {
  }
  return 0;
}

#include "quillo/tables/Fec.h"

#include <fmt/format.h>

#include <charconv>

namespace Quillo::Fib {

FecId FecId::fromString(std::string_view text) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) {
    throw Kel::RangeException(fmt::format("FecId: {:?} is no FEC id; expected decimal digits", text));
  }
  return FecId(value);
}

}  // namespace Quillo::Fib

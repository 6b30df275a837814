#include "vantu/IntfId.h"

#include <fmt/format.h>

#include "kel/Errors.h"

namespace Vantu {

IntfId::IntfId(std::string_view text) : text_(text) {
  if (text.size() > maxLength) {
    throw Kel::RangeException(fmt::format("IntfId: an id of {} bytes, {:?}..., is too long; expected at most {}",
                                          text.size(), text.substr(0, 32), maxLength));
  }
}

std::string_view IntfId::localName() const {
  const std::string_view text = text_;
  const auto slash = text.rfind('/');
  return slash == std::string_view::npos ? text : text.substr(slash + 1);
}

}  // namespace Vantu

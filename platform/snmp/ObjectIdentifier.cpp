#include "snmp/ObjectIdentifier.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <charconv>

#include "kel/Errors.h"

namespace Snmp {
namespace {

void checkLength(std::size_t length) {
  if (length <= ObjectIdentifier::maxLength) return;
  throw Kel::RangeException(fmt::format("an object identifier of {} sub-identifiers: at most {} are allowed",
                                        length, ObjectIdentifier::maxLength));
}

}  // namespace

ObjectIdentifier::ObjectIdentifier(std::initializer_list<SubIdentifier> subIdentifiers)
    : ObjectIdentifier(std::span(subIdentifiers.begin(), subIdentifiers.size())) {
}

ObjectIdentifier::ObjectIdentifier(std::span<const SubIdentifier> subIdentifiers)
    : words_(subIdentifiers.begin(), subIdentifiers.end()) {
  checkLength(words_.size());
}

ObjectIdentifier ObjectIdentifier::fromString(std::string_view text) {
  ObjectIdentifier result;
  if (text.empty()) return result;
  const char* at = text.data();
  const char* const end = at + text.size();
  if (*at == '.') ++at;
  for (;;) {
    SubIdentifier word = 0;
    const auto [next, error] = std::from_chars(at, end, word);
    const bool wellFormed = error == std::errc() && (next == end || *next == '.');
    if (!wellFormed) {
      throw Kel::RangeException(fmt::format(
          "'{}' is no object identifier: write numbers below 4294967296 joined by dots, as in 1.3.6.1.2.1.4.20",
          text));
    }
    result.append(word);
    if (next == end) return result;
    at = next + 1;
  }
}

Kel::String ObjectIdentifier::stringValue() const {
  return fmt::format("{}", fmt::join(words_, "."));
}

void ObjectIdentifier::append(SubIdentifier subIdentifier) {
  checkLength(words_.size() + 1);
  words_.push_back(subIdentifier);
}

}  // namespace Snmp

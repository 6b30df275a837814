#include "varnix/ByteText.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/locale/utf.hpp>
#include <charconv>

#include "kel/Errors.h"

namespace Varnix {
namespace {

bool standsForItself(boost::locale::utf::code_point point) {
  return boost::locale::utf::is_valid_codepoint(point) && point >= 0x20 && point != 0x7f && point != '\\';
}

// Whether a byte is a character of its own that is not escaped.
bool isPlain(char byte) {
  return byte >= 0x20 && byte < 0x7f && byte != '\\';
}

}  // namespace

std::string escapeBytes(std::string_view bytes) {
  if (std::ranges::all_of(bytes, isPlain)) return std::string(bytes);  // as nearly every text is
  std::string text;
  text.reserve(bytes.size());
  const char* const end = bytes.data() + bytes.size();
  for (const char* at = bytes.data(); at != end;) {
    const char* next = at;
    if (standsForItself(boost::locale::utf::utf_traits<char>::decode(next, end))) {
      text.append(at, next);
      at = next;
    } else {
      text += fmt::format("\\x{:02x}", static_cast<unsigned char>(*at++));
    }
  }
  return text;
}

bool isUtf8(std::string_view bytes) {
  const char* const end = bytes.data() + bytes.size();
  for (const char* at = bytes.data(); at != end;) {
    const auto point = boost::locale::utf::utf_traits<char>::decode(at, end);
    if (!boost::locale::utf::is_valid_codepoint(point)) return false;
  }
  return true;
}

std::string unescapeBytes(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\') {
      bytes.push_back(text[at]);
      continue;
    }
    unsigned value = 0;
    const char* const digits = text.data() + at + 2;
    const bool isWhole = text.size() - at >= 4 && text[at + 1] == 'x';
    if (!isWhole || std::from_chars(digits, digits + 2, value, 16).ptr != digits + 2) {
      throw Kel::RangeException(
          fmt::format("a backslash that does not begin \\xNN (two hexadecimal digits) in '{}'", escapeBytes(text)));
    }
    bytes.push_back(static_cast<char>(static_cast<unsigned char>(value)));
    at += 3;
  }
  return bytes;
}

}  // namespace Varnix

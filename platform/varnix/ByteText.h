#pragma once
// Escapes byte strings, such as names, for JSON and log lines, which hold UTF-8.
//
// Control characters (0x00 to 0x1f, 0x7f), the backslash, and bytes outside well-formed UTF-8 become "\xNN" with two
// lower-case hexadecimal digits; all other characters stay unchanged. The VRF name "a\b" becomes "a\x5cb", the byte
// 0xff "\xff".

#include <string>
#include <string_view>

namespace Varnix {

std::string escapeBytes(std::string_view bytes);

bool isUtf8(std::string_view bytes);

// The inverse of escapeBytes. Throws Kel::RangeException when a backslash does not begin "\xNN".
std::string unescapeBytes(std::string_view text);

}  // namespace Varnix

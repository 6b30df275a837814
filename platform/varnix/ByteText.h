#pragma once
// Byte strings as text.
//
// Names may hold any bytes; JSON and log lines hold UTF-8. So bytes that are not part of well-formed UTF-8, control
// characters (0x00 to 0x1f, 0x7f) and the backslash are written as "\xNN" with two lower-case hexadecimal digits;
// everything else stands for itself. The VRF name "a\b" reads "a\x5cb", the single byte 0xff reads "\xff".

#include <string>
#include <string_view>

namespace Varnix {

std::string escapeBytes(std::string_view bytes);

// The inverse. Throws Kel::RangeException when a backslash does not begin "\xNN".
std::string unescapeBytes(std::string_view text);

}  // namespace Varnix

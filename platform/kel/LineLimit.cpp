#include "kel/LineLimit.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Kel {
namespace {

constexpr std::size_t longestKind = 200;     // characters; lines that differ only behind them are of one kind
constexpr std::size_t longestReport = 1000;  // characters of a line that is kept

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// Whether `c` is part of an address, number, OID or name. Quotes and brackets separate words.
bool isOfWord(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == ':' || c == '-' ||
         c == '_' || c == '/';
}

// Replaces each word that has a digit by "#".
std::string kindOf(std::string_view text) {
  std::string kind;
  while (!text.empty() && kind.size() < longestKind) {
    std::size_t length = 0;
    bool hasDigit = false;
    for (; length < text.size() && isOfWord(text[length]); ++length) hasDigit = hasDigit || isDigit(text[length]);
    if (hasDigit) {
      kind += '#';
    } else {
      kind += text.substr(0, length);
    }
    if (length < text.size()) kind += text[length++];
    text.remove_prefix(length);
  }
  kind.resize(std::min(kind.size(), longestKind));
  return kind;
}

constexpr std::string_view anyOther;  // no line is empty

}  // namespace

bool LineLimit::admits(std::string_view source, std::string_view text) {
  if (!isOn_) return true;
  auto& kinds = sources_.try_emplace(std::string(source)).first->second;
  auto found = kinds.find(kindOf(text));
  if (found == kinds.end()) {
    found = kinds.try_emplace(kinds.size() < kindsPerSource ? kindOf(text) : std::string(anyOther)).first;
  }
  auto& kind = found->second;
  if (kind.admitted < linesPerKind) {
    kind.admitted++;
    return true;
  }
  kind.repeated++;
  kind.latest = text.substr(0, longestReport);
  return false;
}

void LineLimit::beginPeriod(const Write& write) {
  isOn_ = true;
  for (const auto& [source, kinds] : std::exchange(sources_, {})) {
    for (const auto& [name, kind] : kinds) {
      if (kind.repeated == 0) continue;
      write(source, name == anyOther ? fmt::format("{} ... and {} other lines", kind.latest, kind.repeated - 1)
                                     : fmt::format("{} ... repeated {} times", kind.latest, kind.repeated));
    }
  }
}

}  // namespace Kel

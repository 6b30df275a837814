#pragma once
// YAML text as a small tree that knows its lines, and the texts of names in it.
//
// yaml-cpp parses. Its own tree takes some kilobytes for an entry of a list, so a list of a million routes must not
// become one: `take` gets each entry of a long list, and the entry is then freed.

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kel/Errors.h"

namespace Ctl {

// A fault in a YAML text: "FILE:LINE: KEY: what is wrong; what to do".
class YamlException : public Kel::Exception {
 public:
  using Exception::Exception;
};

struct YamlNode {
  enum class Kind { null, scalar, list, map };
  Kind kind = Kind::null;
  int line = 0;                      // from 1
  bool isQuoted = false;             // of a scalar
  std::string text = {};             // of a scalar
  std::vector<YamlNode> items = {};  // the entries of a list; the keys and values of a map in turn

  // Null without such a key. Requires: a map.
  const YamlNode* value(std::string_view key) const;
};

// The keys that lead to a list, from the root.
using YamlPath = std::vector<std::string_view>;

struct YamlReading {
  std::string file;  // for messages
  // Takes an entry of the list at `path`; returns false to leave it in the tree.
  std::function<bool(const YamlPath& path, const YamlNode& entry)> take = {};
  // Called now and then with the part of the text that was read, 0 to 1.
  std::function<void(double part)> progress = {};
};

// The text's only document. Throws YamlException.
YamlNode yamlFromText(const std::string& text, const YamlReading& reading);

// A name of any bytes as a YAML scalar, in the notation of Varnix::escapeBytes. In quotes unless it is a plain word.
std::string yamlName(std::string_view name);

}  // namespace Ctl

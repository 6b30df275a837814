#pragma once
// Parses YAML text into a small tree with line numbers, and writes names as YAML.
//
// yaml-cpp parses, but its own tree needs some kilobytes for an entry of a list: too much for a million routes. So
// `take` can consume the entries of a long list one at a time; each is freed afterwards.

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
  std::vector<YamlNode> items = {};  // the entries of a list; key, value, key, value, ... of a map

  // The value of `key`; null if the map does not have it. Requires: a map.
  const YamlNode* value(std::string_view key) const;
};

// The keys that lead to a list, from the root. Lifetime: the views are valid during the call of `take`.
using YamlPath = std::vector<std::string_view>;

struct YamlReading {
  std::string file;  // for messages
  // Called with each entry of a list at `path`, if only maps are above that list. Returns true if it has consumed the
  // entry, which is then freed; false leaves the entry in the tree. An exception ends the reading.
  std::function<bool(const YamlPath& path, const YamlNode& entry)> take = {};
  // Called repeatedly with the fraction of the text that was read, 0 to 1.
  std::function<void(double part)> progress = {};
};

// Parses the text's only document; an empty text is a null node. Throws YamlException for bad YAML, an alias, or a
// second document.
YamlNode yamlFromText(const std::string& text, const YamlReading& reading);

// A name of any bytes as a YAML scalar, escaped by Varnix::escapeBytes(). In quotes unless every YAML reader takes it
// for text without them.
std::string yamlName(std::string_view name);

}  // namespace Ctl

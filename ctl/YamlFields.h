#pragma once
// Reads values from nodes of a YAML text. The exception for a wrong value names its place.
//
//   const std::string file = "leaf-switch.yaml";  // must outlive `fields`
//   const YamlFields fields(file);
//   fields.checkKeys(node, "vrfs.red", {"id", "routes"});
//   if (const auto* id = node.value("id")) use(fields.number<std::uint32_t>(*id, "vrfs.red.id", 1));
//
// Throws: every operation of YamlFields throws YamlException, "FILE:LINE: KEY: what is wrong; what to do". `path` is
// the KEY, `advice` what to do.

#include <fmt/format.h>

#include <boost/describe.hpp>
#include <boost/mp11.hpp>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/YamlText.h"
#include "kel/Name.h"
#include "kel/Value.h"
#include "vantu/IntfId.h"
#include "varnix/ByteText.h"

namespace Ctl {

// The word for an enumerator: "up" for operStatusUp with the prefix "operStatus".
// Requires: the enumerator's name is `prefix` and at least one letter.
template <class E>
std::string enumWord(E value, std::string_view prefix) {
  std::string name = Kel::enumName(value).substr(prefix.size());
  name[0] = static_cast<char>(name[0] | 0x20);
  return name;
}

class YamlFields {
 public:
  using Keys = std::initializer_list<std::string_view>;

  // Lifetime: `file` must outlive this object and its copies.
  explicit YamlFields(const std::string& file) : file_(file) {}

  // Throws the YamlException of this place.
  [[noreturn]] void fail(int line, std::string_view path, std::string_view what, std::string_view advice) const;
  [[noreturn]] void fail(const YamlNode& node, std::string_view path, std::string_view what,
                         std::string_view advice) const {
    fail(node.line, path, what, advice);
  }

  // Throws unless the node is a map with only these keys, each at most once.
  void checkKeys(const YamlNode& node, std::string_view path, Keys known) const;
  // Throws unless the node is null or of this kind (list or map).
  void checkKind(const YamlNode& node, YamlNode::Kind kind, std::string_view path, std::string_view advice) const;

  // Returns from(text of the scalar). The text of a Kel::RangeException thrown by from() becomes the "what is wrong".
  template <class Read>
  auto text(const YamlNode& node, std::string_view path, std::string_view advice, const Read& from) const {
    if (node.kind != YamlNode::Kind::scalar) fail(node, path, "it is no text", advice);
    try {
      return from(node.text);
    } catch (const Kel::RangeException& error) {
      fail(node, path, error.what(), advice);
    }
  }

  // An integer from `least` to `most`.
  template <class Number>
  Number number(const YamlNode& node, std::string_view path, Number least = 0,
                Number most = std::numeric_limits<Number>::max()) const {
    const auto value = Kel::numberFromText<Number>(node.text);
    if (node.kind != YamlNode::Kind::scalar || !value || *value < least || *value > most) {
      fail(node, path, fmt::format("'{}' is no number there", Varnix::escapeBytes(node.text)),
           fmt::format("use {} to {}", least, most));
    }
    return *value;
  }

  // A decimal number, at least 0 and below 1e18.
  double decimal(const YamlNode& node, std::string_view path) const;
  // true or false; returns `absent` if `node` is a null pointer.
  bool flag(const YamlNode* node, std::string_view path, bool absent) const;

  // Returns the enumerator whose enumWord() equals the scalar (word) or `given` (wordOf).
  template <class E>
  E word(const YamlNode& node, std::string_view path, std::string_view prefix) const {
    return wordOf<E>(node, node.text, path, prefix);
  }
  template <class E>
  E wordOf(const YamlNode& node, std::string_view given, std::string_view path, std::string_view prefix) const {
    std::optional<E> found;
    std::vector<std::string> words;
    boost::mp11::mp_for_each<boost::describe::describe_enumerators<E>>([&](auto d) {
      words.push_back(enumWord(d.value, prefix));
      if (words.back() == given) found = d.value;
    });
    if (node.kind == YamlNode::Kind::scalar && found) return *found;
    fail(node, path, fmt::format("'{}' is none of its words", Varnix::escapeBytes(given)),
         fmt::format("use {}", fmt::join(words, ", ")));
  }

  // A non-empty interface name; escapes are decoded (varnix/ByteText.h).
  Vantu::IntfId interfaceName(const YamlNode& node, std::string_view path) const;
  // The value of `count` in a map, 1 to 16,000,000; 1 if absent.
  std::uint32_t count(const YamlNode& node, std::string_view path) const;

 private:
  const std::string& file_;
};

}  // namespace Ctl

#include "ctl/YamlFields.h"

#include <algorithm>
#include <charconv>

namespace Ctl {

namespace {

constexpr std::uint32_t maxCount = 16'000'000;

}  // namespace

void YamlFields::fail(int line, std::string_view path, std::string_view what, std::string_view advice) const {
  throw YamlException(fmt::format("{}:{}: {}: {}; {}", file_, line, path, what, advice));
}

void YamlFields::checkKeys(const YamlNode& node, std::string_view path, Keys known) const {
  const auto list = [&] { return fmt::format("the keys are {}", fmt::join(known, ", ")); };
  if (node.kind != YamlNode::Kind::map) fail(node, path, "it has no keys", list());
  for (std::size_t at = 0; at < node.items.size(); at += 2) {
    const YamlNode& key = node.items[at];
    if (std::find(known.begin(), known.end(), key.text) == known.end()) {
      fail(key, path, fmt::format("'{}' is no key of it", Varnix::escapeBytes(key.text)), list());
    }
    for (std::size_t other = 0; other < at; other += 2) {
      if (node.items[other].text == key.text) {
        fail(key, path, fmt::format("'{}' is there twice", key.text), "remove one");
      }
    }
  }
}

void YamlFields::checkKind(const YamlNode& node, YamlNode::Kind kind, std::string_view path,
                           std::string_view advice) const {
  if (node.kind == kind || node.kind == YamlNode::Kind::null) return;
  fail(node, path, kind == YamlNode::Kind::list ? "it is no list" : "it has no keys", advice);
}

double YamlFields::decimal(const YamlNode& node, std::string_view path) const {
  double value = 0;
  const char* end = node.text.data() + node.text.size();
  const auto [stop, error] = std::from_chars(node.text.data(), end, value);
  if (node.kind != YamlNode::Kind::scalar || error != std::errc() || stop != end || !(value >= 0 && value < 1e18)) {
    fail(node, path, fmt::format("'{}' is no number there", Varnix::escapeBytes(node.text)),
         "use a number of at least 0, such as 1500 or 0.5");
  }
  return value;
}

bool YamlFields::flag(const YamlNode* node, std::string_view path, bool absent) const {
  if (!node) return absent;
  if (node->text == "true" || node->text == "false") return node->text == "true";
  fail(*node, path, "it is neither", "use true or false");
}

Vantu::IntfId YamlFields::interfaceName(const YamlNode& node, std::string_view path) const {
  const auto name = text(node, path, "write the interface's name",
                         [](const std::string& given) { return Vantu::IntfId(Varnix::unescapeBytes(given)); });
  if (!name.isValid()) fail(node, path, "the name is empty", "write the interface's name");
  return name;
}

std::uint32_t YamlFields::count(const YamlNode& node, std::string_view path) const {
  const auto* given = node.value("count");
  return given ? number<std::uint32_t>(*given, fmt::format("{}.count", path), 1, maxCount) : 1;
}

}  // namespace Ctl

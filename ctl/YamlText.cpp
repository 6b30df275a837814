#include "ctl/YamlText.h"

#include <fmt/format.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <array>
#include <sstream>

#include "varnix/ByteText.h"

namespace Ctl {

namespace {

[[noreturn]] void failAt(const YamlReading& reading, const YAML::Mark& mark, const std::string& what,
                         const std::string& advice) {
  const std::string place = mark.is_null() ? reading.file : fmt::format("{}:{}", reading.file, mark.line + 1);
  throw YamlException(fmt::format("{}: YAML: {}; {}", place, Varnix::escapeBytes(what), advice));
}

class YamlBuilder : public YAML::EventHandler {
 public:
  YamlBuilder(const YamlReading& reading, std::size_t size) : reading_(reading), size_(size) {}

  YamlNode root;

  void OnDocumentStart(const YAML::Mark& mark) override {
    if (hasDocument_) failAt(reading_, mark, "a second document begins", "write a file for each switch");
    hasDocument_ = true;
  }
  void OnDocumentEnd() override {}
  void OnNull(const YAML::Mark& mark, YAML::anchor_t) override { add(node(YamlNode::Kind::null, mark)); }
  void OnAlias(const YAML::Mark& mark, YAML::anchor_t) override {
    failAt(reading_, mark, "aliases are not understood here", "write the value out");
  }
  void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t, const std::string& value) override {
    YamlNode scalar = node(YamlNode::Kind::scalar, mark);
    scalar.isQuoted = tag == "!";
    scalar.text = value;
    add(std::move(scalar));
  }
  void OnSequenceStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t,
                       YAML::EmitterStyle::value) override {
    open_.push_back(node(YamlNode::Kind::list, mark));
  }
  void OnSequenceEnd() override { close(); }
  void OnMapStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t, YAML::EmitterStyle::value) override {
    open_.push_back(node(YamlNode::Kind::map, mark));
  }
  void OnMapEnd() override { close(); }

 private:
  YamlNode node(YamlNode::Kind kind, const YAML::Mark& mark) {
    YamlNode made;
    made.kind = kind;
    made.line = mark.line + 1;
    at_ = mark.pos;
    return made;
  }

  void close() {
    YamlNode made = std::move(open_.back());
    open_.pop_back();
    add(std::move(made));
  }

  void add(YamlNode made) {
    if (open_.empty()) {
      root = std::move(made);
      return;
    }
    if (open_.back().kind == YamlNode::Kind::list && isTaken(made)) return;
    open_.back().items.push_back(std::move(made));
  }

  bool isTaken(const YamlNode& entry) {
    if (++entries_ % 1024 == 0 && reading_.progress) {
      reading_.progress(std::min(1.0, static_cast<double>(at_) / static_cast<double>(size_)));
    }
    if (!reading_.take) return false;
    path_.clear();
    for (std::size_t depth = 0; depth + 1 < open_.size(); ++depth) {
      if (open_[depth].kind != YamlNode::Kind::map || open_[depth].items.size() % 2 == 0) return false;
      path_.push_back(open_[depth].items.back().text);
    }
    return reading_.take(path_, entry);
  }

  const YamlReading& reading_;
  std::size_t size_;
  std::vector<YamlNode> open_;  // from the outermost; a map that awaits a value ends with its key
  YamlPath path_;
  std::size_t entries_ = 0;
  bool hasDocument_ = false;
  int at_ = 0;  // in the text
};

// Words that YAML 1.1 or 1.2 readers take for another value than a text.
constexpr std::array<std::string_view, 10> reserved{"true", "false", "null", "yes", "no",
                                                    "on",   "off",   "y",    "n",   "nan"};

bool isWordByte(char byte) {
  return (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         std::string_view("_./-").find(byte) != std::string_view::npos;
}

bool isPlain(std::string_view text) {
  const bool beginsWithLetter = !text.empty() && (text[0] | 0x20) >= 'a' && (text[0] | 0x20) <= 'z';
  if (!beginsWithLetter || !std::all_of(text.begin(), text.end(), isWordByte)) return false;
  std::string lower(text);
  for (char& byte : lower) byte = static_cast<char>(byte | (byte >= 'A' && byte <= 'Z' ? 0x20 : 0));
  return std::find(reserved.begin(), reserved.end(), lower) == reserved.end();
}

}  // namespace

const YamlNode* YamlNode::value(std::string_view key) const {
  for (std::size_t at = 0; at + 1 < items.size(); at += 2) {
    if (items[at].kind == Kind::scalar && items[at].text == key) return &items[at + 1];
  }
  return nullptr;
}

YamlNode yamlFromText(const std::string& text, const YamlReading& reading) {
  YamlBuilder builder(reading, text.size());
  try {
    std::istringstream in(text);
    YAML::Parser parser(in);
    while (parser.HandleNextDocument(builder)) {
    }
  } catch (const YAML::Exception& error) {
    failAt(reading, error.mark, error.msg, "correct the text there");
  }
  return std::move(builder.root);
}

std::string yamlName(std::string_view name) {
  const std::string text = Varnix::escapeBytes(name);
  if (isPlain(text)) return text;
  std::string quoted = "'";
  for (const char byte : text) quoted.append(byte == '\'' ? 2 : 1, byte);
  return quoted + "'";
}

}  // namespace Ctl

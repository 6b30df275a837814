#include "kel/SharedText.h"

#include <boost/unordered/unordered_flat_set.hpp>

namespace Kel {

// Every Text, found by its text.
class SharedText::Texts {
 public:
  // Never destroyed, since static objects with a SharedText may outlast those of this source.
  static auto& all() {
    static auto* const texts = new boost::unordered_flat_set<const Text*, ByText, ByText>;
    return *texts;
  }

 private:
  struct ByText {
    using is_transparent = void;
    static std::string_view textOf(std::string_view text) { return text; }
    static std::string_view textOf(const Text* text) { return text->text; }
    std::size_t operator()(const auto& key) const { return std::hash<std::string_view>()(textOf(key)); }
    bool operator()(const auto& a, const auto& b) const { return textOf(a) == textOf(b); }
  };
};

SharedText::SharedText(std::string_view text) {
  if (text.empty()) return;
  const auto known = Texts::all().find(text);
  text_ = known != Texts::all().end() ? *known : new Text(text);
}

SharedText::Text::Text(std::string_view from) : text(from) {
  Texts::all().insert(this);
}

SharedText::Text::~Text() {
  Texts::all().erase(this);
}

const String& SharedText::noText() {
  static const String none;
  return none;
}

}  // namespace Kel

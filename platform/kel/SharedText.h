#pragma once
// A text that many objects hold. It takes 8 bytes, and copies are cheap: all SharedTexts of the process with the same
// text share it. Ordered by unsigned bytes. Thread: sharing is not locked; all SharedTexts stay on one thread.

#include <compare>
#include <cstddef>
#include <functional>
#include <string_view>

#include "kel/Name.h"
#include "kel/Ptr.h"

namespace Kel {

class SharedText {
 public:
  SharedText() = default;  // the empty text
  explicit SharedText(std::string_view text);

  bool empty() const { return text_ == nullptr; }
  const String& text() const { return text_ ? text_->text : noText(); }
  std::size_t hash() const { return std::hash<const Text*>{}(text_.get()); }
  friend bool operator==(const SharedText& a, const SharedText& b) { return a.text_ == b.text_; }
  friend std::strong_ordering operator<=>(const SharedText& a, const SharedText& b) {
    return a == b ? std::strong_ordering::equal : a.text() <=> b.text();
  }

 private:
  // The only one with its text, which is not empty.
  struct Text : PtrInterface {
    explicit Text(std::string_view from);
    ~Text() override;
    const String text;
  };
  class Texts;

  static const String& noText();

  Ptr<const Text> text_;  // null: the empty text
};

}  // namespace Kel

#include "varnix/Document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "varnix/ByteText.h"
#include "varnix/Values.h"

namespace Varnix {
namespace {

using ::testing::HasSubstr;

TEST(ByteText, showsWellFormedTextAsItIsAndEscapesTheRest) {
  const std::string text = "Ethernet1.100/\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80";
  EXPECT_EQ(escapeBytes(text), text);
  EXPECT_TRUE(isUtf8(text) && isUtf8("\n\\") && !isUtf8("a\xff") && !isUtf8("\xc3"));
  EXPECT_EQ(escapeBytes(std::string_view("a\0b\n\\\x7f\xff", 7)), "a\\x00b\\x0a\\x5c\\x7f\\xff");
  EXPECT_EQ(escapeBytes("\xc3"), "\\xc3");                    // cut short
  EXPECT_EQ(escapeBytes("\xc0\x80"), "\\xc0\\x80");           // longer than need be
  EXPECT_EQ(escapeBytes("\xed\xa0\x80"), "\\xed\\xa0\\x80");  // a surrogate
  for (const auto* wrong : {"\\", "a\\x", "\\x1", "\\xg0", "\\x1g", "\\n", "\\\\", "\\x-1", "\\u0041"}) {
    EXPECT_THROW(unescapeBytes(wrong), Kel::RangeException) << wrong;
  }
  EXPECT_EQ(unescapeBytes("\\x4a\\x4B"), "JK");
}

TEST(Document, keepsEveryKindOfDataAndAnyBytes) {
  using Kel::Datum;
  EXPECT_EQ(
      documentText({"T", {{"b", Datum(Datum::List{Datum(1.0), Datum()})}, {"a", Datum(std::string("\"\\"))}}}),
      R"({"attributes":{"a":"\"\\x5c","b":[1.0,null]},"type":"T"})");
  std::mt19937 random(1);
  const std::string bytes("\\x\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80\xed\xa0\xff\x00\x1f\x7f\"u", 20);
  for (int round = 0; round < 5000; ++round) {
    std::string text;
    for (auto length = random() % 8; length > 0; --length) text += bytes[random() % bytes.size()];
    const Document document{
        "T",
        {{"a" + text, Datum(text)},
         {"large", Datum(std::uint64_t{18446744073709551615U})},
         {"list", Datum(Datum::List{Datum(true), Datum(std::int64_t{-7}), Datum(1.5), Datum()})},
         {"object", Datum(Datum::Object{{"10.0.0.1/8", Datum(false)}})}}};
    ASSERT_EQ(documentFromText(documentText(document)).attributes, document.attributes) << escapeBytes(text);
  }
}

TEST(Document, saysWhatIsWrongWithAText) {
  const std::string deep = std::string(100, '[') + std::string(100, ']');
  for (const auto& [text, what] : std::vector<std::pair<std::string, std::string>>{
           {"", "JSON"},
           {"{\"type\":\"T\",\"attributes\":{}", "JSON"},
           {"{\"type\":\"T\xff\",\"attributes\":{}}", "JSON"},
           {"[]", "expected an object"},
           {"\"type\"", "expected an object"},
           {"{\"type\":\"T\"}", "expected an object"},
           {"{\"type\":1,\"attributes\":{}}", "expected an object"},
           {"{\"type\":\"T\",\"attributes\":[]}", "expected an object"},
           {"{\"type\":\"T\",\"attributes\":{},\"more\":1}", "no more"},
           {"{\"type\":\"T\",\"attributes\":{\"a\":\"\\\\q\"}}", "backslash"},
           {"{\"type\":\"T\",\"attributes\":{\"a\":" + deep + "}}", "nested"}}) {
    try {
      documentFromText(text);
      ADD_FAILURE() << text;
    } catch (const DocumentException& error) {
      EXPECT_THAT(error.what(), HasSubstr(what)) << text;
    }
  }
}

TEST(VrfNames, ofTheSameTextAreEqualAndOrderedByBytes) {
  EXPECT_EQ(L3::VrfName("default"), L3::VrfName());
  EXPECT_EQ(L3::VrfName("").stringValue(), "default");
  EXPECT_TRUE(L3::VrfName(std::string("default")).isDefault() && !L3::VrfName("defaul").isDefault());
  const L3::VrfName zebra("zebra"), blue("blue"), high("\xff");
  EXPECT_TRUE(blue < L3::VrfName() && L3::VrfName() < zebra && zebra < high);
  EXPECT_THROW(L3::VrfName(std::string(L3::VrfName::maxLength + 1, 'v')), Kel::RangeException);
}

}  // namespace
}  // namespace Varnix

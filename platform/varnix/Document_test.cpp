#include "varnix/Document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "varnix/ByteText.h"
#include "varnix/Tree.h"

namespace Varnix {
namespace {

using ::testing::HasSubstr;

TEST(ByteText, showsWellFormedTextAsItIsAndEscapesTheRest) {
  EXPECT_EQ(escapeBytes("Ethernet1.100/\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80"),
            "Ethernet1.100/\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80");
  EXPECT_EQ(escapeBytes("\xff"), "\\xff");
  EXPECT_EQ(escapeBytes(std::string_view("a\0b\n\\\x7f", 6)), "a\\x00b\\x0a\\x5c\\x7f");
  EXPECT_EQ(escapeBytes("\xc3"), "\\xc3");                    // cut short
  EXPECT_EQ(escapeBytes("\xc0\x80"), "\\xc0\\x80");           // longer than need be
  EXPECT_EQ(escapeBytes("\xed\xa0\x80"), "\\xed\\xa0\\x80");  // a surrogate
}

TEST(ByteText, anyBytesSurviveADocument) {
  std::mt19937 random(1);
  const std::string bytes("\\x\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80\xed\xa0\xff\x00\x1f\x7f\"u", 20);
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (auto length = random() % 8; length > 0; --length) text += bytes[random() % bytes.size()];
    const Document document{"T", {{text, Kel::Datum(text)}}};
    const auto read = documentFromText(documentText(document));
    ASSERT_EQ(read.attributes, document.attributes) << escapeBytes(text);
  }
}

TEST(ByteText, refusesAnEscapeThatIsNone) {
  for (const auto* text : {"\\", "a\\x", "\\x1", "\\xg0", "\\x1g", "\\n", "\\\\", "\\x-1", "\\u0041"}) {
    EXPECT_THROW(unescapeBytes(text), Kel::RangeException) << text;
  }
  EXPECT_EQ(unescapeBytes("\\xFf\\x41"),
            "\xff"
            "A");
}

TEST(Document, keepsEveryKindOfData) {
  using Kel::Datum;
  const Document document{"T",
                          {{"integer", Datum(std::int64_t{-7})},
                           {"large", Datum(std::uint64_t{18446744073709551615U})},
                           {"list", Datum(Datum::List{Datum(true), Datum("x"), Datum(1.5)})},
                           {"nothing", Datum()},
                           {"object", Datum(Datum::Object{{"10.0.0.1/8", Datum(false)}})}}};
  const auto read = documentFromText(documentText(document));
  EXPECT_EQ(read.type, "T");
  EXPECT_EQ(read.attributes, document.attributes);
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

TEST(Document, writesAReferenceAsAPathInTheTreeOnly) {
  const auto top = Kel::makePtr<Kel::Dir>("");
  Tree tree(top->dirIs("Varnix"));
  const auto l3 = tree.l3StatusDir->intfStatusIs(Vantu::IntfId("red/e.1"));
  const auto ip = tree.ipStatus->ipIntfStatusIs(Vantu::IntfId("red/e.1"));
  ip->l3StatusIs(l3);
  ip->activeAddrWithMaskIs(Vantu::IpAddrWithMask::fromString("10.1.2.3/24"));
  EXPECT_EQ(documentText(documentOf(*ip, *tree.root)),
            R"({"attributes":{"activeAddrWithMask":"10.1.2.3/24","l3Status":"l3/intf/status.intfStatus/red/e.1",)"
            R"("secondaryAddrWithMask":{},"unnumberedIntfId":""},"type":"Ip::IpIntfStatus"})");
  tree.l3StatusDir->intfStatusDel(Vantu::IntfId("red/e.1"));
  EXPECT_THAT(documentText(documentOf(*ip, *tree.root)), HasSubstr("\"l3Status\":null"));
}

}  // namespace
}  // namespace Varnix

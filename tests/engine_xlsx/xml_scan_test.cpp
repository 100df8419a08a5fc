// The token reader for large parts: what it yields, where it says each token is (saves splice
// at those offsets), how text is decoded, and which malformed input it refuses.
#include "engine/xlsx/xml_scan.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qzxl/error.hpp"

namespace qz::engine::xlsx {
namespace {

using ::testing::HasSubstr;
using T = XmlScanner::Token;

std::string trace(std::string_view xml) {
  XmlScanner s(xml, "part 'p'");
  std::string out;
  for (T t; (t = s.next()) != T::Eof;) {
    if (t == T::Start) out += "<" + std::string(s.local()) + std::to_string(s.depth());
    if (t == T::End) out += ">" + std::to_string(s.depth());
    if (t == T::Text) out += "[" + s.text() + "]";
  }
  return out;
}

std::string refusal(std::string_view xml) {
  try {
    trace(xml);
    return "";
  } catch (const Error& e) {
    EXPECT_THAT(e.what(), ::testing::StartsWith("part 'p' "));
    return e.what();
  }
}

TEST(XmlScan, YieldsTokensWithDepthsAndSkipsMarkupThatIsNotContent) {
  EXPECT_EQ(
      trace(R"(<?xml version="1.0"?><!-- c --><x:a><b/><c>t<?pi?>u</c><![CDATA[<&>]]></x:a>)"),
      "<a1<b2>2<c2[t][u]>2[<&>]>1");
  EXPECT_EQ(trace("\xEF\xBB\xBF<a>\r\n</a>\n"), "<a1[\n]>1");
}

TEST(XmlScan, ReportsOffsetsThatDelimitElements) {
  std::string xml = R"(<ws><dim ref="A1"/><sheetData><row r="1"/></sheetData><tail/></ws>)";
  XmlScanner s(xml, "p");
  size_t from = 0, to = 0;
  for (T t; (t = s.next()) != T::Eof;) {
    if (t == T::Start && s.local() == "sheetData") from = s.begin();
    if (t == T::End && s.local() == "sheetData") to = s.end();
  }
  EXPECT_EQ(xml.substr(from, to - from), R"(<sheetData><row r="1"/></sheetData>)");

  XmlScanner k(xml, "p");
  k.next();
  k.next();  // <dim/>
  EXPECT_EQ(k.attr("ref"), "A1");
  k.skip_element();
  EXPECT_EQ(k.next(), T::Start);
  EXPECT_EQ(k.local(), "sheetData");
  k.skip_element();
  EXPECT_EQ(k.local(), "sheetData");
  EXPECT_EQ(k.next(), T::Start);
  EXPECT_EQ(k.local(), "tail");
}

TEST(XmlScan, DecodesTextAndAttributes) {
  XmlScanner s(
      R"(<a v="x&amp;y&#10;z	w" r:id="rId1" id="plain"><t>&lt;&#x41;&#66;&gt; &quot;&apos;</t></a>)",
      "p");
  s.next();
  EXPECT_EQ(s.attr_text("v"), "x&y z w") << "white space in attributes reads as blanks";
  EXPECT_EQ(s.attr("id"), "plain") << "a prefixed attribute does not answer to its local name";
  EXPECT_EQ(s.attr("r:id"), "rId1");
  bool found = true;
  s.attr("missing", &found);
  EXPECT_FALSE(found);
  s.next();
  EXPECT_EQ(s.element_text(), "<AB> \"'");
  XmlScanner u("<a>&#x20AC;&#128512;</a>", "p");
  u.next();
  EXPECT_EQ(u.element_text(), "\xE2\x82\xAC\xF0\x9F\x98\x80");
}

TEST(XmlScan, RefusesMalformedAndHostileText) {
  EXPECT_THAT(refusal("<a><b></a>"), HasSubstr("</a> closing <b>"));
  EXPECT_THAT(refusal("<a><b>"), HasSubstr("ends inside <b>"));
  EXPECT_THAT(refusal("</a>"), HasSubstr("without a start"));
  EXPECT_THAT(refusal("junk<a/>"), HasSubstr("text before the root"));
  EXPECT_THAT(refusal("<a/>junk"), HasSubstr("text after the root"));
  EXPECT_THAT(refusal("<a/><b/>"), HasSubstr("more than one root"));
  EXPECT_THAT(refusal(""), HasSubstr("no root element"));
  EXPECT_THAT(refusal("<!DOCTYPE a [<!ENTITY x 'y'>]><a>&x;</a>"), HasSubstr("document type"));
  EXPECT_THAT(refusal("<a>&x;</a>"), HasSubstr("undefined entity '&x;'"));
  EXPECT_THAT(refusal("<a>&#0;</a>"), HasSubstr("to no character"));
  EXPECT_THAT(refusal("<a>&#xD800;</a>"), HasSubstr("to no character"));
  EXPECT_THAT(refusal("<a>&amp</a>"), HasSubstr("unterminated entity"));
  EXPECT_THAT(refusal("<a b=c/>"), HasSubstr("unquoted"));
  EXPECT_THAT(refusal("<a b='<'/>"), HasSubstr("'<' in an attribute"));
  EXPECT_THAT(refusal("<a b='x/>"), HasSubstr("never ends"));
  EXPECT_THAT(refusal("<a><!-- x </a>"), HasSubstr("comment that never ends"));
  EXPECT_THAT(refusal("<a><![CDATA[x</a>"), HasSubstr("CDATA section that never ends"));
  EXPECT_THAT(refusal("<a x"), HasSubstr("attribute without a value"));
}

TEST(XmlScan, EscapesCharactersXmlCannotCarryAndReadsThemBack) {
  std::u16string odd =
      u"a\x0001"
      u"b_x0041_c_xZZZZ_\x001F";
  std::u16string enc = encode_escapes(odd);
  EXPECT_EQ(enc, u"a_x0001_b_x005F_x0041_c_xZZZZ__x001F_");
  EXPECT_EQ(decode_escapes(enc), odd);
  EXPECT_EQ(decode_escapes(u"line_x000D__x000A_end"), u"line\r\nend");

  std::string out;
  append_escaped(out, "a<b>&\"c\"\r\n\t", false);
  EXPECT_EQ(out, "a&lt;b&gt;&amp;\"c\"&#13;\n\t");
  out.clear();
  append_escaped(out, "a\"\n\t", true);
  EXPECT_EQ(out, "a&quot;&#10;&#9;");
}

}  // namespace
}  // namespace qz::engine::xlsx

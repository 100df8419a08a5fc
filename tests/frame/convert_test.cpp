#include <gtest/gtest.h>

#include "qzxl/convert.hpp"

namespace qz {
namespace {

TEST(IsNumeric, AcceptsWhatTheRuntimeReadsAsANumber) {
  EXPECT_TRUE(is_numeric(Variant()));
  EXPECT_TRUE(is_numeric(Variant(true)));
  EXPECT_TRUE(is_numeric(Variant(1.5)));
  for (const char16_t* s : {u"12", u" 1,000 ", u"$5", u"-3.5", u"1E3", u"1e-3", u"(5)", u"5-",
                            u"+.5", u"&HFF", u"1.", u"$ 1,234.50"})
    EXPECT_TRUE(is_numeric(Variant(s))) << to_utf8(s);
  for (const char16_t* s : {u"", u" ", u"abc", u"1E", u"1.2.3", u"5%", u"1 000", u".", u"-",
                            u"1E-", u",1", u"(5", u"A1"})
    EXPECT_FALSE(is_numeric(Variant(s))) << to_utf8(s);
  EXPECT_FALSE(is_numeric(Variant(Date{45000})));
  EXPECT_FALSE(is_numeric(Variant(ErrorCode{2042})));
  EXPECT_FALSE(is_numeric(Variant::null()));
}

TEST(ToBool, ReadsWordsAndNumbers) {
  EXPECT_TRUE(to_bool(Variant(u"true")));
  EXPECT_TRUE(to_bool(Variant(u"TRUE")));
  EXPECT_FALSE(to_bool(Variant(u"False")));
  EXPECT_TRUE(to_bool(Variant(u"1")));
  EXPECT_TRUE(to_bool(Variant(u"-1")));
  EXPECT_FALSE(to_bool(Variant(u"0")));
  EXPECT_TRUE(to_bool(Variant(0.5)));
  EXPECT_FALSE(to_bool(Variant()));
  EXPECT_THROW(to_bool(Variant(u"yes")), Error);
  EXPECT_THROW(to_bool(Variant::null()), Error);
}

TEST(ToLong, RoundsHalfToEvenAndChecksRange) {
  EXPECT_EQ(to_long(Variant(2.5)), 2);
  EXPECT_EQ(to_long(Variant(3.5)), 4);
  EXPECT_EQ(to_long(Variant(-2.5)), -2);
  EXPECT_EQ(to_long(Variant(u"16711680")), 16711680);
  EXPECT_EQ(to_long(Variant(u" 255 ")), 255);
  EXPECT_EQ(to_long(Variant(true)), -1);
  EXPECT_THROW(to_long(Variant(3e9)), Error);
  EXPECT_THROW(to_long(Variant(u"blue")), Error);
  EXPECT_THROW(to_integer(Variant(40000)), Error);
}

TEST(ToString, WritesNumbersDatesAndBooleansAsTheRuntime) {
  EXPECT_EQ(to_string(Variant(1.5)), u"1.5");
  EXPECT_EQ(to_string(Variant(0.1 + 0.2)), u"0.3");
  EXPECT_EQ(to_string(Variant(1e15)), u"1E+15");
  EXPECT_EQ(to_string(Variant(123456789012345.0)), u"123456789012345");
  EXPECT_EQ(to_string(Variant(0.00001)), u"1E-05");
  EXPECT_EQ(to_string(Variant(-0.001)), u"-0.001");
  EXPECT_EQ(to_string(Variant(true)), u"True");
  EXPECT_EQ(to_string(Variant(Date{46340})), u"11/14/2026");
  EXPECT_EQ(to_string(Variant(Date{46340.395833333333})), u"11/14/2026 9:30:00 AM");
  EXPECT_EQ(to_string(Variant(Date{0.75})), u"6:00:00 PM");
  EXPECT_EQ(to_string(Variant(ErrorCode{2007})), u"Error 2007");
}

TEST(IsDate, ReadsTheLocalesDatesAndTimes) {
  EXPECT_TRUE(is_date(Variant(Date{1})));
  EXPECT_FALSE(is_date(Variant(46340.0)));
  EXPECT_EQ(parse_date(u"11/14/2026"), 46340.0);
  EXPECT_EQ(parse_date(u"2026-11-14"), 46340.0);
  EXPECT_EQ(parse_date(u"Nov 14, 2026"), 46340.0);
  EXPECT_EQ(parse_date(u"14 November 2026"), 46340.0);
  EXPECT_NEAR(*parse_date(u"9:30"), 9.5 / 24, 1e-12);
  EXPECT_NEAR(*parse_date(u"9:30 PM"), 21.5 / 24, 1e-12);
  EXPECT_NEAR(*parse_date(u"11/14/2026 9:30"), 46340 + 9.5 / 24, 1e-9);
  EXPECT_EQ(parse_date(u"1/1/1900"), 2.0);
  for (const char16_t* s : {u"", u"abc", u"13/13/2026", u"2/30/2026", u"25:00", u"1.5"})
    EXPECT_FALSE(parse_date(s).has_value()) << to_utf8(s);
}

TEST(Utf, RoundTripsTextOutsideTheBasicPlane) {
  String s = u"Bilan \u00E9t\u00E9 \u65E5\u672C \U0001F600";
  EXPECT_EQ(from_utf8(to_utf8(s)), s);
  EXPECT_EQ(s.size(), 15u);  // the emoji counts two units, as the runtime counts it
  EXPECT_EQ(from_utf8("\xC3\x28"), String(u"\xFFFD("));
}

TEST(TextCompare, IgnoresCaseOfLatinLetters) {
  EXPECT_TRUE(equals_text(u"Sheet1", u"SHEET1"));
  EXPECT_TRUE(equals_text(u"\u00E9t\u00E9", u"\u00C9T\u00C9"));
  EXPECT_EQ(instr_text(1, u"=a1+Tax", u"tax"), 5);
  EXPECT_EQ(instr(1, u"=a1+Tax", u"tax"), 0);
  EXPECT_EQ(instr(3, u"abcabc", u"a"), 4);
}

}  // namespace
}  // namespace qz

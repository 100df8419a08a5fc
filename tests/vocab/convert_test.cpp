#include <gtest/gtest.h>

#include "qzxl/convert.hpp"
#include "qzxl/object.hpp"

namespace qz {
namespace {

// The error number a conversion raises, or 0 when it converts.
template <class F>
int32_t raised(F&& f) {
  try {
    f();
  } catch (const Error& e) {
    return e.code();
  }
  return 0;
}

// Switches the conversions to another locale for one test.
class LocaleScope {
 public:
  explicit LocaleScope(Locale l) : old_(set_locale(std::move(l))) {}
  ~LocaleScope() { set_locale(old_); }

 private:
  Locale old_;
};

Locale german() {
  Locale l;
  l.decimal = u',';
  l.thousands = u'.';
  l.currency.assign(1, u'\u20AC');
  l.date_order = Locale::DateOrder::DMY;
  l.date_separator = u'.';
  return l;
}

class Thing : public Object {
 public:
  String type_name() const override { return u"Thing"; }
};

void expect_numeric(std::initializer_list<const char16_t*> texts, bool expected) {
  for (const char16_t* s : texts) EXPECT_EQ(is_numeric(Variant(s)), expected) << to_utf8(s);
}

TEST(IsNumeric, DependsOnTheKindOfValue) {
  for (const Variant& v : {Variant(), Variant(true), Variant(int16_t{1}), Variant(1), Variant(1.5)})
    EXPECT_TRUE(is_numeric(v)) << to_utf8(type_name(v));
  for (const Variant& v :
       {Variant(Date{45000}), Variant::null(), Variant::missing(), Variant(ErrorCode{2042}),
        Variant(std::make_shared<Thing>()), Variant(one_based({Variant(1)}))})
    EXPECT_FALSE(is_numeric(v)) << to_utf8(type_name(v));
}

TEST(IsNumeric, TextMayCarryWhiteSpaceSignsAndParentheses) {
  expect_numeric({u"12", u" 12 ", u"\t12\r\n", u"+5", u"-5", u"5-", u"5+", u"(5)", u" ( 5 ) "},
                 true);
  expect_numeric({u"--5", u"+-5", u"5--", u"-5-", u"(5", u"5)", u"(-5)", u"-", u"()"}, false);
}

TEST(IsNumeric, TextMayCarryTheCurrencySymbolOnEitherSide) {
  expect_numeric({u"$5", u"5$", u"-$5", u"$-5", u"($5)", u"$ 1,234.50"}, true);
  expect_numeric({u"$$5", u"$", u"5$$", u"\u20AC5"}, false);
}

TEST(IsNumeric, TextMayGroupDigitsWithTheThousandsSeparator) {
  expect_numeric({u"1,000", u"1,000,000.25", u"1,0", u"12,34,5"}, true);
  expect_numeric({u",1", u"1,", u"1.000,5", u"1 000", u"1,,0"}, false);
  EXPECT_EQ(parse_number(u"1,0"), 10.0);
}

TEST(IsNumeric, TextMayHaveOneDecimalPointAndAnExponent) {
  expect_numeric({u"1.", u".5", u"1E3", u"1e-3", u"1D2", u"1.5E+2"}, true);
  expect_numeric(
      {u".", u"1.2.3", u"1E", u"1E-", u"E3", u"1E3.5", u"1 E3", u"1E400", u"1e400000000000"},
      false);
}

TEST(IsNumeric, TextMayBeHexadecimalOrOctal) {
  expect_numeric({u"&HFF", u"&hff", u"&O17", u" &H1F "}, true);
  expect_numeric({u"&H", u"&HG", u"&O8", u"-&H1"}, false);
  EXPECT_EQ(parse_number(u"&HFFFF"), -1.0);      // four digits are a 16-bit value
  EXPECT_EQ(parse_number(u"&H10000"), 65536.0);  // more are 32-bit
  EXPECT_EQ(parse_number(u"&HFFFFFFFF"), -1.0);
}

TEST(IsNumeric, OtherTextIsNoNumber) {
  expect_numeric({u"", u" ", u"abc", u"5%", u"A1", u"1/1/2000", u"True", u"12abc", u"\u0661"},
                 false);
}

TEST(IsNumeric, ReadsTheValueTheTextMeans) {
  EXPECT_EQ(parse_number(u"(1,234.50)"), -1234.5);
  EXPECT_EQ(parse_number(u" 5- "), -5.0);
  EXPECT_EQ(parse_number(u"$-0.25"), -0.25);
  EXPECT_EQ(parse_number(u"1.5E+2"), 150.0);
  EXPECT_EQ(parse_number(u"000123.4500"), 123.45);
  EXPECT_EQ(parse_number(u"1e-400"), 0.0);
}

TEST(IsNumeric, FollowsTheLocaleSeam) {
  LocaleScope scope(german());
  EXPECT_EQ(parse_number(u"1.234,5"), 1234.5);
  EXPECT_EQ(parse_number(u"\u20AC 3"), 3.0);
  expect_numeric({u"1,234.5", u"$3"}, false);
  EXPECT_EQ(parse_date(u"14.11.2026"), 46340.0);
}

TEST(IsNumeric, LeavesTheDecisionToThePlatformsReaders) {
  Locale l;
  l.number_reader = [](StringView s) -> std::optional<double> {
    if (s == u"drei") return 3.0;
    if (s == u"2,5") return 2.5;
    return std::nullopt;
  };
  l.date_reader = [](StringView s) -> std::optional<double> {
    return s == u"heute" ? std::optional<double>(46340) : std::nullopt;
  };
  LocaleScope scope(l);
  EXPECT_EQ(parse_number(u"drei"), 3.0);
  EXPECT_FALSE(parse_number(u"3"));
  EXPECT_EQ(to_long(Variant(u"drei")), 3);
  EXPECT_EQ(to_long(Variant(u"2,5")), 2);
  EXPECT_EQ(raised([] { to_long(Variant(u"3")); }), err::type_mismatch);
  // The radix forms are the runtime's typed whole numbers, whatever the reader says.
  EXPECT_EQ(parse_number(u" &HFFFF"), -1.0);
  EXPECT_TRUE(is_date(Variant(u"heute")));
  EXPECT_FALSE(is_date(Variant(u"11/14/2026")));
}

TEST(ToString, WritesDatesInTheLocalesShortDatePattern) {
  Locale l;
  l.short_date = u"yy/M/d";
  LocaleScope scope(l);
  EXPECT_EQ(to_string(Variant(Date{46054.75})), u"26/2/1 6:00:00 PM");
}

TEST(ToBool, ReadsTheWordsInAnyCase) {
  for (const char16_t* s : {u"true", u"TRUE", u" True ", u"#TRUE#"})
    EXPECT_TRUE(to_bool(Variant(s))) << to_utf8(s);
  for (const char16_t* s : {u"false", u"FaLsE", u"#false#"})
    EXPECT_FALSE(to_bool(Variant(s))) << to_utf8(s);
}

TEST(ToBool, NonZeroNumbersAreTrue) {
  for (const Variant& v : {Variant(u"1"), Variant(u"-1"), Variant(u"0.5"), Variant(u"1e-300"),
                           Variant(0.5), Variant(int16_t{-1}), Variant(7), Variant(Date{1})})
    EXPECT_TRUE(to_bool(v)) << to_utf8(type_name(v));
  for (const Variant& v :
       {Variant(u"0"), Variant(u"0.0"), Variant(u"-0"), Variant(0.0), Variant(0), Variant()})
    EXPECT_FALSE(to_bool(v)) << to_utf8(type_name(v));
}

TEST(ToBool, RaisesForWhatDoesNotConvert) {
  EXPECT_EQ(raised([] { to_bool(Variant(u"yes")); }), err::type_mismatch);
  EXPECT_EQ(raised([] { to_bool(Variant(u"")); }), err::type_mismatch);
  EXPECT_EQ(raised([] { to_bool(Variant(ErrorCode{2042})); }), err::type_mismatch);
  EXPECT_EQ(raised([] { to_bool(Variant::missing()); }), err::type_mismatch);
  EXPECT_EQ(raised([] { to_bool(Variant::null()); }), err::invalid_null);
}

TEST(ToLong, RoundsNumbersHalfToEven) {
  const std::pair<double, int32_t> cases[] = {{0.5, 0},   {1.5, 2},  {2.5, 2},   {-2.5, -2},
                                              {-3.5, -4}, {2.51, 3}, {-0.49, 0}, {1e9, 1000000000}};
  for (auto [d, expected] : cases) EXPECT_EQ(to_long(Variant(d)), expected) << d;
  EXPECT_EQ(to_long(Variant(true)), -1);
  EXPECT_EQ(to_long(Variant(Date{46340.75})), 46341);
}

TEST(ToLong, RoundsTextOnItsWrittenDigits) {
  EXPECT_EQ(to_long(Variant(u"2.5")), 2);
  EXPECT_EQ(to_long(Variant(u"3.5")), 4);
  EXPECT_EQ(to_long(Variant(u"-0.5")), 0);
  // Nearest Double of this text is exactly 2.5, but the text itself is above the tie.
  EXPECT_EQ(to_long(Variant(u"2.50000000000000001")), 3);
  EXPECT_EQ(to_long(Variant(u"0.05")), 0);
  EXPECT_EQ(to_long(Variant(u"16711680")), 16711680);
  EXPECT_EQ(to_long(Variant(u" 1,000 ")), 1000);
  EXPECT_EQ(to_long(Variant(u"$1,234.5")), 1234);
  EXPECT_EQ(to_long(Variant(u"(7)")), -7);
  EXPECT_EQ(to_long(Variant(u"25E-1")), 2);
  EXPECT_EQ(to_long(Variant(u"1.5e3")), 1500);
  EXPECT_EQ(to_long(Variant(u"&HFFFF")), -1);
}

TEST(ToLong, ChecksTheRangeAfterRounding) {
  EXPECT_EQ(to_long(Variant(u"2147483647")), 2147483647);
  EXPECT_EQ(to_long(Variant(u"2147483647.4999999999")), 2147483647);
  EXPECT_EQ(to_long(Variant(-2147483648.5)), INT32_MIN);
  EXPECT_EQ(raised([] { to_long(Variant(u"2147483647.5")); }), err::overflow);
  EXPECT_EQ(raised([] { to_long(Variant(3e9)); }), err::overflow);
  EXPECT_EQ(raised([] { to_long(Variant(u"1e30")); }), err::overflow);
  EXPECT_EQ(to_integer(Variant(-32768.5)), -32768);
  EXPECT_EQ(raised([] { to_integer(Variant(32767.5)); }), err::overflow);
  EXPECT_EQ(raised([] { to_integer(Variant(40000)); }), err::overflow);
}

TEST(ToLong, RaisesForWhatDoesNotConvert) {
  for (const char16_t* s : {u"blue", u"", u"1/1/2000", u"1.2.3"})
    EXPECT_EQ(raised([&] { to_long(Variant(s)); }), err::type_mismatch) << to_utf8(s);
  EXPECT_EQ(raised([] { to_long(Variant::null()); }), err::invalid_null);
  EXPECT_EQ(raised([] { to_double(Variant(u"1/1/2000")); }), err::type_mismatch);
}

TEST(ToString, WritesNumbersWithFifteenSignificantDigits) {
  const std::pair<double, const char16_t*> cases[] = {
      {1.5, u"1.5"},
      {0.1 + 0.2, u"0.3"},
      {1.0 / 3, u"0.333333333333333"},
      {100, u"100"},
      {-0.0, u"0"},
      {123456789012345.0, u"123456789012345"},
      {1234567890123456.0, u"1.23456789012346E+15"},
      {1e15, u"1E+15"},
      {1e100, u"1E+100"},
      {0.0001, u"0.0001"},
      {0.00001, u"1E-05"},
      {-0.001, u"-0.001"},
  };
  for (auto [d, text] : cases) EXPECT_EQ(to_string(Variant(d)), text) << d;
  EXPECT_EQ(to_string(Variant(int16_t{-7})), u"-7");
  EXPECT_EQ(to_string(Variant(16711680)), u"16711680");
}

TEST(ToString, WritesDatesInTheShortFormAndTimesWithSeconds) {
  const std::pair<double, const char16_t*> cases[] = {
      {46340, u"11/14/2026"},
      {46340.395833333333, u"11/14/2026 9:30:00 AM"},
      {0.75, u"6:00:00 PM"},
      {0.5, u"12:00:00 PM"},
      {0, u"12:00:00 AM"},
      {2, u"1/1/1900"},
      {-1.25, u"12/29/1899 6:00:00 AM"},
      // A time a hair before midnight rounds to the next day.
      {46340.9999999999, u"11/15/2026"},
  };
  for (auto [serial, text] : cases) EXPECT_EQ(to_string(Variant(Date{serial})), text) << serial;
}

TEST(ToString, WritesTheOtherKinds) {
  EXPECT_EQ(to_string(Variant()), u"");
  EXPECT_EQ(to_string(Variant(true)), u"True");
  EXPECT_EQ(to_string(Variant(false)), u"False");
  EXPECT_EQ(to_string(Variant(ErrorCode{2007})), u"Error 2007");
  EXPECT_EQ(raised([] { to_string(Variant::null()); }), err::invalid_null);
}

TEST(IsDate, ReadsDatesInTheUsualForms) {
  const std::pair<const char16_t*, double> cases[] = {
      {u"11/14/2026", 46340},
      {u"2026-11-14", 46340},
      {u"2026/11/14", 46340},
      {u"Nov 14, 2026", 46340},
      {u"14 November 2026", 46340},
      {u"14-Nov-26", 46340},
      {u"Saturday, November 14, 2026", 46340},
      {u"11/14/26", 46340},
      {u"1/1/30", 10959},     // two-digit years from 30 are of the 1900s
      {u"13/1/2026", 46035},  // no month 13: read day first
      {u"11/2026", 46327},
      {u"2/29/2024", 45351},
      {u"1/1/1900", 2},
  };
  for (auto [text, serial] : cases) EXPECT_EQ(parse_date(text), serial) << to_utf8(text);
}

TEST(IsDate, ReadsTimesAloneAndAfterADate) {
  EXPECT_NEAR(*parse_date(u"9:30"), 9.5 / 24, 1e-12);
  EXPECT_NEAR(*parse_date(u"9:30 PM"), 21.5 / 24, 1e-12);
  EXPECT_NEAR(*parse_date(u"9:30:15"), (9 * 3600 + 30 * 60 + 15) / 86400.0, 1e-12);
  EXPECT_EQ(parse_date(u"12:00 AM"), 0.0);
  EXPECT_NEAR(*parse_date(u"12:30 PM"), 12.5 / 24, 1e-12);
  EXPECT_NEAR(*parse_date(u"11/14/2026 9:30"), 46340 + 9.5 / 24, 1e-9);
}

TEST(IsDate, RejectsImpossibleDatesAndOtherText) {
  for (const char16_t* s : {u"", u"abc", u"Monday", u"13/13/2026", u"2/30/2026", u"2/29/2025",
                            u"25:00", u"9:60", u"13:00 PM", u"0:30 AM", u"12", u"Nov"})
    EXPECT_FALSE(parse_date(s).has_value()) << to_utf8(s);
}

TEST(IsDate, DependsOnTheKindOfValue) {
  EXPECT_TRUE(is_date(Variant(Date{1})));
  EXPECT_TRUE(is_date(Variant(u"Nov 14, 2026")));
  EXPECT_FALSE(is_date(Variant(46340.0)));
  EXPECT_FALSE(is_date(Variant()));
  EXPECT_FALSE(is_date(Variant(u"12.5%")));
  EXPECT_EQ(to_date(Variant(u"11/14/2026")), Date{46340});
  EXPECT_EQ(raised([] { to_date(Variant(u"soon")); }), err::type_mismatch);
}

TEST(Utf, RoundTripsTextOutsideTheBasicPlane) {
  String s = u"Bilan \u00E9t\u00E9 \u65E5\u672C \U0001F600";
  EXPECT_EQ(from_utf8(to_utf8(s)), s);
  EXPECT_EQ(s.size(), 15u);  // the emoji counts two units, as the runtime counts it
  EXPECT_EQ(from_utf8("\xC3\x28"), String(u"\xFFFD("));
  EXPECT_EQ(from_utf8("ab\xC3\x28"), String(u"ab\xFFFD("));  // after a run of ASCII
  EXPECT_EQ(to_utf8(String(1, u'\xD800')), "\xEF\xBF\xBD");  // a lone surrogate
}

TEST(TextCompare, IgnoresCaseOfLatinLetters) {
  EXPECT_TRUE(equals_text(u"Sheet1", u"SHEET1"));
  EXPECT_TRUE(equals_text(u"\u00E9t\u00E9", u"\u00C9T\u00C9"));
  EXPECT_LT(compare_text(u"apple", u"BANANA"), 0);
  EXPECT_EQ(compare_text(u"Tax", u"TAX"), 0);
  EXPECT_GT(compare_text(u"Taxes", u"tax"), 0);
}

TEST(TextCompare, FindsTextFromAStartPosition) {
  EXPECT_EQ(instr_text(1, u"=a1+Tax", u"tax"), 5);
  EXPECT_EQ(instr(1, u"=a1+Tax", u"tax"), 0);
  EXPECT_EQ(instr(3, u"abcabc", u"a"), 4);
  EXPECT_EQ(instr(3, u"abc", u""), 3);
  EXPECT_EQ(instr(4, u"abc", u""), 0);  // past the end finds nothing, even the empty text
  EXPECT_EQ(instr_text(4, u"abc", u""), 0);
  EXPECT_EQ(instr_text(1, u"", u""), 0);
}

}  // namespace
}  // namespace qz

// What a typed entry becomes under the en-US entry rules: the cell's value, and the format
// the entry implies when the cell had General.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>

#include "engine/numfmt/numfmt.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::numfmt {
namespace {

struct Number {
  const char16_t* typed;
  double value;
  const char16_t* format;  // nullptr: none implied
};

void expect_numbers(std::initializer_list<Number> cases, bool date1904 = false) {
  for (const Number& c : cases) {
    Entry e = parse_entry(c.typed, date1904);
    std::string label = to_utf8(c.typed);
    ASSERT_EQ(e.type, Entry::Type::Number) << label << " read as " << to_utf8(e.text);
    EXPECT_NEAR(e.number, c.value, 1e-9 * std::max(1.0, std::fabs(c.value))) << label;
    if (c.format)
      EXPECT_EQ(e.implied_format.value_or(u"(none)"), String(c.format)) << label;
    else
      EXPECT_FALSE(e.implied_format) << label << " implied " << to_utf8(*e.implied_format);
  }
}

void expect_text(std::initializer_list<const char16_t*> typed) {
  for (const char16_t* t : typed) {
    Entry e = parse_entry(t, false);
    EXPECT_EQ(e.type, Entry::Type::Text) << to_utf8(t) << " read as " << e.number;
    EXPECT_EQ(e.text, String(t));
    EXPECT_FALSE(e.apostrophe);
  }
}

int this_year() {
  using namespace std::chrono;
  return static_cast<int>(year_month_day{floor<days>(system_clock::now())}.year());
}

TEST(Entry, PlainNumbers) {
  expect_numbers({
      {u"123", 123, nullptr},
      {u"  42 ", 42, nullptr},
      {u"-7.5", -7.5, nullptr},
      {u"+3", 3, nullptr},
      {u".5", 0.5, nullptr},
      {u"1.", 1, nullptr},
      {u"(123)", -123, nullptr},
      {u"0012", 12, nullptr},
  });
}

TEST(Entry, NumbersThatImplyAFormat) {
  expect_numbers({
      {u"1,234", 1234, u"#,##0"},
      {u"1,234,567.5", 1234567.5, u"#,##0.00"},
      {u"$5", 5, u"$#,##0"},
      {u"$1,234.50", 1234.5, u"$#,##0.00"},
      {u"-$5", -5, u"$#,##0"},
      {u"$-5", -5, u"$#,##0"},
      {u"($5)", -5, u"$#,##0_);($#,##0)"},
      {u"5%", 0.05, u"0%"},
      {u"5.5%", 0.055, u"0.00%"},
      {u"-12%", -0.12, u"0%"},
      {u"1E3", 1000, u"0.00E+00"},
      {u"1.5e-3", 0.0015, u"0.00E+00"},
      {u"1 1/2", 1.5, u"# ?/?"},
      {u"0 3/16", 0.1875, u"# ?\?/??"},
      {u"-2 1/4", -2.25, u"# ?/?"},
  });
}

TEST(Entry, WhatLooksNumericButIsText) {
  expect_text({u"1,23", u"12,3456", u"1.2.3", u"12abc", u"--5", u"5-", u"$", u"1 1/0", u"(5", u"1e",
               u"abc", u"12 apples", u"#N/A!", u"TRUE1", u" "});
}

TEST(Entry, BooleansErrorsAndTheApostrophe) {
  for (const char16_t* t : {u"TRUE", u"true", u"True", u" FALSE "}) {
    Entry e = parse_entry(t, false);
    EXPECT_EQ(e.type, Entry::Type::Boolean) << to_utf8(t);
  }
  EXPECT_EQ(parse_entry(u"tRuE", false).number, 1);
  EXPECT_EQ(parse_entry(u"false", false).number, 0);
  Entry na = parse_entry(u"#n/a", false);
  EXPECT_EQ(na.type, Entry::Type::Error);
  EXPECT_EQ(na.number, cell_error::na);
  EXPECT_EQ(parse_entry(u"#DIV/0!", false).number, cell_error::div0);
  Entry quoted = parse_entry(u"'123", false);
  EXPECT_EQ(quoted.type, Entry::Type::Text);
  EXPECT_EQ(quoted.text, u"123");
  EXPECT_TRUE(quoted.apostrophe);
  Entry quoted_true = parse_entry(u"'TRUE", false);
  EXPECT_EQ(quoted_true.type, Entry::Type::Text);
  EXPECT_EQ(parse_entry(u"", false).type, Entry::Type::Empty);
}

TEST(Entry, DatesInTheirTypedForms) {
  double nov14 = serial_from_date(2026, 11, 14, false);
  expect_numbers({
      {u"11/14/2026", nov14, u"m/d/yyyy"},
      {u"11/14/26", nov14, u"m/d/yyyy"},
      {u"11-14-2026", nov14, u"m/d/yyyy"},
      {u"2026-11-14", nov14, u"m/d/yyyy"},
      {u"2026/11/14", nov14, u"m/d/yyyy"},
      {u"14-Nov-2026", nov14, u"d-mmm-yy"},
      {u"14 Nov 2026", nov14, u"d-mmm-yy"},
      {u"14-november-26", nov14, u"d-mmm-yy"},
      {u"Nov 14, 2026", nov14, u"d-mmm-yy"},
      {u"November 14 2026", nov14, u"d-mmm-yy"},
      {u"Nov-2026", serial_from_date(2026, 11, 1, false), u"mmm-yy"},
      {u"11/2026", serial_from_date(2026, 11, 1, false), u"mmm-yy"},
      {u"1/32", serial_from_date(1932, 1, 1, false), u"mmm-yy"},
      {u"1/2/30", serial_from_date(1930, 1, 2, false), u"m/d/yyyy"},
      {u"1/2/29", serial_from_date(2029, 1, 2, false), u"m/d/yyyy"},
      {u"2/29/1900", 60, u"m/d/yyyy"},
      {u"14-Nov", serial_from_date(this_year(), 11, 14, false), u"d-mmm"},
      {u"Nov 14", serial_from_date(this_year(), 11, 14, false), u"d-mmm"},
      {u"11/14", serial_from_date(this_year(), 11, 14, false), u"d-mmm"},
  });
  expect_numbers({{u"1/1/1904", 0, u"m/d/yyyy"}, {u"11/14/2026", nov14 - 1462, u"m/d/yyyy"}}, true);
  expect_text({u"2/29/2026", u"13/1/2026", u"11/31/2026", u"1/1/1899", u"14-Foo-2026",
               u"11/14/2026/1", u"Nov", u"11/14/202"});
  EXPECT_EQ(parse_entry(u"1/1/1900", true).type, Entry::Type::Text);  // before the 1904 epoch
}

TEST(Entry, TimesAndDateTimes) {
  double nov14 = serial_from_date(2026, 11, 14, false);
  expect_numbers({
      {u"9:30", 9.5 / 24, u"h:mm"},
      {u"09:30", 9.5 / 24, u"h:mm"},
      {u"9:30 PM", 21.5 / 24, u"h:mm AM/PM"},
      {u"9:30pm", 21.5 / 24, u"h:mm AM/PM"},
      {u"12:00 AM", 0, u"h:mm AM/PM"},
      {u"12:30 PM", 12.5 / 24, u"h:mm AM/PM"},
      {u"9:30:15", (9.5 * 3600 + 15) / 86400, u"h:mm:ss"},
      {u"9:30:15 pm", (21.5 * 3600 + 15) / 86400, u"h:mm:ss AM/PM"},
      {u"25:30", 25.5 / 24, u"[h]:mm:ss"},
      {u"30:15.5", (30 * 60 + 15.5) / 86400, u"mm:ss.0"},
      {u"9 PM", 21.0 / 24, u"h:mm AM/PM"},
      {u"11/14/2026 9:30", nov14 + 9.5 / 24, u"m/d/yyyy h:mm"},
      {u"2026-11-14 9:30 PM", nov14 + 21.5 / 24, u"m/d/yyyy h:mm"},
      {u"14-Nov-2026 13:05:59", nov14 + (13 * 3600 + 5 * 60 + 59) / 86400.0, u"m/d/yyyy h:mm"},
  });
  expect_text({u"9:75", u"9:30:61", u"13:00 PM", u"9:30 XM", u"9::30", u":30", u"11/14/2026 9"});
}

}  // namespace
}  // namespace qz::engine::numfmt

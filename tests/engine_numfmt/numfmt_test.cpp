// What a cell shows for a value under a format code, format classification, the built-in
// table and the two date systems.
#include <gtest/gtest.h>

#include "engine/numfmt/numfmt.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::numfmt {
namespace {

std::string show(double v, std::u16string_view code, bool date1904 = false) {
  CellValue c;
  c.type = CellValue::Type::Number;
  c.number = v;
  return to_utf8(render(c, code, date1904));
}
std::string show_text(std::u16string_view text, std::u16string_view code) {
  CellValue c;
  c.type = CellValue::Type::Text;
  c.text = text;
  return to_utf8(render(c, code, false));
}

struct Case {
  double value;
  const char16_t* code;
  const char* shown;
};

void expect_all(std::initializer_list<Case> cases) {
  for (const Case& c : cases)
    EXPECT_EQ(show(c.value, c.code), c.shown) << c.value << " under " << to_utf8(c.code);
}

TEST(General, ElevenCharactersAtMost) {
  expect_all({
      {0, u"General", "0"},
      {1234567890123, u"General", "1.23457E+12"},
      {0.1 + 0.2, u"General", "0.3"},
      {1.0 / 3, u"General", "0.333333333"},
      {-1.0 / 3, u"General", "-0.333333333"},
      {123456.789012, u"General", "123456.789"},
      {12345678901, u"General", "12345678901"},
      {123456789012, u"General", "1.23457E+11"},
      {1e-9, u"General", "0.000000001"},
      {1.5e-9, u"General", "1.5E-09"},
      {1e-10, u"General", "1E-10"},
      {0.00001, u"General", "0.00001"},
      {1e100, u"General", "1E+100"},
      {-2.5, u"", "-2.5"},
      {5, u"General\" units\"", "5 units"},
  });
}

TEST(Fixed, DecimalsThousandsAndScaling) {
  expect_all({
      {1234.567, u"0", "1235"},
      {1234.567, u"0.00", "1234.57"},
      {2.675, u"0.00", "2.68"},  // rounded as written, not as stored
      {1234567.891, u"#,##0.00", "1,234,567.89"},
      {-1234.5, u"#,##0", "-1,235"},
      {0.5, u"#.##", ".5"},
      {5, u"0.##", "5."},
      {0.25, u"0.0?", "0.25"},
      {0.2, u"0.0?", "0.2 "},
      {7, u"000", "007"},
      {7, u"???", "  7"},
      {1234567, u"#,##0,", "1,235"},
      {1234567890, u"#,##0.0,,", "1,234.6"},
      {1234567, u",#", ",1234567"},
      {123456789, u"000-00-0000", "123-45-6789"},
      {-0.4, u"0", "-0"},
      {12.5, u".00", "12.50"},
  });
}

TEST(Percent, MultipliesAndShowsTheSign) {
  expect_all({
      {0.05, u"0%", "5%"},
      {0.055, u"0.00%", "5.50%"},
      {-0.125, u"0.0%", "-12.5%"},
      {0.5, u"%0", "%50"},
  });
  // The largest Double scaled past infinity once read memory before its digits (found by
  // fuzzing); it must render as something without touching what lies before the buffer.
  EXPECT_FALSE(show(1e308, u"0%").empty());
}

TEST(Scientific, MantissaAndExponent) {
  expect_all({
      {12345.678, u"0.00E+00", "1.23E+04"},
      {0.00012345, u"0.00E+00", "1.23E-04"},
      {12345.678, u"0.00E-00", "1.23E04"},
      {9.999, u"0.00E+00", "1.00E+01"},
      {0, u"0.00E+00", "0.00E+00"},
      {12345.678, u"##0.0E+0", "12.3E+3"},
      {123456.789, u"0.0e+0", "1.2e+5"},
      {1.2345678e142, u"0.0E+0000", "1.2E+0142"},
  });
}

TEST(Fractions, NearestWithinTheDigitsOrFixed) {
  expect_all({
      {1.5, u"# ?/?", "1 1/2"},
      {0.75, u"# ?/?", " 3/4"},
      {2, u"# ?/?", "2    "},
      {0, u"# ?/?", "0    "},
      {3.14159, u"# ?\?/??", "3 14/99"},
      {0.3125, u"# ?\?/??", "  5/16"},
      {1.3, u"# ?/16", "1 5/16"},
      {2.25, u"?/?", "9/4"},
      {-1.5, u"# ?/?", "-1 1/2"},
  });
}

TEST(Dates, CodesOfTheEnUsLocale) {
  double d = 46340.5625;  // Saturday 14 November 2026, 13:30
  expect_all({
      {d, u"m/d/yyyy", "11/14/2026"},
      {d, u"mm/dd/yy", "11/14/26"},
      {d, u"d-mmm-yy", "14-Nov-26"},
      {d, u"dddd, mmmm d, yyyy", "Saturday, November 14, 2026"},
      {d, u"ddd mmm", "Sat Nov"},
      {d, u"mmmmm", "N"},
      {d, u"yyyy-mm-dd hh:mm", "2026-11-14 13:30"},
      {d, u"m/d/yyyy h:mm AM/PM", "11/14/2026 1:30 PM"},
      {d, u"\"Due \"d mmm", "Due 14 Nov"},
      {d, u"[$-409]mmmm d", "November 14"},
      // Literal letters are no codes: the escaped d and the quoted "days" stay text.
      {5, u"0 \\d", "5 d"},
      {5, u"0 \"days\"", "5 days"},
  });
}

TEST(Dates, The1900SystemCountsA29February) {
  expect_all({
      {1, u"m/d/yyyy", "1/1/1900"},
      {59, u"m/d/yyyy", "2/28/1900"},
      {60, u"m/d/yyyy", "2/29/1900"},
      {61, u"m/d/yyyy", "3/1/1900"},
      {0, u"m/d/yyyy", "1/0/1900"},
      {1, u"dddd", "Sunday"},
      {-1, u"m/d/yyyy", "########"},
  });
  EXPECT_EQ(show(0, u"m/d/yyyy", true), "1/1/1904");
  EXPECT_EQ(show(46340 - 1462, u"m/d/yyyy", true), "11/14/2026");
}

TEST(Times, ClockElapsedAndFractionsOfSeconds) {
  double t = 0.5625 + 15.0 / 86400;  // 13:30:15
  expect_all({
      {t, u"h:mm", "13:30"},
      {t, u"h:mm:ss AM/PM", "1:30:15 PM"},
      {t, u"hh:mm A/P", "01:30 P"},
      {0, u"h:mm AM/PM", "12:00 AM"},
      {t, u"mm:ss", "30:15"},
      {1.5 / 86400 + 0.25, u"h:mm:ss.0", "6:00:01.5"},
      {1.0625, u"[h]:mm", "25:30"},
      {1.0625, u"[mm]:ss", "1530:00"},
      {1.0625, u"[s]", "91800"},
      {-0.0625, u"[h]:mm", "-1:30"},
      {0.999999, u"h:mm:ss", "0:00:00"},  // rounds into the next day
      {5.0 / 1440, u"m", "1"},            // alone, m is the month
      {5.0 / 1440, u"h:m", "0:5"},
      {5.0 / 1440, u"s:m", "0:5"},
  });
}

TEST(Sections, SignsZerosTextAndConditions) {
  const char16_t* acct = u"#,##0.00_);(#,##0.00);\"-\"_);@_)";
  expect_all({
      {1234.5, acct, "1,234.50 "},
      {-1234.5, acct, "(1,234.50)"},
      {0, acct, "- "},
      {-5, u"0;0", "5"},
      {-5, u"0;-0;\"zero\"", "-5"},
      {0, u"0;-0;\"zero\"", "zero"},
      {150, u"[>=100]\"big\";[<0]\"neg\";\"small\"", "big"},
      {-3, u"[>=100]\"big\";[<0]\"neg\";\"small\"", "neg"},
      {7, u"[>=100]\"big\";[<0]\"neg\";\"small\"", "small"},
      {-5, u"[Red]0.0;[Blue]-0.0", "-5.0"},
      {3, u"[Color10]0", "3"},
      {5, u"$#,##0_);($#,##0)", "$5 "},
      {-5, u"$#,##0_);[Red]($#,##0)", "($5)"},
      {1234, u"[$€-407] #,##0", "€ 1,234"},
      {12, u"0*-", "12"},
  });
  EXPECT_EQ(show_text(u"abc", acct), "abc ");
  EXPECT_EQ(show_text(u"abc", u"\"[\"@\"]\""), "[abc]");
  EXPECT_EQ(show_text(u"abc", u"0.00"), "abc");
  EXPECT_EQ(show(5, u"@"), "5");
}

TEST(Times, TwelveHourClockAroundMidnightAndNoon) {
  expect_all({
      {0.0, u"h AM/PM", "12 AM"},
      {0.5, u"h AM/PM", "12 PM"},
      {13.0 / 24, u"hh:mm am/pm", "01:00 PM"},
      {23.99 / 24, u"h:mm A/P", "11:59 P"},
      {23.99 / 24, u"h:mm a/p", "11:59 p"},
      {1.75, u"h:mm", "18:00"},  // the day is dropped
      {1.75, u"d \"days\" h:mm", "1 days 18:00"},
      {0.5 + 0.5 / 86400, u"h:mm:ss", "12:00:01"},  // half a second rounds up
      {0.5 + 0.4 / 86400, u"h:mm:ss.00", "12:00:00.40"},
  });
}

TEST(Sections, TextAndEmptySections) {
  EXPECT_EQ(show(5, u"0;-0;;@"), "5");
  EXPECT_EQ(show(0, u"0;-0;;@"), "");  // an empty zero section shows nothing
  EXPECT_EQ(show(-5, u";;"), "");
  EXPECT_EQ(show_text(u"x", u"0;-0;0;\"<\"@\">\""), "<x>");
  EXPECT_EQ(show_text(u"x", u"0;-0;0"), "x");  // no text section: the text as it is
  EXPECT_EQ(show_text(u"x", u"@@"), "xx");
  EXPECT_EQ(show(1234.5, u"[>=1000]#,##0.0,\"K\";0"), "1.2K");
  EXPECT_EQ(show(999, u"[>=1000]#,##0.0,\"K\";0"), "999");
  // A first section chosen by its own condition keeps the minus in front.
  EXPECT_EQ(show(-11, u"[<-10]#\" Wow\""), "-11 Wow");
  EXPECT_EQ(show(-9, u"[<-10]#\" Wow\""), "-9");  // the condition fails: General
}

TEST(Rendering, BooleansErrorsAndEmptyIgnoreTheCode) {
  CellValue b{CellValue::Type::Boolean, 1, {}};
  CellValue e{CellValue::Type::Error, cell_error::div0, {}};
  EXPECT_EQ(to_utf8(render(b, u"0.00", false)), "TRUE");
  EXPECT_EQ(to_utf8(render(e, u"0.00", false)), "#DIV/0!");
  EXPECT_EQ(to_utf8(render(CellValue{}, u"0.00", false)), "");
}

// Inputs found by fuzzing that once read outside their buffers or converted out of range.
TEST(Rendering, FuzzFindsRenderWithoutUndefinedBehaviour) {
  EXPECT_EQ(show(1.5, u"0\\"), "1.5") << "a lone escape at the end leaves no section";
  EXPECT_FALSE(show(1e308, u"# ?/?").empty()) << "a whole part beyond any integer type";
  EXPECT_EQ(show(12345678901234567.0, u"# ?/?"), "12345678901234600    ");
  EXPECT_FALSE(show(0.5, u"# ?/99999999999999999999").empty()) << "an endless denominator";
}

TEST(Codes, MalformedOnesAreRefusedWithTheReason) {
  auto refused = [](std::u16string_view code) {
    try {
      validate(code);
    } catch (const Error& e) {
      return e.message();
    }
    return std::string("(accepted)");
  };
  EXPECT_EQ(refused(u"0.00"), "(accepted)");
  EXPECT_EQ(refused(u"#,##0;[Red](#,##0);0;@"), "(accepted)");
  EXPECT_EQ(refused(u"\"abc"), "number format '\"abc': unterminated quoted text");
  EXPECT_EQ(refused(u"0;0;0;0;0"), "number format '0;0;0;0;0': more than four sections");
  EXPECT_EQ(refused(u"[Purple]0"), "number format '[Purple]0': unknown [Purple]");
  EXPECT_EQ(refused(u"0.0.0"), "number format '0.0.0': two decimal points");
  EXPECT_EQ(refused(u"xyz"), "number format 'xyz': unexpected 'x'");
  EXPECT_EQ(refused(u"[>]0"), "number format '[>]0': bad condition [>]");
  EXPECT_EQ(refused(u"0@"), "number format '0@': @ mixed with number or date codes");
  EXPECT_THROW(show(1, u"[Purple]0"), Error);
}

TEST(Classify, ByTheFirstSection) {
  EXPECT_EQ(classify(u"General"), Kind::General);
  EXPECT_EQ(classify(u"#,##0.00"), Kind::Number);
  EXPECT_EQ(classify(u"0%"), Kind::Percent);
  EXPECT_EQ(classify(u"0.00E+00"), Kind::Scientific);
  EXPECT_EQ(classify(u"# ?/?"), Kind::Fraction);
  EXPECT_EQ(classify(u"m/d/yyyy"), Kind::Date);
  EXPECT_EQ(classify(u"mmm-yy"), Kind::Date);
  EXPECT_EQ(classify(u"h:mm"), Kind::Time);
  EXPECT_EQ(classify(u"mm:ss"), Kind::Time);
  EXPECT_EQ(classify(u"m/d/yyyy h:mm"), Kind::DateTime);
  EXPECT_EQ(classify(u"[h]:mm:ss"), Kind::Elapsed);
  EXPECT_EQ(classify(u"@"), Kind::Text);
  EXPECT_EQ(classify(u"0 \"days\""), Kind::Number);
  EXPECT_EQ(classify(u"0\\d"), Kind::Number);
  EXPECT_EQ(classify(u"[Red]dd/mm"), Kind::Date);
  EXPECT_TRUE(is_date_format(u"[$-409]h:mm AM/PM"));
  EXPECT_FALSE(is_date_format(u"#,##0;(#,##0)"));
  EXPECT_FALSE(is_date_format(u"\"Day\" 0"));
}

TEST(Builtins, TheEnUsTable) {
  EXPECT_EQ(builtin_code(0), u"General");
  EXPECT_EQ(builtin_code(14), u"m/d/yyyy");
  EXPECT_EQ(builtin_code(22), u"m/d/yyyy h:mm");
  EXPECT_EQ(builtin_code(44), u"_(\"$\"* #,##0.00_);_(\"$\"* (#,##0.00);_(\"$\"* \"-\"??_);_(@_)");
  EXPECT_EQ(builtin_code(49), u"@");
  EXPECT_FALSE(builtin_code(23));
  EXPECT_FALSE(builtin_code(50));
  EXPECT_EQ(builtin_id(u"0.00%"), 10);
  EXPECT_EQ(builtin_id(u"general"), 0);
  EXPECT_FALSE(builtin_id(u"0.000"));
  // Every built-in code is one the renderer accepts.
  for (int id = 0; id < 50; ++id) {
    if (auto code = builtin_code(id)) {
      EXPECT_NO_THROW(validate(*code)) << id;
    }
  }
}

TEST(DateSystems, SerialsAndAutomationDates) {
  EXPECT_EQ(serial_from_date(1900, 1, 1, false), 1);
  EXPECT_EQ(serial_from_date(1900, 2, 29, false), 60);
  EXPECT_EQ(serial_from_date(1900, 3, 1, false), 61);
  EXPECT_EQ(serial_from_date(2026, 11, 14, false), 46340);
  EXPECT_EQ(serial_from_date(2026, 14, 0, false), serial_from_date(2027, 1, 31, false));
  EXPECT_EQ(serial_from_date(1904, 1, 1, true), 0);
  EXPECT_EQ(serial_from_date(2026, 11, 14, true), 46340 - 1462);
  int y, m, d;
  date_from_serial(46340.99, false, y, m, d);
  EXPECT_EQ((std::tuple{y, m, d}), (std::tuple{2026, 11, 14}));
  date_from_serial(60, false, y, m, d);
  EXPECT_EQ((std::tuple{y, m, d}), (std::tuple{1900, 2, 29}));
  // Every serial maps to a date and back.
  for (double s = 1; s < 80000; s += 37) {
    date_from_serial(s, false, y, m, d);
    EXPECT_EQ(serial_from_date(y, m, d, false), s);
    date_from_serial(s, true, y, m, d);
    EXPECT_EQ(serial_from_date(y, m, d, true), s);
  }
  // The automation calendar has no 29 February 1900.
  EXPECT_EQ(automation_date(61, false), 61);
  EXPECT_EQ(automation_date(59, false), 60);
  EXPECT_EQ(automation_date(1, false), 2);
  EXPECT_EQ(automation_date(0.5, false), 0.5);
  EXPECT_EQ(automation_date(0, true), 1462);
  for (double s : {1.25, 59.0, 61.5, 46340.75})
    EXPECT_EQ(serial_from_automation(automation_date(s, false), false), s);
}

TEST(Shown, InTheUsersMarksAndShortDateWhileTheCodeKeepsItsFileForm) {
  Locale de;
  de.decimal = u',';
  de.thousands = u'.';
  de.short_date = u"dd.MM.yyyy";
  auto shown = [&](double v, const char16_t* code) {
    CellValue c;
    c.type = CellValue::Type::Number;
    c.number = v;
    return to_utf8(render_shown(c, code, false, de));
  };
  EXPECT_EQ(shown(1234.5, u"#,##0.00"), "1.234,50");
  EXPECT_EQ(shown(-1234567, u"#,##0"), "-1.234.567");
  EXPECT_EQ(shown(1.5, u"General"), "1,5");
  EXPECT_EQ(shown(1.5e-12, u"General"), "1,5E-12");
  EXPECT_EQ(shown(0.125, u"0.0%"), "12,5%");
  EXPECT_EQ(shown(12345, u"0.00E+00"), "1,23E+04");
  EXPECT_EQ(shown(1.5 / 86400, u"mm:ss.0"), "00:01,5");
  // The built-in short date follows the user; a date code of the file's own does not.
  EXPECT_EQ(shown(46340, u"m/d/yyyy"), "14.11.2026");
  EXPECT_EQ(shown(46340.75, u"m/d/yyyy h:mm"), "14.11.2026 18:00");
  EXPECT_EQ(shown(46340, u"d/m/yyyy"), "14/11/2026");
  // Literal text keeps its points and commas; the file form is untouched.
  EXPECT_EQ(shown(3, u"0\" St.\""), "3 St.");
  EXPECT_EQ(show(1234.5, u"#,##0.00"), "1,234.50");
}

}  // namespace
}  // namespace qz::engine::numfmt

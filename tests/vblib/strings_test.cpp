#include <gtest/gtest.h>

#include "qzxl/convert.hpp"
#include "vblib/vblib.hpp"

namespace qz::vblib {
namespace {

using Pieces = std::vector<String>;

TEST(QualifierSplit, GivesTheBareSheetOrTheQualifierAsWritten) {
  String q;
  EXPECT_EQ(Strings::qualifier_split(u"Sheet1!A1", true, q), u"A1");
  EXPECT_EQ(q, u"Sheet1");
  EXPECT_EQ(Strings::qualifier_split(u"Sheet1!A1", false, q), u"A1");
  EXPECT_EQ(q, u"Sheet1!");
  EXPECT_EQ(Strings::qualifier_split(u"'My Sheet'!A1:B2", true, q), u"A1:B2");
  EXPECT_EQ(q, u"My Sheet");
  EXPECT_EQ(Strings::qualifier_split(u"'My Sheet'!A1:B2", false, q), u"A1:B2");
  EXPECT_EQ(q, u"'My Sheet'!");
  EXPECT_EQ(Strings::qualifier_split(u"'It''s'!Total", true, q), u"Total");
  EXPECT_EQ(q, u"It's");
  // A "!" inside a quoted sheet name is not the qualifier's end.
  EXPECT_EQ(Strings::qualifier_split(u"'Wow!'!C3", true, q), u"C3");
  EXPECT_EQ(q, u"Wow!");
  q = u"stale";
  EXPECT_EQ(Strings::qualifier_split(u"A1", true, q), u"A1");
  EXPECT_EQ(q, u"");
}

TEST(Split, CutsAtEveryDelimiterAndKeepsEmptyPieces) {
  EXPECT_EQ(Strings::split(u"A1, +A2 ,+B7", u","), (Pieces{u"A1", u" +A2 ", u"+B7"}));
  EXPECT_EQ(Strings::split(u"a,", u","), (Pieces{u"a", u""}));
  EXPECT_EQ(Strings::split(u",,", u","), (Pieces{u"", u"", u""}));
  EXPECT_EQ(Strings::split(u"abc", u","), (Pieces{u"abc"}));
  EXPECT_EQ(Strings::split(u"abc", u""), (Pieces{u"abc"}));
  EXPECT_TRUE(Strings::split(u"", u",").empty());
}

TEST(Split, HonoursTheLimitAndTheCompareMode) {
  EXPECT_EQ(Strings::split(u"a,b,c", u",", 2), (Pieces{u"a", u"b,c"}));
  EXPECT_EQ(Strings::split(u"a,b,c", u",", 1), (Pieces{u"a,b,c"}));
  EXPECT_EQ(Strings::split(u"aXbxc", u"x", -1, 1), (Pieces{u"a", u"b", u"c"}));
  EXPECT_EQ(Strings::split(u"aXbxc", u"x", -1, 0), (Pieces{u"aXb", u"c"}));
  EXPECT_EQ(Strings::split(u"1 and 2 AND 3", u" and "), (Pieces{u"1", u"2", u"3"}));
}

TEST(Replace, ReplacesEveryOccurrenceWithoutRegardToCase) {
  EXPECT_EQ(Strings::replace(u"Sum(a1)+sum(A1)", u"a1", u"B2"), u"Sum(B2)+sum(B2)");
  EXPECT_EQ(Strings::replace(u"Sum(a1)+sum(A1)", u"a1", u"B2", 1, -1, 0), u"Sum(B2)+sum(A1)");
  EXPECT_EQ(Strings::replace(u"a-a-a", u"a", u"b", 1, 2), u"b-b-a");
  // The replacement is not searched again.
  EXPECT_EQ(Strings::replace(u"aaa", u"a", u"aa"), u"aaaaaa");
  EXPECT_EQ(Strings::replace(u"abc", u"", u"x"), u"abc");
}

TEST(Replace, ReturnsTheTextFromTheStartPosition) {
  EXPECT_EQ(Strings::replace(u"A1+A1", u"A1", u"C3", 3), u"+C3");
  EXPECT_EQ(Strings::replace(u"abc", u"b", u"x", 4), u"");
  EXPECT_THROW(Strings::replace(u"abc", u"b", u"x", 0), Error);
}

TEST(InstrOutsideQuotes, SkipsQuotedStretches) {
  EXPECT_EQ(Strings::instr_outside_quotes(1, u"\"a!b\"&Sheet1!A1", u"!"), 13);
  EXPECT_EQ(Strings::instr_outside_quotes(1, u"\"[Book]\"&A1", u"]"), 0);
  // A doubled quote inside quotes is a quote character, not the stretch's end.
  EXPECT_EQ(Strings::instr_outside_quotes(1, u"\"x\"\"!\"&B!C", u"!"), 9);
  EXPECT_EQ(Strings::instr_outside_quotes(1, u"A1+B2", u"!"), 0);
  EXPECT_EQ(Strings::instr_outside_quotes(1, u"[Book1.xls]Sheet1!A1", u"]"), 11);
}

TEST(InstrOutsideQuotes, StartsAtTheGivenPositionButKnowsEarlierQuotes) {
  EXPECT_EQ(Strings::instr_outside_quotes(3, u"a!b!c", u"!"), 4);
  // The quote opened before the start still hides the "!" after it.
  EXPECT_EQ(Strings::instr_outside_quotes(3, u"\"a!b\"!c", u"!"), 6);
  EXPECT_EQ(Strings::instr_outside_quotes(1, u"ab", u""), 0);
}

TEST(StripNames, RemoveTheSheetQualifier) {
  String sheet;
  EXPECT_EQ(Strings::strip_wks_name(u"Sheet1!_bqz.x", &sheet, false), u"_bqz.x");
  EXPECT_EQ(sheet, u"Sheet1");
  EXPECT_EQ(Strings::strip_wks_name(u"'My Sheet'!A1", &sheet, false), u"A1");
  EXPECT_EQ(sheet, u"'My Sheet'");
  EXPECT_EQ(Strings::strip_wks_name(u"'My Sheet'!A1", &sheet, true), u"A1");
  EXPECT_EQ(sheet, u"My Sheet");
  EXPECT_EQ(Strings::strip_wks_name(u"'C:\\x\\[Book.xls]Data'!A1", &sheet, true), u"A1");
  EXPECT_EQ(sheet, u"Data");
  EXPECT_EQ(Strings::strip_wks_name(u"Total", &sheet, true), u"Total");
  EXPECT_EQ(sheet, u"");
  EXPECT_EQ(Strings::strip_wks_name(u"Sheet1!A1", nullptr, true), u"A1");
}

TEST(StripNames, RemoveTheWorkbookQualifier) {
  String book;
  EXPECT_EQ(Strings::strip_wkb_name(u"[Book1.xls]Sheet1!A1", &book, false), u"Sheet1!A1");
  EXPECT_EQ(book, u"Book1.xls");
  EXPECT_EQ(Strings::strip_wkb_name(u"'C:\\dir\\[Book1.xls]Sheet1'!A1", &book, false),
            u"Sheet1!A1");
  EXPECT_EQ(book, u"Book1.xls");
  // The sheet keeps the apostrophes it needs, unless asked for a clean name.
  EXPECT_EQ(Strings::strip_wkb_name(u"'[Q 1.xls]My Sheet'!A1", &book, false), u"'My Sheet'!A1");
  EXPECT_EQ(Strings::strip_wkb_name(u"'[Q 1.xls]My Sheet'!A1", &book, true), u"My Sheet!A1");
  EXPECT_EQ(book, u"Q 1.xls");
  EXPECT_EQ(Strings::strip_wkb_name(u"Sheet1!A1", &book, false), u"Sheet1!A1");
  EXPECT_EQ(book, u"");
}

TEST(CutEnd, CountsUtf16Units) {
  EXPECT_EQ(Strings::cut_end(u"Budget (2)", 4), u"Budget");
  EXPECT_EQ(Strings::cut_end(u"Budget", 0), u"Budget");
  EXPECT_EQ(Strings::cut_end(u"Budget", -3), u"Budget");
  EXPECT_EQ(Strings::cut_end(u"Bud", 9), u"");
  EXPECT_EQ(Strings::cut_end(u"ab\U0001F600", 2), u"ab");
}

TEST(ParseTextbox, GivesOneEntryPerNonBlankLine) {
  EXPECT_EQ(Strings::parse_textbox(u"a\r\nb\n\n  c  \rd\r\n"), (Pieces{u"a", u"b", u"c", u"d"}));
  EXPECT_EQ(Strings::parse_textbox(u"only"), (Pieces{u"only"}));
  EXPECT_EQ(Strings::parse_textbox(u"first entry\r\n\r\nsecond, with comma"),
            (Pieces{u"first entry", u"second, with comma"}));
  EXPECT_TRUE(Strings::parse_textbox(u"").empty());
  EXPECT_TRUE(Strings::parse_textbox(u"  \r\n \n").empty());
}

TEST(FullNames, SplitAndJoinKeepingTheSeparatorStyle) {
  String name, folder;
  Strings::split_full_name(u"C:\\dir\\Book.xls", name, folder);
  EXPECT_EQ(name, u"Book.xls");
  EXPECT_EQ(folder, u"C:\\dir");
  Strings::split_full_name(u"Book.xls", name, folder);
  EXPECT_EQ(name, u"Book.xls");
  EXPECT_EQ(folder, u"");
  EXPECT_EQ(Strings::join_path(u"C:\\dir\\", u"Book.xls"), u"C:\\dir\\Book.xls");
  EXPECT_EQ(Strings::join_path(u"/tmp", u"/x.xlt"), u"/tmp/x.xlt");
  EXPECT_EQ(Strings::join_path(u"", u"x.xlt"), u"x.xlt");
}

TEST(Messages, EveryNumberTheLibraryAsksForHasText) {
  for (int32_t n : {4, 2002, 2004, 2005, 2006, 2007, 5030})
    EXPECT_FALSE(Strings::message(n).empty()) << n;
  EXPECT_EQ(Strings::message(1), u"");
}

}  // namespace
}  // namespace qz::vblib

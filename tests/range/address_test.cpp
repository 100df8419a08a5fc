// Range addresses and references against the engine.
#include "library_fixture.hpp"

namespace qz::test {
namespace {

class Addresses : public LibraryTest {
 protected:
  host::WorksheetPtr add_sheet(const char16_t* name) {
    auto s = wb->worksheets()->add(Variant::missing(), Variant(ws));
    s->set_name(name);
    return s;
  }
  std::string split(const char* text, bool excl = false) {
    adjustment = 999;
    pieces = {u"stale"};
    return to_utf8(ranges->SplitRange(u16(text), pieces, &adjustment, excl));
  }
  std::string merge(const char* text) {
    adjustment = 999;
    return to_utf8(ranges->MergeRanges(u16(text), &adjustment));
  }
  host::RangePtr selection() { return std::dynamic_pointer_cast<host::Range>(app->selection()); }
  std::vector<String> pieces;
  int32_t adjustment = 0;
};

TEST_F(Addresses, SplitRangeListsEveryCellRowByRow) {
  EXPECT_EQ(split("A1:A3"), "A1,A2,A3");
  EXPECT_EQ(pieces, (std::vector<String>{u"A1", u"A2", u"A3"}));
  EXPECT_EQ(adjustment, 3);
  // The sheet name is quoted on every piece, needed or not, unless it is left out; the
  // address itself is read on the active sheet.
  EXPECT_EQ(split("Data!A1:B2"), "'Data'!A1,'Data'!B1,'Data'!A2,'Data'!B2");
  EXPECT_EQ(split("Data!A1:B2", true), "A1,B1,A2,B2");
  EXPECT_EQ(split("'My Sheet'!C3"), "'My Sheet'!C3");
  EXPECT_EQ(adjustment, 0);
  // Unresolvable text gives nothing, and the adjustment says the whole text went.
  EXPECT_EQ(split("not a range!"), "");
  EXPECT_TRUE(pieces.empty());
  EXPECT_EQ(adjustment, -12);
}

TEST_F(Addresses, MergeRangesFoldsCellsIntoTheShortestAddress) {
  EXPECT_EQ(merge("A1, +A2, +A3"), "A1:A3");
  EXPECT_EQ(adjustment, -7);
  EXPECT_EQ(merge("A1,B1,A2,B2,D4"), "A1:B2,D4");  // the host's own join of areas
  // A subtraction cannot be merged: the text comes back as it was.
  EXPECT_EQ(merge("A1,-A2"), "A1,-A2");
  EXPECT_EQ(adjustment, 999);
  EXPECT_EQ(merge("A1,Q"), "");
}

TEST_F(Addresses, MergeRangesQualifiesEveryAreaWithTheFirstPiecesSheet) {
  auto data = add_sheet(u"Data");
  EXPECT_EQ(merge("'Data'!A1,'Data'!A2,'Data'!C5"), "'Data'!A1:A2,'Data'!C5");
  // An unqualified piece lies on the active sheet: another sheet here, so the union fails.
  ws->activate();
  EXPECT_EQ(merge("'Data'!A1,A2"), "");
  EXPECT_EQ(adjustment, 999);
  data->activate();
  EXPECT_EQ(merge("'Data'!A1,A2"), "'Data'!A1:A2");
}

TEST_F(Addresses, RefRangeResolvesInTheNamedWorkbookAndNowhereElse) {
  add_sheet(u"My Sheet");
  define(wb->names(), u"Rate", u"='My Sheet'!$D$4");
  app->workbooks()->add();  // another workbook is active now
  auto b2 = ranges->RangeFromAddr(app, wb->name(), u"'My Sheet'!B2");
  ASSERT_TRUE(b2);
  EXPECT_EQ(b2->worksheet()->parent()->name() + b2->worksheet()->name(), wb->name() + u"My Sheet");
  EXPECT_EQ(addr(ranges->RefRange(wb, u"'My Sheet'!Rate")), "D4");
  for (const char16_t* bad : {u"Nowhere!B2", u"'My Sheet'!no such thing", u"B2"})
    EXPECT_FALSE(ranges->RefRange(wb, bad)) << to_utf8(bad);
  EXPECT_FALSE(ranges->RangeFromAddr(app, u"NoSuchBook", u"'My Sheet'!B2"));
}

TEST_F(Addresses, RangeActivateAndRangeNameFriendly) {
  auto target = add_sheet(u"Target")->range(Variant(u"C3:D4"));
  app->workbooks()->add();
  ranges->RangeActivate(target);
  EXPECT_EQ(app->active_workbook()->name(), wb->name());
  EXPECT_EQ(addr(selection()), "C3:D4");

  auto names = wb->names();
  EXPECT_EQ(ranges->RangeNameFriendly(define(names, u"Total", u"=A1"), u""), u"Total");
  EXPECT_EQ(ranges->RangeNameFriendly(define(names, u"Sheet1!Loc", u"=A1"), u""), u"Loc (Sheet1)");
  EXPECT_EQ(ranges->RangeNameFriendly(define(names, u"Hid", u"=A1", false), u""),
            u"Auto-generated range name");
  EXPECT_EQ(ranges->RangeNameFriendly(nullptr, u"'My Sheet'!Rate"), u"Rate (My Sheet)");
}

TEST_F(Addresses, AdjustedRangeSpansTheFilledRunsFromTheTopLeftCell) {
  for (const char* a : {"B2", "C2", "D2", "B3", "B4", "C4", "F2"}) put(a, "1");
  ws->range(Variant(u"H1:H2,J1"))->select();
  EXPECT_EQ(addr(ranges->AdjustedRange(r("B2:B2"))), "B2:D4");
  EXPECT_EQ(addr(ranges->AdjustedRange(r("C4:Z9"))), "C4");
  EXPECT_EQ(addr(ranges->AdjustedRange(r("B3"))), "B3:B4");
  // The selection comes back as its first area, and the screen updates again.
  EXPECT_EQ(addr(selection()), "H1:H2");
  EXPECT_TRUE(app->screen_updating());
  // Screen updating is left as it was found, off as well as on.
  app->set_screen_updating(false);
  EXPECT_EQ(addr(ranges->AdjustedRange(r("B2"))), "B2:D4");
  EXPECT_FALSE(app->screen_updating());
}

}  // namespace
}  // namespace qz::test

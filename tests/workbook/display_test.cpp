// Listings of keys, macros and hot keys.
#include "workbook/library_fixture.hpp"

namespace qz::test {
namespace {

Variant list(std::vector<Variant> entries) {
  return Variant(one_based(std::move(entries)));
}

class Listings : public LibraryTest {
 protected:
  // A row's texts, "|"-joined, up to its first empty cell.
  std::string line_on(const host::WorksheetPtr& ws, int32_t row) {
    std::string out;
    for (int32_t c = 1; !ws->cell(row, c)->text().empty(); ++c)
      out += (c > 1 ? "|" : "") + to_utf8(ws->cell(row, c)->text());
    return out;
  }
  std::string line(int32_t row) { return line_on(active(), row); }
  double width(const char16_t* column) {
    return to_double(active()->range(Variant(column))->column_width());
  }
  host::WorksheetPtr active() {
    return std::dynamic_pointer_cast<host::Worksheet>(app->active_sheet());
  }
  iDisplayPtr display = lib->NewDisplay();
};

TEST_F(Listings, KeysBecomeAHeadedListOnTheActiveSheet) {
  display->DisplayKeyArray(list({u"Esc"}));  // no workbook, no active sheet: nothing
  EXPECT_EQ(books(), 0);
  auto book = add_book();
  auto first = active();
  first->range(Variant(u"F30"))->set_value(Variant(u"old"));
  display->DisplayKeyArray(Variant(u"not a list"));
  EXPECT_EQ(line(1), "");

  Variant keys = list({list({u"F2", u"Edit the active cell"}), list({u"", Variant()}),
                       list({u"+^A", u"=Select all"}), Variant(u"Esc")});
  display->DisplayKeyArray(keys);
  EXPECT_EQ(active(), first);
  EXPECT_EQ(book->worksheets()->count(), 1);
  EXPECT_EQ(line(1) + "/" + line(2) + "/" + line(3), "Quazel//Key|Description");
  EXPECT_EQ(active()->range(Variant(u"A1,A3:B3"))->font()->bold(), Variant(true));
  // The blank entry is left out; texts stay texts whatever they begin with.
  EXPECT_EQ(line(4) + "/" + line(5) + "/" + line(6) + "/" + line(7),
            "F2|Edit the active cell/+^A|=Select all/Esc/");
  EXPECT_FALSE(active()->range(Variant(u"B5"))->has_formula());
  EXPECT_EQ(active()->range(Variant(u"F30"))->formula(), u"");  // the working area was cleared
  // Fitted to the longest text of each column, not to the label.
  EXPECT_LT(width(u"A:A"), 8.0);
  EXPECT_GE(width(u"B:B"), 15.0);

  // With a chart sheet active nothing is written anywhere.
  app->workbooks()->add(Variant(host::xl::Chart));
  display->DisplayMacroArray(list({}));
  EXPECT_EQ(line_on(first, 3), "Key|Description");
  // A second list replaces the first on the same sheet.
  book->activate();
  display->DisplayMacroArray(list({}));
  EXPECT_EQ(book->worksheets()->count(), 1);
  EXPECT_EQ(line(3) + "/" + line(4), "Macro|Description/");
}

TEST_F(Listings, HotKeysOnAGivenSheetWithTheirOwnLabel) {
  auto ws = sheet(add_book());
  ws->range(Variant(u"A40"))->set_value(Variant(u"old"));
  add_book();
  display->DisplayHotKeyArray(list({list({u"^+C", u"ColorCells", u"Colour cells", 7.0}),
                                    list({u"iiiiiiiiiiiiiiii", u"WWWWWWWWWWWWWWWW"})}),
                              ws, u"Modeler");
  ASSERT_EQ(active(), ws);
  EXPECT_EQ(line(1) + "/" + line(3) + "/" + line(4),
            "Modeler/Hot Key|Macro|Description|Column 4/^+C|ColorCells|Colour cells|7");
  EXPECT_EQ(ws->range(Variant(u"D4"))->value(), Variant(7.0));
  EXPECT_EQ(line(40), "");  // the sheet was cleared first
  // Columns are fitted as the font measures their texts: as many wide letters take more room.
  EXPECT_GT(width(u"B:B"), 2 * width(u"A:A"));
  // Filter buttons over the heading and the entries; listed again on the same sheet, they
  // follow the new list rather than being switched off.
  ASSERT_TRUE(ws->auto_filter_mode());
  EXPECT_EQ(ws->auto_filter()->range()->address(), u"$A$3:$D$5");
  display->DisplayHotKeyArray(list({list({u"^A", u"A"}), list({u"^B", u"B"})}), ws);
  ASSERT_TRUE(ws->auto_filter_mode());
  EXPECT_EQ(ws->auto_filter()->range()->address(), u"$A$3:$C$5");
}

}  // namespace
}  // namespace qz::test

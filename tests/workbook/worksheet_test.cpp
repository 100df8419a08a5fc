// A sheet's working area, safe renaming, and the landmark that identifies a sheet.
#include <regex>

#include "vblib/vblib.hpp"
#include "workbook/library_fixture.hpp"

namespace qz::test {
namespace {

class Worksheets : public LibraryTest {
 protected:
  Worksheets() {
    book = add_book();
    ws = sheet(book);
  }
  host::WorksheetPtr add_sheet(const String& name) {
    auto s = book->worksheets()->add(Variant::missing(),
                                     Variant(sheet(book, book->worksheets()->count())));
    s->set_name(name);
    return s;
  }
  std::string address(const host::RangePtr& r) {
    return r ? to_utf8(r->address(false, false)) : "(nothing)";
  }
  iWorksheetPtr wks = lib->NewWorksheet();
  host::WorkbookPtr book;
  host::WorksheetPtr ws;
};

TEST_F(Worksheets, UsedRangeAlwaysStartsAtA1) {
  EXPECT_EQ(address(wks->QZUsedRange(ws)), "A1");  // an empty sheet
  ws->range(Variant(u"C5"))->set_value(Variant(1.0));
  ws->range(Variant(u"D9"))->set_value(Variant(u"x"));
  EXPECT_EQ(address(wks->QZUsedRange()), "A1:D9");

  engine::book_of(book)->add_sheet(u"Chart1", engine::SheetKind::Chart);
  book->charts()->item(Variant(int32_t{1}))->activate();
  EXPECT_EQ(wks->QZUsedRange(), nullptr);  // a chart sheet has no cells
}

TEST_F(Worksheets, RenamingCountsUpPastNamesInUse) {
  add_sheet(u"Sheet1 (2)");
  auto other = add_sheet(u"Other");
  wks->NameWorksheet(other, u"Sheet1");
  EXPECT_EQ(other->name(), u"Sheet1 (3)");

  // Long names: cut to 31, and shortened further to make room for the counter.
  const String forty = u"Quarterly budget for the northern region";
  auto a = add_sheet(u"A"), b = add_sheet(u"B");
  wks->NameWorksheet(a, forty);
  EXPECT_EQ(a->name(), forty.substr(0, 31));
  wks->NameWorksheet(b, forty);
  EXPECT_EQ(b->name(), forty.substr(0, 27) + u" (2)");
  for (int n = 3; n <= 9; ++n)
    add_sheet(forty.substr(0, 27) + u" (" + u16(std::to_string(n)) + u")");
  auto c = add_sheet(u"C");
  wks->NameWorksheet(c, forty);
  EXPECT_EQ(c->name(), forty.substr(0, 26) + u" (10)");

  wks->NameWorksheet(c, u"");  // nothing to do
  EXPECT_EQ(c->name(), forty.substr(0, 26) + u" (10)");
}

TEST_F(Worksheets, LandmarkIsMadeOnceAndMarksTheWorkbook) {
  // A sheet-level name over all cells is no landmark: it goes.
  host::NameAddArgs local;
  local.name = Variant(u"Sheet1!Everything");
  local.refers_to = Variant(ws->cells());
  book->names()->add(local);
  String landmark = wks->AssignQZWksName(ws, u"QZDirty");
  EXPECT_TRUE(std::regex_match(to_utf8(landmark), std::regex(R"(_bqz\.[0-9A-F]{32}\.eqz)")));
  auto name = book->names()->item(Variant(landmark));
  EXPECT_FALSE(name->visible());
  EXPECT_EQ(name->refers_to_range()->count(), ws->cells()->count());
  EXPECT_EQ(vblib::DocProps::get_text(book, u"QZDirty"), u"true");

  // The second time the name is found and the workbook is not marked again.
  book->custom_document_properties()->item(Variant(u"QZDirty"))->delete_();
  EXPECT_EQ(wks->AssignQZWksName(ws, u"QZDirty"), landmark);
  EXPECT_EQ(vblib::DocProps::get_text(book, u"QZDirty"), u"");
  EXPECT_EQ(book->names()->count(), 1);
}

TEST_F(Worksheets, SheetFoundByLandmarkWhateverItIsCalled) {
  auto data = add_sheet(u"Data");
  String landmark = wks->AssignQZWksName(data, u"QZDirty");
  data->set_name(u"Renamed");
  EXPECT_EQ(wks->WksFromLandmark(book, landmark, Variant(u"Sheet1")), data);
  EXPECT_EQ(wks->WksFromLandmark(book, u"_bqz.none.eqz", Variant(u"Sheet1")), ws);
  EXPECT_EQ(wks->WksFromLandmark(book, u"_bqz.none.eqz"), nullptr);
  EXPECT_EQ(wks->WksFromLandmark(book, u"_bqz.none.eqz", Variant(u"Nowhere")), nullptr);
}

TEST_F(Worksheets, StaleLandmarksAreRemovedOnTheWay) {
  // Only a sheet-level name of the landmark's text: it goes and the fallback answers.
  auto data = add_sheet(u"Data");
  host::NameAddArgs local;
  local.name = Variant(u"Data!_bqz.1.eqz");
  local.refers_to = Variant(u"=Data!$A$1");
  book->names()->add(local);
  EXPECT_EQ(wks->WksFromLandmark(book, u"_bqz.1.eqz", Variant(u"Sheet1")), ws);
  EXPECT_EQ(book->names()->count(), 0);

  // A landmark whose sheet was deleted refers to nothing and goes too.
  String landmark = wks->AssignQZWksName(data, u"QZDirty");
  data->delete_();
  EXPECT_EQ(wks->WksFromLandmark(book, landmark, Variant(u"Sheet1")), ws);
  EXPECT_EQ(book->names()->count(), 0);
}

}  // namespace
}  // namespace qz::test

// Inserting and deleting rows and columns (formulas, names, hyperlinks and line properties
// follow their cells), copying with relative references, and clearing.
#include "engine_fixture.hpp"

namespace qz::engine::test {
namespace {

using Structure = EngineTest;
namespace xl = host::xl;

double num(const Variant& v) {
  return v.is_number() ? v.dbl() : -99999;
}

TEST_F(Structure, InsertedRowsMoveFormulasAndGrowRanges) {
  for (const char* a : {"A1", "A2", "A3"}) put(a, "1");
  put("A5", "=SUM(A1:A3)");
  put("B1", "=A3*2");
  put("C1", "=$A$3");
  ws->range(V("2:3"))->insert();
  EXPECT_EQ(formula("A7"), "=SUM(A1:A5)");
  EXPECT_EQ(formula("B1"), "=A5*2");
  EXPECT_EQ(formula("C1"), "=$A$5");
  EXPECT_TRUE(value("A5").is_number());
  EXPECT_TRUE(value("A2").is_empty());
  put("A2", "10");
  EXPECT_EQ(num(value("A7")), 13);
  // Inserting below a range leaves it alone.
  ws->range(V("9:9"))->insert();
  EXPECT_EQ(formula("A7"), "=SUM(A1:A5)");
}

TEST_F(Structure, DeletedRowsShrinkRangesAndBreakReferences) {
  for (const char* a : {"A1", "A2", "A3", "A4"}) put(a, "2");
  put("B1", "=SUM(A1:A4)");
  put("B2", "=A3");
  r("A3")->entire_row()->delete_();
  EXPECT_EQ(formula("B1"), "=SUM(A1:A3)");
  EXPECT_EQ(num(value("B1")), 6);
  EXPECT_EQ(formula("B2"), "=#REF!");
  EXPECT_EQ(value("B2").error().code, cell_error::ref);
  EXPECT_EQ(num(value("A3")), 2);  // the old A4 moved up
}

TEST_F(Structure, ColumnsAndOtherSheetsFollowToo) {
  auto other = wb->worksheets()->add(Variant::missing(), Variant(ObjectPtr(ws)));
  put("C1", "5");
  other->range(V("A1"))->set_formula(u"=Sheet1!C1+1");
  ws->range(V("A:B"))->insert();
  EXPECT_EQ(to_utf8(other->range(V("A1"))->formula()), "=Sheet1!E1+1");
  EXPECT_EQ(num(other->range(V("A1"))->value()), 6);
  ws->range(V("E:E"))->delete_();
  EXPECT_EQ(to_utf8(other->range(V("A1"))->formula()), "=Sheet1!#REF!+1");
}

TEST_F(Structure, NamesHyperlinksAndLinePropertiesFollowTheirCells) {
  host::NameAddArgs args;
  args.name = V("Block");
  args.refers_to = Variant(ObjectPtr(r("B2:C3")));
  wb->names()->add(args);
  ws->hyperlinks()->add(r("D4"), u"https://example.org/", Variant::missing(), Variant::missing(),
                        V("link"));
  r("A4")->entire_row()->set_row_height(30);
  ws->range(V("1:1"))->insert();
  EXPECT_EQ(to_utf8(wb->names()->item(V("Block"))->refers_to()), "=Sheet1!$B$3:$C$4");
  EXPECT_EQ(addr(ws->hyperlinks()->item(1)->range()), "D5");
  EXPECT_EQ(r("A5")->row_height(), Variant(30.0));
  EXPECT_EQ(r("A4")->row_height(), Variant(15.0));
  EXPECT_EQ(r("D5")->hyperlinks()->count(), 1);
  ws->range(V("B:B"))->delete_();
  EXPECT_EQ(to_utf8(wb->names()->item(V("Block"))->refers_to()), "=Sheet1!$B$3:$B$4");
  ws->range(V("5:5"))->delete_();
  EXPECT_EQ(ws->hyperlinks()->count(), 0);
}

TEST_F(Structure, PartOfARowCannotBeShifted) {
  put("A1", "1");
  EXPECT_THROW(r("A1:B1")->insert(Variant(xl::ShiftDown)), Error);
  EXPECT_EQ(num(value("A1")), 1);
}

TEST_F(Structure, CopyMovesRelativeReferencesAndCarriesFormats) {
  put("A1", "3");
  put("B1", "=A1*2");
  put("C1", "=$A$1+A1");
  r("B1")->set_number_format(u"0.00");
  r("B1")->font()->set_bold(Variant(true));
  r("B1:C1")->copy(r("E5"));
  EXPECT_EQ(formula("E5"), "=D5*2");
  EXPECT_EQ(formula("F5"), "=$A$1+D5");
  EXPECT_EQ(to_utf8(to_string(r("E5")->number_format())), "0.00");
  EXPECT_EQ(r("E5")->font()->bold(), Variant(true));
  put("D5", "4");
  EXPECT_EQ(text("E5"), "8.00");
  // A destination that is a multiple of the source is filled with copies.
  r("A1")->copy(r("H1:H3"));
  EXPECT_EQ(num(value("H3")), 3);
  // Empty source cells empty the destination.
  put("J2", "x");
  r("I1:I2")->copy(r("J1"));
  EXPECT_TRUE(value("J2").is_empty());
  // To another sheet: unqualified references stay relative to the formula's own sheet.
  auto other = wb->worksheets()->add(Variant::missing(), Variant(ObjectPtr(ws)));
  r("B1")->copy(other->range(V("B2")));
  EXPECT_EQ(to_utf8(other->range(V("B2"))->formula()), "=A2*2");
  EXPECT_THROW(r("A1:A2,C1")->copy(r("Z1")), Error);
}

TEST_F(Structure, CopyToAnotherWorkbookBringsItsFormatsAlong) {
  put("A1", "x2");
  r("A1")->characters(V(2), V(1))->font()->set_superscript(Variant(true));
  r("A1")->interior()->set_color(Variant(int32_t{0x00FF00}));
  put("B1", "4");
  r("B1")->set_number_format(u"0.0%");
  put("C1", "=B1*2");
  auto other = app->workbooks()->add();
  auto target = other->worksheets()->item(V(1));
  r("A1:C1")->copy(target->range(V("B2")));
  auto at = [&](const char* a) { return target->range(V(a)); };
  EXPECT_EQ(at("B2")->characters(V(2), V(1))->font()->superscript(), Variant(true));
  EXPECT_EQ(at("B2")->characters(V(1), V(1))->font()->superscript(), Variant(false));
  EXPECT_EQ(at("B2")->interior()->color(), Variant(int32_t{0x00FF00}));
  EXPECT_EQ(to_utf8(at("C2")->text()), "400.0%");
  EXPECT_EQ(to_utf8(at("D2")->formula()), "=C2*2");
  EXPECT_EQ(at("D2")->value(), Variant(8.0));
  // The source workbook's tables are untouched by the copy.
  EXPECT_FALSE(book_of(other)->styles.xfs.empty());
  EXPECT_EQ(r("A1")->interior()->color(), Variant(int32_t{0x00FF00}));
}

TEST_F(Structure, ClearContentsKeepsFormatsClearRemovesThem) {
  put("A1", "5");
  r("A1")->set_number_format(u"0.00");
  r("A1")->clear_contents();
  EXPECT_TRUE(value("A1").is_empty());
  EXPECT_EQ(to_utf8(to_string(r("A1")->number_format())), "0.00");
  put("A1", "5");
  r("A1")->clear();
  EXPECT_TRUE(value("A1").is_empty());
  EXPECT_EQ(to_utf8(to_string(r("A1")->number_format())), "General");
  EXPECT_EQ(sheet().cells.size(), 0u);
}

}  // namespace
}  // namespace qz::engine::test

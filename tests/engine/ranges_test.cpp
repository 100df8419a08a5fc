// Ranges: End, Item, Count, Address forms, Union and Intersect, reference text, Offset and
// Resize, selection, and row/column properties.
#include "engine_fixture.hpp"

namespace qz::engine::test {
namespace {

using Ranges = EngineTest;
namespace xl = host::xl;

TEST_F(Ranges, EndMovesLikeControlArrowOverBlocksGapsAndEdges) {
  for (const char* a : {"A1", "A2", "A3", "A6", "A10", "A11"}) put(a, "1");
  for (const char* a : {"A20", "B20", "C20", "E20"}) put(a, "x");
  struct Case {
    const char* from;
    int32_t dir;
    const char* to;
  } cases[] = {
      {"A1", xl::Down, "A3"},   // to the end of the block
      {"A3", xl::Down, "A6"},   // across the gap to the next filled cell
      {"A4", xl::Down, "A6"},   // from an empty cell
      {"A6", xl::Down, "A10"},  // a single filled cell jumps to the next one
      {"A11", xl::Down, "A20"},     {"A20", xl::Down, "A1048576"},  // nothing below: the edge
      {"A1", xl::Up, "A1"},                                         // at the edge already
      {"A5", xl::Up, "A3"},         {"A10", xl::Up, "A6"},         {"A20", xl::ToRight, "C20"},
      {"C20", xl::ToRight, "E20"},  {"E20", xl::ToRight, "XFD20"}, {"XFD20", xl::ToLeft, "E20"},
      {"C20", xl::ToLeft, "A20"},   {"D20", xl::ToLeft, "C20"},    {"B5", xl::Down, "B20"},
      {"F5", xl::Down, "F1048576"}, {"F5", xl::Up, "F1"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(addr(r(c.from)->end(c.dir)), c.to) << c.from << " " << c.dir;
  EXPECT_THROW(r("A1")->end(7), Error);
}

TEST_F(Ranges, EndStopsAtFormulasThatShowNothing) {
  put("H3", "=\"\"");
  EXPECT_EQ(addr(r("H1")->end(xl::Down)), "H3");
  // A cell with only a format is empty for the jump.
  r("H6")->set_number_format(u"0.00");
  EXPECT_EQ(addr(r("H4")->end(xl::Down)), "H1048576");
}

TEST_F(Ranges, ItemGoesRowByRowOverTheFirstAreasWidth) {
  auto block = r("B2:C3");
  EXPECT_EQ(addr(block->item(1)), "B2");
  EXPECT_EQ(addr(block->item(2)), "C2");
  EXPECT_EQ(addr(block->item(3)), "B3");
  EXPECT_EQ(addr(block->item(5)), "B4");  // past the end: continues below
  EXPECT_EQ(addr(block->item(0)), "C1");  // before the start: the row above
  auto multi = r("A1:B2,D5");
  EXPECT_EQ(multi->count(), 5);
  EXPECT_EQ(addr(multi->item(3)), "A2");
  EXPECT_EQ(addr(multi->item(5)), "A3");  // not D5: indexing ignores later areas
  EXPECT_EQ(addr(r("B2")->cell(2, 3)), "D3");
  EXPECT_EQ(addr(r("B2")->cell(0, 0)), "A1");
  EXPECT_THROW(r("A1")->cell(0, 1), Error);
  EXPECT_THROW(r("A1")->item(-1), Error);
}

TEST_F(Ranges, RowsAndColumnsCollectionsCountLines) {
  auto block = r("B2:D3");
  EXPECT_EQ(block->rows()->count(), 2);
  EXPECT_EQ(block->columns()->count(), 3);
  EXPECT_EQ(block->count(), 6);
  EXPECT_EQ(addr(block->rows()->item(2)), "B3:D3");
  EXPECT_EQ(addr(block->columns()->item(3)), "D2:D3");
  EXPECT_EQ(ws->rows()->count(), 1048576);
  EXPECT_EQ(ws->columns()->count(), 16384);
  EXPECT_EQ(ws->cells()->count(), int64_t{1048576} * 16384);
  // Lines are counted on the first area only.
  EXPECT_EQ(r("A1:C3,E5:E6")->rows()->count(), 3);
  std::vector<std::string> seen;
  r("A1:B2")->for_each_cell([&](const host::RangePtr& c) {
    seen.push_back(addr(c));
    return true;
  });
  EXPECT_EQ(seen, (std::vector<std::string>{"A1", "B1", "A2", "B2"}));
}

TEST_F(Ranges, AddressFormsAndSwitches) {
  auto block = r("B2:C3");
  EXPECT_EQ(to_utf8(block->address()), "$B$2:$C$3");
  EXPECT_EQ(to_utf8(block->address(false, false)), "B2:C3");
  EXPECT_EQ(to_utf8(block->address(true, false)), "B$2:C$3");
  EXPECT_EQ(to_utf8(block->address(false, true)), "$B2:$C3");
  EXPECT_EQ(to_utf8(block->address(true, true, xl::R1C1)), "R2C2:R3C3");
  EXPECT_EQ(to_utf8(block->address(false, false, xl::R1C1, false, r("A1"))), "R[1]C[1]:R[2]C[2]");
  EXPECT_EQ(to_utf8(r("C3")->address(false, false, xl::R1C1, false, r("C3"))), "RC");
  EXPECT_EQ(to_utf8(block->address(true, true, xl::A1, true)), "[Book1]Sheet1!$B$2:$C$3");
  ws->set_name(u"My Sheet");
  EXPECT_EQ(to_utf8(block->address(true, true, xl::A1, true)), "'[Book1]My Sheet'!$B$2:$C$3");
  EXPECT_EQ(to_utf8(ws->range(V("A:B"))->address()), "$A:$B");
  EXPECT_EQ(to_utf8(ws->range(V("2:3"))->address()), "$2:$3");
  EXPECT_EQ(to_utf8(ws->cells()->address()), "$1:$1048576");
  EXPECT_EQ(to_utf8(ws->range(V("C:C"))->address(true, true, xl::R1C1)), "C3");
  EXPECT_EQ(to_utf8(ws->range(V("A1,B2:C3"))->address(false, false)), "A1,B2:C3");
}

TEST_F(Ranges, UnionJoinsAdjacentCellsIntoBlocks) {
  auto u = [&](std::initializer_list<const char*> parts) {
    host::RangePtr acc;
    for (const char* p : parts) acc = acc ? app->union_(acc, r(p)) : r(p);
    return addr(acc);
  };
  EXPECT_EQ(u({"A1", "A2", "A3"}), "A1:A3");
  EXPECT_EQ(u({"A1", "B1", "A2", "B2"}), "A1:B2");
  EXPECT_EQ(u({"A3", "A1", "A2"}), "A1:A3");
  EXPECT_EQ(u({"A1", "C1"}), "A1,C1");
  EXPECT_EQ(u({"A1:A3", "A2"}), "A1:A3");
  EXPECT_EQ(u({"A2", "A1:A3"}), "A1:A3");
  EXPECT_EQ(u({"A1:B2", "B2:C3"}), "A1:B2,B2:C3");  // overlapping blocks stay apart
  EXPECT_EQ(u({"A1:A2", "B1:B3"}), "A1:A2,B1:B3");  // edges of different lengths
  EXPECT_EQ(u({"C5", "A1", "C6"}), "C5:C6,A1");
  auto other = wb->worksheets()->add(Variant::missing(), Variant(ObjectPtr(ws)));
  EXPECT_THROW(app->union_(r("A1"), other->range(V("A2"))), Error);
}

TEST_F(Ranges, IntersectFindsTheCommonCells) {
  EXPECT_EQ(addr(app->intersect(r("A1:C3"), r("B2:D4"))), "B2:C3");
  EXPECT_EQ(app->intersect(r("A1"), r("C3")), nullptr);
  EXPECT_EQ(addr(app->intersect(r("A1:A10,C1:C10"), r("A5:C5"))), "A5,C5");
  EXPECT_EQ(addr(app->intersect(ws->range(V("B:B")), r("A3:C4"))), "B3:B4");
}

TEST_F(Ranges, ReferenceTextIsReadLikeTheApplicationReadsIt) {
  auto second = wb->worksheets()->add(Variant::missing(), Variant(ObjectPtr(ws)));
  second->set_name(u"My Sheet");
  ws->activate();
  struct Case {
    const char* text;
    const char* address;
  } cases[] = {{"a1:b2", "A1:B2"}, {"B2:A1", "A1:B2"},       {"$C$3", "C3"}, {"A:A", "A:A"},
               {"1:3", "1:3"},     {"A1,B2:C3", "A1,B2:C3"}, {" D4 ", "D4"}};
  for (const auto& c : cases) EXPECT_EQ(addr(ws->range(V(c.text))), c.address) << c.text;
  auto q = app->range(V("'My Sheet'!B7"));
  EXPECT_EQ(to_utf8(q->worksheet()->name()), "My Sheet");
  EXPECT_EQ(addr(q), "B7");
  EXPECT_EQ(to_utf8(app->range(V("'[Book1]My Sheet'!A1"))->worksheet()->name()), "My Sheet");
  EXPECT_EQ(to_utf8(app->range(V("Sheet1!C2"))->worksheet()->name()), "Sheet1");
  EXPECT_EQ(addr(app->range(r("A1"), V("C2"))), "A1:C2");
  for (const char* bad : {"", "A", "1A", "A1:", "Nope!A1", "'Sheet1!A1", "A1:B2:C3", "Total"})
    EXPECT_THROW(ws->range(V(bad)), Error) << bad;
}

TEST_F(Ranges, OffsetResizeAndRelativeRange) {
  EXPECT_EQ(addr(r("B2:C3")->offset(1, 2)), "D3:E4");
  EXPECT_EQ(addr(r("A1,C3")->offset(1, 1)), "B2,D4");
  EXPECT_THROW(r("A1")->offset(-1, 0), Error);
  EXPECT_THROW(r("XFD1")->offset(0, 1), Error);
  EXPECT_EQ(addr(r("B2")->resize(2, 3)), "B2:D3");
  EXPECT_EQ(addr(r("B2:C9,E1")->resize(1, 1)), "B2");
  EXPECT_THROW(r("B2")->resize(0, 1), Error);
  EXPECT_EQ(addr(r("B2:D4")->range(V("B2"))), "C3");
  EXPECT_EQ(addr(r("C3")->range(V("A1:B2"))), "C3:D4");
  EXPECT_EQ(addr(r("C3:D4")->range(V("A1"))), "C3");
}

TEST_F(Ranges, SelectAndActivateKeepSelectionAndActiveCellPerSheet) {
  r("B2:C3")->select();
  EXPECT_EQ(addr(app->active_cell()), "B2");
  EXPECT_EQ(addr(std::dynamic_pointer_cast<host::Range>(app->selection())), "B2:C3");
  r("C3")->activate();  // inside the selection: only the active cell moves
  EXPECT_EQ(addr(app->active_cell()), "C3");
  EXPECT_EQ(addr(std::dynamic_pointer_cast<host::Range>(app->selection())), "B2:C3");
  r("E5")->activate();
  EXPECT_EQ(addr(std::dynamic_pointer_cast<host::Range>(app->selection())), "E5");
  auto other = wb->worksheets()->add();
  EXPECT_EQ(to_utf8(std::dynamic_pointer_cast<host::Worksheet>(app->active_sheet())->name()),
            "Sheet2");
  EXPECT_THROW(r("A1")->select(), Error);  // not the active sheet
  ws->activate();
  EXPECT_EQ(addr(app->active_cell()), "E5");  // each sheet keeps its own
}

TEST_F(Ranges, RowAndColumnPropertiesAnswerNullWhenMixed) {
  EXPECT_EQ(r("A1")->entire_row()->hidden(), Variant(false));
  ws->range(V("2:3"))->set_hidden(true);
  EXPECT_EQ(r("B2")->entire_row()->hidden(), Variant(true));
  EXPECT_TRUE(ws->range(V("1:3"))->hidden().is_null());
  EXPECT_THROW(r("A1:B2")->hidden(), Error);       // not whole rows or columns
  EXPECT_EQ(r("A2")->row_height(), Variant(0.0));  // hidden rows have no height
  EXPECT_EQ(r("A1")->row_height(), Variant(15.0));
  r("A5")->entire_row()->set_row_height(20);
  EXPECT_EQ(r("A5")->row_height(), Variant(20.0));
  EXPECT_TRUE(r("A4:A5")->row_height().is_null());
  r("C1")->entire_column()->set_column_width(12.5);
  EXPECT_EQ(r("C9")->column_width(), Variant(12.5));
  EXPECT_TRUE(r("B1:C1")->column_width().is_null());
  EXPECT_EQ(r("D1")->entire_column()->outline_level(), Variant(int32_t{1}));
  r("B7:C9")->rows()->set_outline_level(3);
  EXPECT_EQ(r("A8")->entire_row()->outline_level(), Variant(int32_t{3}));
  EXPECT_TRUE(ws->range(V("6:7"))->outline_level().is_null());
  EXPECT_THROW(r("A8")->entire_row()->set_outline_level(9), Error);
}

TEST_F(Ranges, AutoFitMeasuresEachShownTextInItsFont) {
  auto fit = [&](const char* address) {
    late::call(r(address)->columns(), u"AutoFit");
    std::vector<double> w;
    for (const char* c : {"A1", "B1", "C1", "D1", "E1"})
      w.push_back(to_double(r(c)->column_width()));
    return w;
  };
  for (const char* a : {"A1", "B1", "C1", "D1"}) put(a, "1234567890");
  r("B1")->font()->set_bold(Variant(true));
  r("C1")->font()->set_size(Variant(22.0));
  put("D2",
      "iiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiiii");  // below the fitted row: not measured
  put("E1", "WWWWWWWWWW");
  std::vector<double> w = fit("A1:E1");
  // Ten digits of the normal font are ten units and the cell's margin.
  EXPECT_NEAR(w[0], 11.3, 0.3);
  EXPECT_GT(w[1], w[0] * 1.04);
  EXPECT_NEAR(w[2], 2 * w[0], 1.0);
  EXPECT_EQ(w[3], w[0]);
  EXPECT_GT(w[4], w[0] * 1.5);
  // Only the rows of the range count, and a column with nothing in them keeps its width.
  put("E5", "x");
  r("F1")->entire_column()->set_column_width(30);
  late::call(r("D2:F2")->columns(), u"AutoFit");
  EXPECT_GT(to_double(r("D1")->column_width()), 2 * w[0]);
  EXPECT_EQ(r("E1")->column_width(), Variant(w[4]));
  EXPECT_EQ(r("F1")->column_width(), Variant(30.0));
}

TEST_F(Ranges, UsedRangeCoversValuesAndFormats) {
  EXPECT_EQ(addr(ws->used_range()), "A1");
  put("D9", "1");
  r("C5")->set_number_format(u"0.0");
  EXPECT_EQ(addr(ws->used_range()), "C5:D9");
}

}  // namespace
}  // namespace qz::engine::test

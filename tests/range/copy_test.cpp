// Copying against the engine.
#include <fstream>
#include <sstream>

#include "library_fixture.hpp"

namespace qz::test {
namespace {

using Copy = LibraryTest;

TEST_F(Copy, PasteRangeAndTransferFormat) {
  EXPECT_EQ(addr(ranges->PasteRange(r("B2"), r("G7:J9"))), "B2:E4");
  auto from = r("A1"), to = r("B1");
  from->set_horizontal_alignment(Variant(host::xl::HAlignCenter));
  from->set_number_format(u"0.00%");
  from->font()->set_color_index(Variant(int32_t{3}));
  from->font()->set_name(Variant(u"Courier New"));
  from->font()->set_font_style(Variant(u"Bold Italic"));
  from->font()->set_size(Variant(16.0));
  from->font()->set_strikethrough(Variant(true));  // not among the six
  from->interior()->set_color(Variant(int32_t{255}));
  ranges->TransferFormat(to, from);
  EXPECT_EQ(to->horizontal_alignment(), Variant(host::xl::HAlignCenter));
  EXPECT_EQ(to->number_format(), Variant(u"0.00%"));
  EXPECT_EQ(to->font()->color_index(), Variant(int32_t{3}));
  EXPECT_EQ(to->font()->name(), Variant(u"Courier New"));
  EXPECT_EQ(to->font()->font_style(), Variant(u"Bold Italic"));
  EXPECT_EQ(to->font()->size(), Variant(16.0));
  EXPECT_EQ(to->font()->strikethrough(), Variant(false));
  EXPECT_NE(to->interior()->color(), Variant(int32_t{255}));
}

TEST_F(Copy, CopyRowColAttrsCopiesLayoutRowByRowAndColumnByColumn) {
  r("A2")->entire_row()->set_row_height(30);
  r("A2")->entire_row()->set_outline_level(2);
  r("A3")->entire_row()->set_hidden(true);
  r("B1")->entire_column()->set_column_width(20);
  ranges->CopyRowColAttrs(r("A1:B3"), r("D11:E13"));
  EXPECT_EQ(to_double(r("D12")->entire_row()->row_height()), 30);
  EXPECT_EQ(to_long(r("D12")->entire_row()->outline_level()), 2);
  EXPECT_EQ(r("D13")->entire_row()->hidden(), Variant(true));
  EXPECT_EQ(r("D11")->entire_row()->hidden(), Variant(false));
  EXPECT_EQ(to_double(r("E11")->entire_column()->column_width()), 20);
}

TEST_F(Copy, CopyNoFmlasTurnsFormulasIntoValuesExceptHiddenText) {
  put("A1", "=1+1");
  put("A2", "'007");
  put("A3", "=A1*10");
  r("A3")->font()->set_color(Variant(int32_t{16777215}));
  r("A3")->interior()->set_color(Variant(int32_t{16777215}));
  r("A1")->font()->set_color(Variant(int32_t{255}));
  ranges->CopyNoFmlas(r("A1:A3"), r("C1:C3"), true, false);
  EXPECT_EQ(r("C1")->formula(), u"2");
  EXPECT_EQ(r("C2")->prefix_character() + r("C2")->formula(), u"'007");
  // White on white is hidden on purpose: the formula stays, moved with the copy.
  EXPECT_EQ(r("C3")->formula(), u"=C1*10");
  EXPECT_EQ(to_long(r("C1")->font()->color()), 0);  // black fonts were asked for
}

TEST_F(Copy, CopyNoFmlasFromOrToNothingChangesNothing) {
  put("A1", "=1+1");
  ranges->CopyNoFmlas(nullptr, r("C1"), true, true);
  ranges->CopyNoFmlas(r("A1"), nullptr, true, true);
  EXPECT_EQ(r("C1")->formula(), u"");
  EXPECT_EQ(r("A1")->formula(), u"=1+1");
}

// The outside borders of a block, as border helpers pass them around: snapshot, clear chosen
// sides, put the snapshot back; and the copy that leaves the outline behind.
TEST_F(Copy, OutsideBordersSnapshotClearAndRestore) {
  namespace xl = host::xl;
  auto block = r("B2:C4");
  auto edge = [&](const char* a, int32_t e) { return r(a)->borders()->item(e); };
  for (int32_t e : {xl::EdgeLeft, xl::EdgeTop, xl::EdgeRight, xl::EdgeBottom})
    block->borders()->item(e)->set_line_style(Variant(xl::Continuous));
  edge("B4:C4", xl::EdgeBottom)->set_weight(Variant(xl::Thick));
  edge("B2:C2", xl::EdgeTop)->set_color(Variant(int32_t{255}));
  edge("C2", xl::EdgeRight)->set_line_style(Variant(xl::Dash));  // one cell of the side

  const Variant snap = ranges->CommonOSBorders(block);
  ASSERT_TRUE(snap.is_array());
  auto side = [&](int32_t i) { return snap.array().at(i).array(); };
  EXPECT_EQ(side(1).at(1), Variant(xl::Continuous));  // left
  EXPECT_EQ(side(2).at(3), Variant(int32_t{255}));    // top, red
  EXPECT_TRUE(side(3).at(1).is_null()) << "right is dashed in one cell, solid in the others";
  EXPECT_EQ(side(3).at(2), Variant(xl::Thin));
  EXPECT_EQ(side(4).at(2), Variant(xl::Thick));  // bottom

  ranges->RemoveSelOSBorders(block, true, false, false, true);
  EXPECT_EQ(edge("B2:B4", xl::EdgeLeft)->line_style(), Variant(xl::LineStyleNone));
  EXPECT_EQ(edge("B4:C4", xl::EdgeBottom)->line_style(), Variant(xl::LineStyleNone));
  EXPECT_EQ(edge("B2:C2", xl::EdgeTop)->line_style(), Variant(xl::Continuous));
  EXPECT_EQ(edge("B2:B4", xl::EdgeRight)->line_style(), Variant(xl::LineStyleNone))
      << "inside the block nothing was drawn";

  ranges->RemoveSelOSBorders(block, false, true, true, false);
  ranges->RestoreOSBorders(block, snap);
  const Variant again = ranges->CommonOSBorders(block);
  for (int32_t i : {1, 2, 4}) EXPECT_EQ(again.array().at(i), snap.array().at(i)) << "side " << i;
  EXPECT_EQ(edge("C3:C4", xl::EdgeRight)->line_style(), Variant(xl::LineStyleNone))
      << "a mixed side is left as it was";
  ranges->RestoreOSBorders(block, Variant(u"not a snapshot"));  // ignored
  ranges->RemoveSelOSBorders(nullptr, true, true, true, true);  // no range, no throw

  // A neighbour's facing line shows along the edge, and clearing the edge clears it.
  edge("E5", xl::EdgeRight)->set_line_style(Variant(xl::Double));
  EXPECT_EQ(edge("F5", xl::EdgeLeft)->line_style(), Variant(xl::Double));
  ranges->CopyNoFmlas(r("F5"), r("F5"), false, true);
  EXPECT_EQ(edge("E5", xl::EdgeRight)->line_style(), Variant(xl::LineStyleNone));
}

TEST_F(Copy, FilesNeedANameAndBitmapsABitmapOnTheClipboard) {
  TempDir dir;
  std::ofstream(dir / "range.bmp") << "old";
  const String bmp = from_utf8((dir / "range.bmp").string());
  EXPECT_FALSE(ranges->CopyRangeToBmpFile(r("A1:B2"), u""));
  // The headless platform's clipboard holds no bitmap: nothing is written, and the old file
  // of that name is gone.
  EXPECT_FALSE(ranges->CopyRangeToBmpFile(r("A1:B2"), bmp));
  EXPECT_FALSE(std::filesystem::exists(dir / "range.bmp"));

  put("A1", "Name");
  put("B1", "0.5");
  r("B1")->set_number_format(u"0%");
  EXPECT_TRUE(ranges->ExportRangeToFile(r("A1:B2"), from_utf8((dir / "out.txt").string())));
  std::stringstream got;
  got << std::ifstream(dir / "out.txt").rdbuf();
  EXPECT_EQ(got.str(), "Name\t50%\n\t\n");
}

}  // namespace
}  // namespace qz::test
